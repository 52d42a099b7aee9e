#include "Projects/Common/VoIPFileEngine/ReferenceStorage.h"

#include <gtest/gtest.h>

#include <string>

namespace Orv {
namespace {

struct Shared : MTObjects::MTReferencedTypeBase {
    explicit Shared(bool isValid = true) : valid(isValid) { ++alive; }
    ~Shared() override {
        --alive;
        if (onEnd != nullptr) onEnd();
    }
    const bool valid;
    void (*onEnd)() = nullptr;
    static inline int alive = 0;

protected:
    bool TestValid() const override { return valid; }
};

using Holder = MTObjects::THolder<Shared>;
using Storage = ReferenceStorage<std::string, Holder>;

bool Has(Storage& storage, const std::string& key) {
    Holder found;
    if (!storage.Acquire(key, found)) return false;
    EXPECT_TRUE(found.IsValid());
    storage.Release(key);
    return true;
}

TEST(ReferenceStorage, AnEmptyHolderForAnUnknownKeyChangesNothing) {
    Storage storage;
    Holder holder;
    EXPECT_FALSE(storage.Acquire("a", holder));
    EXPECT_FALSE(holder);
    EXPECT_FALSE(Has(storage, "a"));
}

TEST(ReferenceStorage, AnObjectThatIsNotValidIsNotEntered) {
    Storage storage;
    Holder holder(new Shared(false));
    EXPECT_FALSE(storage.Acquire("a", holder));
    EXPECT_TRUE(holder);
    Holder looked;
    EXPECT_FALSE(storage.Acquire("a", looked));
    EXPECT_FALSE(looked);
}

TEST(ReferenceStorage, AValidObjectIsPublishedAndHandedToTheNextUser) {
    Storage storage;
    Holder first(new Shared);
    EXPECT_FALSE(storage.Acquire("a", first));
    Holder second;
    EXPECT_TRUE(storage.Acquire("a", second));
    EXPECT_TRUE(first == second);
    Holder other;
    EXPECT_FALSE(storage.Acquire("A", other));
}

TEST(ReferenceStorage, OfTwoUsersTheFirstReleaseKeepsTheKeyAndTheSecondRemovesIt) {
    Storage storage;
    Holder first(new Shared);
    storage.Acquire("a", first);
    Holder second;
    ASSERT_TRUE(storage.Acquire("a", second));
    EXPECT_TRUE(storage.Release("a"));
    EXPECT_TRUE(Has(storage, "a"));
    EXPECT_FALSE(storage.Release("a"));
    EXPECT_FALSE(Has(storage, "a"));
}

TEST(ReferenceStorage, ReleaseOfAnUnknownKeyDoesNothing) {
    Storage storage;
    Holder holder(new Shared);
    storage.Acquire("a", holder);
    EXPECT_FALSE(storage.Release("b"));
    EXPECT_TRUE(Has(storage, "a"));
}

TEST(ReferenceStorage, TheObjectGoesWithTheLastUserUnlessSomebodyHoldsItStill) {
    Storage storage;
    {
        Holder holder(new Shared);
        storage.Acquire("a", holder);
    }
    EXPECT_EQ(Shared::alive, 1);
    storage.Release("a");
    EXPECT_EQ(Shared::alive, 0);

    Holder kept(new Shared);
    storage.Acquire("a", kept);
    storage.Release("a");
    EXPECT_EQ(Shared::alive, 1);
    // The name is free meanwhile: the next user builds an object of its own.
    Holder next;
    EXPECT_FALSE(storage.Acquire("a", next));
    next = new Shared;
    EXPECT_FALSE(storage.Acquire("a", next));
    EXPECT_EQ(Shared::alive, 2);
    EXPECT_FALSE(kept == next);
    storage.Release("a");
}

TEST(ReferenceStorage, TheLoserOfARaceGetsTheOthersObjectAndItsOwnGoes) {
    Storage storage;
    Holder winner(new Shared);
    storage.Acquire("a", winner);
    Holder loser(new Shared);
    EXPECT_EQ(Shared::alive, 2);
    EXPECT_TRUE(storage.Acquire("a", loser));
    EXPECT_TRUE(loser == winner);
    EXPECT_EQ(Shared::alive, 1);
    EXPECT_TRUE(storage.Release("a"));
    EXPECT_FALSE(storage.Release("a"));
}

TEST(ReferenceStorage, AcquiringTheObjectThatIsHeldAlreadyAddsAUser) {
    Storage storage;
    Holder holder(new Shared);
    storage.Acquire("a", holder);
    EXPECT_TRUE(storage.Acquire("a", holder));
    EXPECT_TRUE(holder.IsValid());
    EXPECT_TRUE(storage.Release("a"));
    EXPECT_FALSE(storage.Release("a"));
}

TEST(ReferenceStorage, AnObjectThatEndsInsideReleaseMayUseTheStorageAndFindsItsKeyGone) {
    static Storage storage;
    static int answer = -1;
    {
        Holder holder(new Shared);
        holder->onEnd = [] {
            Holder looked;
            answer = storage.Acquire("a", looked) ? 1 : 0;
        };
        storage.Acquire("a", holder);
    }
    EXPECT_FALSE(storage.Release("a"));
    EXPECT_EQ(answer, 0);
}

TEST(ReferenceStorage, KeepsNothingAliveBeyondItself) {
    {
        Storage storage;
        Holder holder(new Shared);
        storage.Acquire("a", holder);
        storage.Acquire("a", holder);
    }
    EXPECT_EQ(Shared::alive, 0);
}

}  // namespace
}  // namespace Orv
