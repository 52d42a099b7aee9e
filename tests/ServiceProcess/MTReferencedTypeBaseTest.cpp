#include "ServiceProcess/MTReferencedTypeBase.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using MTObjects::MTReferencedTypeBase;
using MTObjects::THolder;

class Probe : public MTReferencedTypeBase {
public:
    explicit Probe(std::vector<int>& gone, int number = 0, bool valid = true)
        : gone_(gone), number_(number), valid_(valid) {}
    ~Probe() override { gone_.push_back(number_); }
    i32 Count() const { return RefCount(); }
    int Number() const { return number_; }
    bool Answer() { return IsValid(); }
    bool ConstAnswer() const { return IsValid(); }

protected:
    bool TestValid() const override { return valid_; }

private:
    std::vector<int>& gone_;
    int number_;
    bool valid_;
};

// Two roads to one base.
class Left : public virtual MTReferencedTypeBase {};
class Right : public virtual MTReferencedTypeBase {};
class Diamond : public Left, public Right {
public:
    explicit Diamond(std::vector<int>& gone) : gone_(gone) {}
    ~Diamond() override { gone_.push_back(1); }
    i32 Count() const { return RefCount(); }

protected:
    bool TestValid() const override { return true; }

private:
    std::vector<int>& gone_;
};

class THolderTest : public testing::Test {
protected:
    std::vector<int> gone_;
};

TEST_F(THolderTest, ANewObjectStartsAtCountZeroAndLivesUnowned) {
    auto* object = new Probe(gone_);
    EXPECT_EQ(object->Count(), 0);
    EXPECT_TRUE(gone_.empty());
    THolder<Probe> holder(object);
    EXPECT_EQ(object->Count(), 1);
}

TEST_F(THolderTest, TheLastHolderDeletesTheObject) {
    {
        THolder<Probe> first(new Probe(gone_));
        {
            THolder<Probe> second(first);
            EXPECT_EQ(first->Count(), 2);
        }
        EXPECT_EQ(first->Count(), 1);
        EXPECT_TRUE(gone_.empty());
    }
    EXPECT_EQ(gone_.size(), 1u);
}

TEST_F(THolderTest, ADefaultHolderIsNullAndNotValid) {
    const THolder<Probe> holder;
    EXPECT_EQ(holder.Get(), nullptr);
    EXPECT_FALSE(holder);
    EXPECT_FALSE(holder.IsValid());
}

TEST_F(THolderTest, ValidityIsTheObjectsOwnAnswer) {
    const THolder<Probe> valid(new Probe(gone_, 1, true));
    const THolder<Probe> invalid(new Probe(gone_, 2, false));
    EXPECT_TRUE(valid.IsValid());
    EXPECT_FALSE(invalid.IsValid());
    EXPECT_TRUE(static_cast<bool>(invalid));
}

TEST_F(THolderTest, BothFormsOfTheValidityTestAnswerTheSame) {
    for (const bool valid : {true, false}) {
        const THolder<Probe> holder(new Probe(gone_, 1, valid));
        EXPECT_EQ(holder->Answer(), valid);
        EXPECT_EQ(holder->ConstAnswer(), valid);
    }
}

TEST_F(THolderTest, AssigningTheSamePointerChangesNothing) {
    THolder<Probe> holder(new Probe(gone_));
    Probe* object = holder.Get();
    holder = object;
    const THolder<Probe> other(holder);
    holder = other;
    EXPECT_EQ(object->Count(), 2);
    EXPECT_TRUE(gone_.empty());
}

// The old object tells, from its destructor, what count the new one has at that moment.
TEST_F(THolderTest, AssignmentReleasesTheOldObjectBeforeTheNewOneGetsItsReference) {
    class Witness : public MTReferencedTypeBase {
    public:
        Witness(Probe* other, i32& seen) : other_(other), seen_(seen) {}
        ~Witness() override { seen_ = other_->Count(); }

    protected:
        bool TestValid() const override { return true; }

    private:
        Probe* other_;
        i32& seen_;
    };
    const THolder<Probe> next(new Probe(gone_));
    i32 seen = -1;
    THolder<MTReferencedTypeBase> holder(new Witness(next.Get(), seen));
    holder = THolder<MTReferencedTypeBase>(next.Get()).Get();
    EXPECT_EQ(seen, 1 + 1);  // `next` and the temporary; the holder's own comes after
    EXPECT_EQ(next->Count(), 2);
}

TEST_F(THolderTest, AssigningNullReleases) {
    THolder<Probe> holder(new Probe(gone_));
    holder = nullptr;
    EXPECT_EQ(gone_.size(), 1u);
    EXPECT_FALSE(holder);
}

TEST_F(THolderTest, MovingHandsOverTheReference) {
    THolder<Probe> from(new Probe(gone_, 1));
    THolder<Probe> to(new Probe(gone_, 2));
    to = std::move(from);
    EXPECT_EQ(gone_, std::vector<int>{2});
    EXPECT_EQ(to->Number(), 1);
    EXPECT_EQ(to->Count(), 1);
    EXPECT_FALSE(from);  // NOLINT: a moved-from holder is empty
}

TEST_F(THolderTest, SwappingMovesOwnershipWithoutTouchingTheCounts) {
    THolder<Probe> first(new Probe(gone_, 1));
    THolder<Probe> second(new Probe(gone_, 2));
    const THolder<Probe> also(second);
    first.Swap(second);
    EXPECT_EQ(first->Number(), 2);
    EXPECT_EQ(first->Count(), 2);
    EXPECT_EQ(second->Number(), 1);
    EXPECT_EQ(second->Count(), 1);
    EXPECT_TRUE(gone_.empty());
}

TEST_F(THolderTest, AnObjectInheritedOnTwoRoadsHasOneCount) {
    {
        const THolder<Left> left(new Diamond(gone_));
        auto* diamond = dynamic_cast<Diamond*>(left.Get());
        ASSERT_NE(diamond, nullptr);
        const THolder<Right> right(diamond);
        EXPECT_EQ(diamond->Count(), 2);
        EXPECT_TRUE(gone_.empty());
    }
    EXPECT_EQ(gone_.size(), 1u);
}

TEST_F(THolderTest, ACopiedObjectHasNoHolders) {
    const THolder<Probe> original(new Probe(gone_));
    const THolder<Probe> also(original);
    auto* copy = new Probe(*original);
    EXPECT_EQ(copy->Count(), 0);
    const THolder<Probe> holder(copy);
    EXPECT_EQ(copy->Count(), 1);
    EXPECT_EQ(original->Count(), 2);
}

TEST_F(THolderTest, ARefCounterStartsAtZero) {
    MTReferencedTypeBase::RefCounter counter;
    EXPECT_EQ(counter.Value(), 0);
    counter.Increment();
    counter.Increment();
    EXPECT_EQ(counter.Decrement(), 2);
    EXPECT_EQ(counter.Value(), 1);
}

}  // namespace
