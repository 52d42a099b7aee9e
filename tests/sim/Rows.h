// A configuration row as the simulation's own value, apart from the service's parameter lists.
#pragma once

#include <map>
#include <string>
#include <variant>

#include "VX/ParamList.h"

namespace OrvSim {

struct Row {
    std::map<std::string, std::variant<i32, std::string>> fields;

    bool Has(const std::string& name) const { return fields.count(name) != 0; }
    // 0 and the empty text for what is absent or of the other type.
    i32 Number(const std::string& name) const;
    std::string Text(const std::string& name) const;
    bool Empty() const { return fields.empty(); }
    bool operator==(const Row&) const = default;
};

using Table = std::map<i32, Row>;
using Tables = std::map<std::string, Table>;

VX::ParamListHolder ToList(const Row& row);
Row FromList(HVXPARAMLIST list);
// For messages.
std::string Describe(const Row& row);

}  // namespace OrvSim
