// The live copy of one configuration table.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ConfigClient/Application.h"
#include "ConfigClient/Index.h"
#include "Platform/Sync.h"
#include "ServiceProcess/MTReferencedTypeBase.h"
#include "VX/ParamList.h"

namespace ConfigConnection {

// One change of a transaction, in the order of the change listener's arguments.
struct PendingChange {
    std::string table;
    i32 id;
    const char* kind;
    VX::ParamListHolder newRow;
    VX::ParamListHolder oldRow;
};
using PendingChanges = std::vector<PendingChange, VX::VXLFHallocator_<PendingChange>>;

// The rows of one table by their ids, each the parameter list that the service sent. Rows arrive by events, in bulk, or
// one by one when they are asked for. Any thread; each operation holds the list's recursive lock for its whole length,
// and many ask the service meanwhile, so that any of them may wait for a round trip. Without a connection, or with a
// reply of the wrong shape, the list stays as it is and the answer is an empty holder.
class TObjectListImpl final : public MTObjects::MTReferencedTypeBase, public HeapObject {
public:
    // Asks the service for the ids of the table. Blocks.
    TObjectListImpl(const MTObjects::THolder<VXTPL::VXApplicationImpl>& connection, const char* name);
    ~TObjectListImpl() override;

    // As given, 255 characters at most. Lives as long as the list.
    const char* Name() const noexcept { return name_.c_str(); }

    // The row, from the service if it is not here yet. Empty for id 0 and for a row that does not exist. May block.
    VX::ParamListHolder GetRow(i32 id);
    // The n-th row, from 0, whose field has that text. A complete index answers by itself; otherwise the service does,
    // and the call blocks.
    VX::ParamListHolder FindRow(const char* field, const char_pointer& value, i32 n);
    // Replaces `ids` by every id that is known to exist, ascending, loaded or not.
    void GetIds(std::vector<i32>& ids) const;
    // Fetches these rows in one call. Blocks.
    void LoadRows(const std::vector<i32>& ids);

    // Inserts or replaces; `previous` takes the row that was there.
    void SetRow(VX::ParamListHolder& previous, i32 id, const VX::ParamListHolder& row);
    // Inserts a row whose id has none. A row that is there stays, and is indexed once more: callers look first.
    void AddRow(i32 id, const VX::ParamListHolder& row);
    // Forgets the id; `removed` takes its row, if there is one.
    void RemoveRow(VX::ParamListHolder& removed, i32 id);

    // Apply the ids of a transaction and append what came of it to `pending`. The second fetches the rows in one call
    // and blocks.
    void ApplyDeletedRows(const i32* ids, i32 count, PendingChanges& pending);
    void ApplyUpdatedRows(const i32* ids, i32 count, PendingChanges& pending);

    // New indexes, to be made before rows are read: rows that are here already are not put in. A name that is taken
    // changes nothing.
    void AddFieldIndex(const char* field, bool text);
    void AddCombinedIndex(const char* firstField, const char* secondField);

protected:
    bool TestValid() const override { return true; }

private:
    template <typename V>
    using Allocator = VX::VXLFHallocator_<V>;
    using Rows =
        std::map<i32, VX::ParamListHolder, std::less<i32>, Allocator<std::pair<const i32, VX::ParamListHolder>>>;
    using Indexes = std::map<char_pointer, MTObjects::THolder<IndexImpl>, std::less<char_pointer>,
                             Allocator<std::pair<const char_pointer, MTObjects::THolder<IndexImpl>>>>;

    VX::ParamListHolder Request() const;
    VX::ParamListHolder FetchRow(i32 id) ORV_REQUIRES(lock_);
    // One row per id, empty where there is none. Empty when the reply has not the right shape.
    std::vector<VX::ParamListHolder> FetchRows(const i32* ids, u32 count) const;
    void AddToIndexes(i32 id) ORV_REQUIRES(lock_);
    void RemoveFromIndexes(i32 id) ORV_REQUIRES(lock_);
    void Enter(MTObjects::THolder<IndexImpl> index) ORV_REQUIRES(lock_);

    // Constant after construction.
    const std::string name_;
    const std::string lowerName_;
    const MTObjects::THolder<VXTPL::VXApplicationImpl> connection_;

    mutable Platform::RecursiveMutex lock_;
    // A row that was indexed twice leaves an entry behind that points into it.
    std::vector<VX::ParamListHolder, Allocator<VX::ParamListHolder>> rowsOfOrphans_ ORV_GUARDED_BY(lock_);
    Rows rows_ ORV_GUARDED_BY(lock_);
    Indexes indexes_ ORV_GUARDED_BY(lock_);                                    // the key is the name inside the index
    std::set<i32, std::less<i32>, Allocator<i32>> ids_ ORV_GUARDED_BY(lock_);  // those of all rows among them
};

}  // namespace ConfigConnection
