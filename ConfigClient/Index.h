// Indexes of a table: from a field's value to the ids of the rows that have it.
//
// An index counts its entries, and its list takes it as complete when there are as many entries as ids. It does not
// look closer: an entry that no id leads to makes a complete table look incomplete, or an incomplete one complete.
//
// An index belongs to its list and is used under the list's lock. Keys point into the rows' texts and own nothing, so a
// row must outlive its entries.
#pragma once

#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ConfigClient/HeapObject.h"
#include "ServiceProcess/MTReferencedTypeBase.h"
#include "VX/ParamList.h"

namespace ConfigConnection {

// A text that somebody else owns, compared by its bytes; null counts as the empty text.
struct char_pointer {
    const char* text = nullptr;

    char_pointer() noexcept = default;
    char_pointer(const char* value) noexcept : text(value) {}  // NOLINT: a key is made from a text everywhere
    bool operator<(const char_pointer& other) const noexcept {
        return std::strcmp(text != nullptr ? text : "", other.text != nullptr ? other.text : "") < 0;
    }
};

// A number, then a text that somebody else owns.
struct combined_key {
    i32 number = 0;
    const char* text = nullptr;

    bool operator<(const combined_key& other) const noexcept {
        if (number != other.number) return number < other.number;
        return char_pointer(text) < char_pointer(other.text);
    }
} __attribute__((packed));

// The longest name of a table, an index or a field; a longer one is cut.
inline constexpr u32 kMaxNameLength = 255;

// An index of any key. Each kind answers the forms for its own key; the other forms find, add and remove nothing.
class IndexImpl : public MTObjects::MTReferencedTypeBase, public HeapObject {
public:
    // `simple`: the key is the one field that the index is named after.
    IndexImpl(bool simple, const char* name);
    ~IndexImpl() override;

    bool Simple() const noexcept { return simple_; }
    const char* Name() const noexcept { return name_.c_str(); }

    // The id of the n-th row with that key in the order of adding, 0 when there are not so many. A negative n steps
    // back from the first one into lesser keys.
    virtual i32 FindOne(const combined_key& key, i32 n) const;
    virtual i32 FindOne(i32 key, i32 n) const;
    virtual i32 FindOne(const char_pointer& key, i32 n) const;
    // Append the ids of all rows with that key, in the order of adding. A combined key with a null text stands for
    // every text.
    virtual void FindAll(std::vector<i32>& ids, const combined_key& key) const;
    virtual void FindAll(std::vector<i32>& ids, const char_pointer& key) const;
    virtual void FindAll(std::vector<i32>& ids, i32 key) const;
    // Appends all ids in the order of their keys.
    virtual void GetAll(std::vector<i32>& ids) const = 0;
    // The id at that place in the order of the keys, 0 behind the last.
    virtual i32 GetAt(u64 position) const = 0;
    // Add an entry. For an id that has one already, the further entry cannot be reached by the id any more.
    virtual void Add(const combined_key& key, i32 id);
    virtual void Add(i32 key, i32 id);
    virtual void Add(const char_pointer& key, i32 id);
    // Remove the entry that the id leads to; the key only selects the form.
    virtual void Remove(const combined_key& key, i32 id);
    virtual void Remove(i32 key, i32 id);
    virtual void Remove(const char_pointer& key, i32 id);
    // Entries, reachable by their ids or not.
    virtual i64 Count() const = 0;
    // The key of a row for a combined index: both fields, an integer and a text; otherwise the zero key.
    virtual combined_key MakeKey(HVXPARAMLIST row) const;

protected:
    bool TestValid() const override { return true; }

private:
    const bool simple_;
    const std::string name_;
};

// The fields of an index, beside its entries.
template <typename K>
class IndexFields {
public:
    IndexFields(const char*, const char*) {}
};
template <>
class IndexFields<combined_key> {
public:
    IndexFields(const char* firstField, const char* secondField);
    combined_key KeyOf(HVXPARAMLIST row) const;

private:
    const std::string firstField_;
    const std::string secondField_;
};

template <typename K>
class ConcreteIndex final : public IndexImpl, private IndexFields<K> {
    using Argument = std::conditional_t<std::is_same_v<K, i32>, i32, const K&>;
    static constexpr bool kCombined = std::is_same_v<K, combined_key>;

public:
    // Both fields count for a combined key only.
    explicit ConcreteIndex(const char* name, const char* firstField = "", const char* secondField = "")
        : IndexImpl(!kCombined, name), IndexFields<K>(firstField, secondField) {}

    using IndexImpl::Add;
    using IndexImpl::FindAll;
    using IndexImpl::FindOne;
    using IndexImpl::Remove;

    i32 FindOne(Argument key, i32 n) const override {
        const auto [first, last] = byKey_.equal_range(key);
        if (std::distance(first, last) <= n) return 0;
        if (n >= 0) return std::next(first, n)->second;
        auto entry = first;
        for (; n < 0; ++n) {
            if (entry == byKey_.begin()) return 0;
            --entry;
        }
        return entry->second;
    }

    void FindAll(std::vector<i32>& ids, Argument key) const override {
        auto entry = byKey_.lower_bound(key);
        for (; entry != byKey_.end() && Matches(key, entry->first); ++entry) ids.push_back(entry->second);
    }

    void GetAll(std::vector<i32>& ids) const override {
        for (const auto& entry : byKey_) ids.push_back(entry.second);
    }

    i32 GetAt(u64 position) const override {
        return position < byKey_.size() ? std::next(byKey_.begin(), static_cast<std::ptrdiff_t>(position))->second : 0;
    }

    void Add(Argument key, i32 id) override {
        const auto entry = byKey_.emplace(key, id);  // behind those of an equal key
        byId_.emplace(id, entry);
    }

    void Remove(Argument, i32 id) override {
        const auto found = byId_.find(id);
        if (found == byId_.end()) return;
        byKey_.erase(found->second);
        byId_.erase(found);
    }

    i64 Count() const override { return static_cast<i64>(byKey_.size()); }

    combined_key MakeKey(HVXPARAMLIST row) const override {
        if constexpr (kCombined) return this->KeyOf(row);
        return IndexImpl::MakeKey(row);
    }

private:
    template <typename V>
    using Allocator = VX::VXLFHallocator_<V>;
    using ByKey = std::multimap<K, i32, std::less<K>, Allocator<std::pair<const K, i32>>>;
    using Entry = typename ByKey::iterator;
    using ById = std::map<i32, Entry, std::less<i32>, Allocator<std::pair<const i32, Entry>>>;

    static bool Matches(Argument wanted, const K& key) {
        if constexpr (kCombined) {
            if (wanted.text == nullptr) return key.number == wanted.number;
        }
        return !(wanted < key);  // it is not less, by where the search began
    }

    ById byId_;
    ByKey byKey_;
};

}  // namespace ConfigConnection
