#include "ConfigClient/ObjectLists.h"

namespace ConfigConnection {

using MTObjects::THolder;
using Guard = Platform::LockGuard<Platform::RecursiveMutex>;

THolder<TObjectListImpl> ObjectLists::Find(const char* name) {
    const Guard guard(mutex_);
    const auto found = lists_.find(name);
    return found != lists_.end() ? found->second : nullptr;
}

THolder<TObjectListImpl> ObjectLists::Ensure(const THolder<VXTPL::VXApplicationImpl>& connection, const char* name) {
    const Guard guard(mutex_);
    if (const auto found = lists_.find(name); found != lists_.end()) {
        if (found->second.IsValid()) return found->second;
        lists_.erase(found);  // the key with it, which is part of the list
    }
    const THolder<TObjectListImpl> list(new TObjectListImpl(connection, name));
    lists_.try_emplace(list->Name(), list);
    return list;
}

void ObjectLists::CreateIndex(const THolder<VXTPL::VXApplicationImpl>& connection, const char* table, const char* field,
                              const char* secondField) {
    const Guard guard(mutex_);
    const THolder<TObjectListImpl> list = Ensure(connection, table);
    if (secondField == nullptr || *secondField == '\0') {
        list->AddFieldIndex(field, true);
    } else {
        list->AddCombinedIndex(field, secondField);
    }
}

void ObjectLists::Clear() {
    Lists removed;  // its rows go after the lock
    const Guard guard(mutex_);
    removed.swap(lists_);
}

}  // namespace ConfigConnection
