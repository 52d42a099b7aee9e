// Objects shared among their users by name: all who ask for one name share one object, and it goes when the last of
// them has given it back.
#pragma once

#include <map>
#include <memory>

#include "Platform/Sync.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// `Holder` is a THolder of the shared class. Any thread. Objects are built by the users, with no lock held:
//
//     Holder object;
//     if (!storage.Acquire(key, object)) {     // nobody has it
//         object = Build(key);
//         storage.Acquire(key, object);        // true: another user was quicker, and `object` is now that user's
//     }
//     ...
//     storage.Release(key);
template <typename Key, typename Holder>
class ReferenceStorage {
public:
    ReferenceStorage() = default;
    ReferenceStorage(const ReferenceStorage&) = delete;
    ReferenceStorage& operator=(const ReferenceStorage&) = delete;
    ~ReferenceStorage() {
        Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
        while (!entities_.empty()) delete entities_.begin()->second;
    }

    // Lookup and publication in one. True: the key was there, `holder` now holds its object, and there is one user
    // more. False: the key was not there; a valid object in `holder` has been entered with one user, anything else
    // changed nothing.
    bool Acquire(const Key& key, Holder& holder) {
        Holder outrun;  // goes when the lock is free again, as its end may take time
        Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
        const auto found = entities_.find(key);
        if (found != entities_.end()) {
            found->second->AddRef();
            if (!(holder == found->second->holder)) {
                outrun.Swap(holder);
                holder = found->second->holder;
            }
            return true;
        }
        if (holder.IsValid()) {
            auto entity = std::make_unique<Entity>(key, holder, this);
            entities_.emplace(key, entity.get());
            entity.release()->AddRef();
        }
        return false;
    }

    // Gives one use back; a key that is not there changes nothing. True when others use the key still, false when it
    // is not there any more.
    bool Release(const Key& key) {
        Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
        const auto found = entities_.find(key);
        if (found != entities_.end()) found->second->Release();
        return entities_.find(key) != entities_.end();
    }

    // Takes the lock for a moment: for who looks whether it can be had.
    void TakeLock() { Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_); }

private:
    // Its reference count is the number of users; the map's pointer is not counted.
    struct Entity : MTObjects::MTReferencedTypeBase {
        Entity(const Key& entityKey, const Holder& shared, ReferenceStorage* storage)
            : key(entityKey), holder(shared), owner(storage) {}
        // Runs inside Release(), on the thread that holds the mutex and may lock it again.
        ~Entity() override { owner->Erase(key); }

        using MTReferencedTypeBase::AddRef;
        using MTReferencedTypeBase::Release;

        const Key key;
        Holder holder;
        ReferenceStorage* const owner;

    protected:
        bool TestValid() const override { return true; }
    };

    void Erase(const Key& key) {
        Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
        entities_.erase(key);
    }

    Platform::RecursiveMutex mutex_;
    std::map<Key, Entity*> entities_ ORV_GUARDED_BY(mutex_);
};

}  // namespace Orv
