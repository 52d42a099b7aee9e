// The registry of tables. Everything here takes its recursive lock, which comes before the lock of any list.
#pragma once

#include <functional>
#include <map>

#include "ConfigClient/ObjectList.h"
#include "Platform/Sync.h"

namespace ConfigConnection {

// Any thread.
class ObjectLists {
public:
    // Empty when there is none.
    MTObjects::THolder<TObjectListImpl> Find(const char* name);
    // The list, made when there is no valid one. Making one asks the service, under the registry's lock. Blocks.
    MTObjects::THolder<TObjectListImpl> Ensure(const MTObjects::THolder<VXTPL::VXApplicationImpl>& connection,
                                               const char* name);
    // An index on one field when `secondField` is null or empty, otherwise on both. Makes the list as Ensure() does.
    void CreateIndex(const MTObjects::THolder<VXTPL::VXApplicationImpl>& connection, const char* table,
                     const char* field, const char* secondField);
    // Removes every list. Whoever still holds one keeps a dead copy.
    void Clear();

private:
    using Lists = std::map<char_pointer, MTObjects::THolder<TObjectListImpl>, std::less<char_pointer>,
                           VX::VXLFHallocator_<std::pair<const char_pointer, MTObjects::THolder<TObjectListImpl>>>>;

    Platform::RecursiveMutex mutex_;
    Lists lists_ ORV_GUARDED_BY(mutex_);  // the key is the name inside the list
};

}  // namespace ConfigConnection
