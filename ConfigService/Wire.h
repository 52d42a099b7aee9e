// Rows, changes and results as parameter lists, both ways. Pure functions, any thread. README.md tells the keys.
#pragma once

#include <string>
#include <vector>

#include "ConfigService/Change.h"
#include "VX/ParamList.h"

namespace Orv {

// A row as clients get it: its id column and each column that is not absent; texts as texts, numbers as 32-bit ones.
VX::ParamListHolder RowToList(const Table& table, const Row& row);
// The other way; what is no column of the table is passed over. The id is 0 when the list has none.
Row RowFromList(const Table& table, const VX::ParamListHolder& list);

// The request of AdminProtocol::CallApply.
VX::ParamListHolder ChangesToList(const std::vector<Change>& changes);
// What cannot be understood is left out of its change and told as a finding; then none of them is to be applied.
std::vector<Change> ChangesFromList(const VX::ParamListHolder& request, std::vector<Finding>& errors);

// The reply of AdminProtocol::CallApply. At most MaxFindings errors and as many warnings go out.
inline constexpr unsigned MaxFindings = 1000;
VX::ParamListHolder ResultToList(const ApplyResult& result);
// `result` is the text under "result", empty for an empty reply.
ApplyResult ResultFromList(const VX::ParamListHolder& reply, std::string& result);

// A packed run of ids, as a binary value.
void SetIds(const VX::ParamListHolder& list, const char* key, const std::vector<i32>& ids);
std::vector<i32> GetIds(const VX::ParamListHolder& list, const char* key);

// An array of nested lists.
void SetLists(const VX::ParamListHolder& list, const char* key, const std::vector<VX::ParamListHolder>& lists);
std::vector<VX::ParamListHolder> GetLists(const VX::ParamListHolder& list, const char* key);

// The text of a key, empty when it is absent.
std::string GetText(const VX::ParamListHolder& list, const char* key);

}  // namespace Orv
