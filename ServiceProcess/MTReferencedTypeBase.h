// The reference-counted base of everything that threads share, and its holder.
#pragma once

#include <atomic>
#include <cstddef>

#include "Platform/Types.h"

// Puts a name into the executable's dynamic symbol table.
#define ORV_EXPORT __attribute__((visibility("default")))

namespace MTObjects {

template <typename T>
class THolder;

// Counts its holders and deletes itself when the last one lets go. A new object starts at count 0 and lives unowned
// until the first holder takes it. Counting is safe from any thread; everything else is the derived class's business.
class ORV_EXPORT MTReferencedTypeBase {
public:
    // One signed 32-bit count, 0 at first. Sequentially consistent: all threads see the changes of all counts in one
    // order, and everything that other holders did happens before the deletion.
    class ORV_EXPORT RefCounter {
    public:
        RefCounter() noexcept;
        void Increment() noexcept { count_.fetch_add(1, std::memory_order_seq_cst); }
        // The count before the decrement.
        i32 Decrement() noexcept { return count_.fetch_sub(1, std::memory_order_seq_cst); }
        i32 Value() const noexcept { return count_.load(std::memory_order_seq_cst); }

    private:
        std::atomic<i32> count_;
    };

    MTReferencedTypeBase() noexcept;
    // A copy is a new object, without holders; an assignment leaves the holders as they are.
    MTReferencedTypeBase(const MTReferencedTypeBase& other) noexcept;
    MTReferencedTypeBase& operator=(const MTReferencedTypeBase& other) noexcept;
    virtual ~MTReferencedTypeBase();

protected:
    template <typename T>
    friend class THolder;

    // Whether the object can be used. A class that wraps a resource answers by the resource, most others true.
    virtual bool TestValid() const = 0;

    void AddRef();
    // Deletes the object when the count was 1.
    void Release();
    bool IsValid();
    bool IsValid() const;
    i32 RefCount() const noexcept { return counter_.Value(); }

private:
    RefCounter counter_;
};

// One pointer with one reference. A holder itself belongs to one thread at a time; the object it holds need not.
template <typename T>
class THolder {
public:
    THolder() noexcept = default;
    THolder(std::nullptr_t) noexcept {}
    THolder(T* object) : object_(object) { Acquire(); }  // NOLINT: taking over a new object is the common case
    THolder(const THolder& other) : object_(other.object_) { Acquire(); }
    THolder(THolder&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
    template <typename U>
    THolder(const THolder<U>& other) : object_(other.Get()) {
        Acquire();
    }
    ~THolder() { Drop(); }

    // The old object is released before the new one gets its reference; the same pointer changes nothing. So the new
    // object must not be kept alive by the old one alone: there, copy the holder and Swap().
    THolder& operator=(const THolder& other) {
        Assign(other.object_);
        return *this;
    }
    THolder& operator=(THolder&& other) noexcept {
        if (this != &other) {
            T* object = other.object_;
            other.object_ = nullptr;
            Drop();
            object_ = object;
        }
        return *this;
    }
    THolder& operator=(T* object) {
        Assign(object);
        return *this;
    }
    THolder& operator=(std::nullptr_t) {
        Drop();
        return *this;
    }

    // Moves ownership without touching the counts: how a new object takes the place of an old one in a member.
    void Swap(THolder& other) noexcept {
        T* object = object_;
        object_ = other.object_;
        other.object_ = object;
    }

    // The pointer, still the holder's.
    T* Get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }
    bool operator==(const THolder& other) const noexcept { return object_ == other.object_; }
    // Non-null and valid: to be asked before any use of a shared object.
    bool IsValid() const { return object_ != nullptr && static_cast<const MTReferencedTypeBase*>(object_)->IsValid(); }

private:
    void Acquire() {
        if (object_ != nullptr) static_cast<MTReferencedTypeBase*>(object_)->AddRef();
    }
    // Empties the holder first, so that a destructor which comes back here finds nothing to release twice.
    void Drop() {
        T* object = object_;
        object_ = nullptr;
        if (object != nullptr) static_cast<MTReferencedTypeBase*>(object)->Release();
    }
    void Assign(T* object) {
        if (object_ == object) return;
        Drop();
        object_ = object;
        Acquire();
    }

    T* object_ = nullptr;
};

}  // namespace MTObjects
