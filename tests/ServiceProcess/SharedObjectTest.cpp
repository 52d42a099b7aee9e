// One object, many threads: every holder's reference counts, and the last one deletes.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "Platform/Thread.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace {

class Shared : public MTObjects::MTReferencedTypeBase {
public:
    explicit Shared(std::atomic<int>& gone) : gone_(gone) {}
    ~Shared() override { gone_.fetch_add(payload_); }
    // Written by whoever holds it, without a lock, each in a place of its own.
    int places[4] = {};

protected:
    bool TestValid() const override { return true; }

private:
    std::atomic<int>& gone_;
    int payload_ = 1;
};

TEST(SharedObjectTest, HoldersOnManyThreadsDeleteItOnceAndAfterAllElse) {
    std::atomic<int> gone{0};
    for (int round = 0; round < 50; ++round) {
        MTObjects::THolder<Shared> holder(new Shared(gone));
        std::vector<Platform::Thread> threads;
        for (int number = 0; number < 4; ++number) {
            threads.emplace_back("holder", [own = holder, number]() mutable {
                for (int i = 0; i < 200; ++i) {
                    const MTObjects::THolder<Shared> copy(own);
                    ++copy->places[number];
                }
                own = nullptr;
            });
        }
        holder = nullptr;
        for (Platform::Thread& thread : threads) thread.Join();
        EXPECT_EQ(gone.load(), round + 1);
    }
}

}  // namespace
