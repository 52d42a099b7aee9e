#include "Platform/OverlappedFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <vector>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/linux/PositionalRead.h"
#include "Platform/linux/ReaderGroup.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::Eventually;
using OrvTest::TempFolder;
using OrvTest::WriteFileText;

// The disk of a test: how the page cache answers, and which positions hang until they are let go.
struct Disk {
    // What a cached read gives: an error, or at most so many bytes.
    std::atomic<int> cacheError{0};
    std::atomic<std::size_t> cacheBytes{1 << 20};
    std::atomic<int> cacheCalls{0};
    std::atomic<int> diskError{0};

    Mutex mutex;
    CondVar released;
    std::set<off_t> hanging ORV_GUARDED_BY(mutex);
    std::vector<off_t> asked ORV_GUARDED_BY(mutex);

    void Hang(off_t position) {
        LockGuard<Mutex> guard(mutex);
        hanging.insert(position);
    }
    void Release(off_t position) {
        LockGuard<Mutex> guard(mutex);
        hanging.erase(position);
        released.NotifyAll();
    }
    bool WasAsked(off_t position) {
        LockGuard<Mutex> guard(mutex);
        return std::find(asked.begin(), asked.end(), position) != asked.end();
    }
};

Disk* disk = nullptr;

ssize_t FromCache(int fd, void* destination, std::size_t count, off_t position) {
    disk->cacheCalls.fetch_add(1, std::memory_order_relaxed);
    if (const int error = disk->cacheError.load(std::memory_order_relaxed); error != 0) {
        errno = error;
        return -1;
    }
    const std::size_t most = disk->cacheBytes.load(std::memory_order_relaxed);
    // The first bytes are cached, the rest is not.
    if (static_cast<std::size_t>(position) >= most) {
        errno = EAGAIN;
        return -1;
    }
    return ::pread(fd, destination, std::min(count, most - static_cast<std::size_t>(position)), position);
}

ssize_t FromDisk(int fd, void* destination, std::size_t count, off_t position) {
    {
        LockGuard<Mutex> guard(disk->mutex);
        disk->asked.push_back(position);
        while (disk->hanging.contains(position)) disk->released.Wait(disk->mutex);
    }
    if (const int error = disk->diskError.load(std::memory_order_relaxed); error != 0) {
        errno = error;
        return -1;
    }
    return ::pread(fd, destination, count, position);
}

std::string Pattern(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
    return text;
}

class OverlappedFileTest : public testing::Test {
protected:
    static constexpr std::size_t kSize = 100'000;

    OverlappedFileTest() : text_(Pattern(kSize)) {
        disk = &disk_;
        static constexpr ReadCalls kCalls{FromCache, FromDisk};
        SetReadCalls(&kCalls);
        WriteFileText(folder_ / "A.raw", text_);
        file_ = Open(folder_ / "a.RAW");
    }
    ~OverlappedFileTest() override {
        {
            LockGuard<Mutex> guard(disk->mutex);
            disk->hanging.clear();
            disk->released.NotifyAll();
        }
        // The next test has a disk of its own, which no thread of this one may look at.
        EXPECT_TRUE(Eventually([this] { return Readers().QueueLength() == 0 && Readers().BusyCount() == 0; }));
        SetReadCalls(nullptr);
    }

    static std::shared_ptr<IOverlappedFile> Open(const std::string& path) {
        SystemError error = 1;
        auto file = OpenOverlappedFile(path, error);
        EXPECT_NE(file, nullptr) << path;
        EXPECT_EQ(error, 0u);
        return file;
    }
    ReaderGroup& Readers() {
        struct stat info {};
        EXPECT_EQ(::stat(folder_.Path().c_str(), &info), 0);
        return ReaderGroup::ForDevice(info.st_dev);
    }
    static ReadState Finish(OverlappedRead& read) {
        EXPECT_TRUE(Eventually([&] { return read.Poll() != ReadState::Pending; }));
        return read.Poll();
    }
    static std::string TextOf(const OverlappedRead& read) {
        return std::string(reinterpret_cast<const char*>(read.Data()), read.Bytes());
    }

    Disk disk_;
    TempFolder folder_;
    const std::string text_;
    std::shared_ptr<IOverlappedFile> file_;
};

TEST_F(OverlappedFileTest, WhatIsInThePageCacheIsDoneAtOnce) {
    const auto read = file_->MakeRead();
    EXPECT_EQ(read->Poll(), ReadState::EndOfFile);
    EXPECT_EQ(file_->StartRead(read, 12'345, 8192), ReadState::Done);
    EXPECT_EQ(read->Poll(), ReadState::Done);
    EXPECT_EQ(TextOf(*read), text_.substr(12'345, 8192));
    EXPECT_FALSE(disk->WasAsked(12'345));
}

TEST_F(OverlappedFileTest, WhatIsNotInThePageCacheIsReadByAThread) {
    disk->cacheError.store(EAGAIN, std::memory_order_relaxed);
    disk->Hang(100);
    const auto read = file_->MakeRead();
    EXPECT_EQ(file_->StartRead(read, 100, 2000), ReadState::Pending);
    EXPECT_EQ(read->Poll(), ReadState::Pending);
    disk->Release(100);
    EXPECT_EQ(Finish(*read), ReadState::Done);
    EXPECT_EQ(TextOf(*read), text_.substr(100, 2000));
}

TEST_F(OverlappedFileTest, AFileSystemWithoutCachedReadsIsAskedOnlyOncePerFile) {
    disk->cacheError.store(EOPNOTSUPP, std::memory_order_relaxed);
    const auto read = file_->MakeRead();
    for (u64 position = 0; position < 5; ++position) {
        EXPECT_EQ(file_->StartRead(read, position, 10), ReadState::Pending);
        EXPECT_EQ(Finish(*read), ReadState::Done);
        EXPECT_EQ(TextOf(*read), text_.substr(position, 10));
    }
    EXPECT_EQ(disk->cacheCalls.load(std::memory_order_relaxed), 1);
}

TEST_F(OverlappedFileTest, AHalfCachedReadIsCompletedByAThread) {
    disk->cacheBytes.store(5000, std::memory_order_relaxed);
    const auto read = file_->MakeRead();
    EXPECT_EQ(file_->StartRead(read, 1000, 8000), ReadState::Pending);
    EXPECT_EQ(Finish(*read), ReadState::Done);
    EXPECT_EQ(TextOf(*read), text_.substr(1000, 8000));
    EXPECT_TRUE(disk->WasAsked(5000)) << "only the rest is asked for";
    EXPECT_FALSE(disk->WasAsked(1000));
}

TEST_F(OverlappedFileTest, TheEndOfTheFileCutsAReadShort) {
    for (const int error : {0, EAGAIN}) {
        disk->cacheError.store(error, std::memory_order_relaxed);
        const auto read = file_->MakeRead();
        file_->StartRead(read, kSize - 100, 8192);
        EXPECT_EQ(Finish(*read), ReadState::Done);
        EXPECT_EQ(TextOf(*read), text_.substr(kSize - 100));
        file_->StartRead(read, kSize, 1);
        EXPECT_EQ(Finish(*read), ReadState::EndOfFile);
        file_->StartRead(read, kSize + 4096, 8192);
        EXPECT_EQ(Finish(*read), ReadState::EndOfFile);
        file_->StartRead(read, ~0ull, 8192);
        EXPECT_EQ(Finish(*read), ReadState::EndOfFile);
    }
}

// A kernel has been seen to answer 0 for bytes that were not cached.
TEST_F(OverlappedFileTest, AnEndInTheMiddleIsNotBelievedWithoutTheDisk) {
    static constexpr ReadCalls kZero{[](int, void*, std::size_t, off_t) -> ssize_t { return 0; }, FromDisk};
    SetReadCalls(&kZero);
    const auto read = file_->MakeRead();
    EXPECT_EQ(file_->StartRead(read, 500, 1000), ReadState::Pending);
    EXPECT_EQ(Finish(*read), ReadState::Done);
    EXPECT_EQ(TextOf(*read), text_.substr(500, 1000));
}

TEST_F(OverlappedFileTest, AFileThatIsCutOrRemovedWhileOpenJustEnds) {
    ASSERT_EQ(::truncate((folder_ / "A.raw").c_str(), 1000), 0);
    const auto read = file_->MakeRead();
    file_->StartRead(read, 500, 8192);
    EXPECT_EQ(Finish(*read), ReadState::Done);
    EXPECT_EQ(TextOf(*read), text_.substr(500, 500));
    file_->StartRead(read, 5000, 8192);
    EXPECT_EQ(Finish(*read), ReadState::EndOfFile);
    ASSERT_EQ(::unlink((folder_ / "A.raw").c_str()), 0);
    file_->StartRead(read, 0, 8192);
    EXPECT_EQ(Finish(*read), ReadState::Done);
    EXPECT_EQ(TextOf(*read), text_.substr(0, 1000));
}

TEST_F(OverlappedFileTest, AFailureOfTheDiskIsToldAndTheRecordGoesOn) {
    disk->cacheError.store(EIO, std::memory_order_relaxed);
    disk->diskError.store(EIO, std::memory_order_relaxed);
    const auto read = file_->MakeRead();
    file_->StartRead(read, 0, 10);
    EXPECT_EQ(Finish(*read), ReadState::Failed);
    EXPECT_EQ(read->Error(), static_cast<SystemError>(EIO));
    disk->cacheError.store(0, std::memory_order_relaxed);
    EXPECT_EQ(file_->StartRead(read, 0, 10), ReadState::Done);
    EXPECT_EQ(read->Error(), 0u);
    EXPECT_EQ(TextOf(*read), text_.substr(0, 10));
}

// The caller goes on with another file of the same device; the read that hangs keeps its memory and its file.
TEST_F(OverlappedFileTest, AReadThatHangsHoldsUpNobodyAndKeepsItsFile) {
    disk->cacheError.store(EAGAIN, std::memory_order_relaxed);
    disk->Hang(7);
    auto hung = file_->MakeRead();
    EXPECT_EQ(file_->StartRead(hung, 7, 100), ReadState::Pending);
    EXPECT_TRUE(Eventually([&] { return disk->WasAsked(7); }));
    const std::weak_ptr<IOverlappedFile> watched = file_;
    file_.reset();
    hung.reset();
    EXPECT_FALSE(watched.expired()) << "the thread still reads from it";

    WriteFileText(folder_ / "b.raw", "other");
    const auto other = Open(folder_ / "b.raw");
    const auto read = other->MakeRead();
    other->StartRead(read, 0, 100);
    EXPECT_EQ(Finish(*read), ReadState::Done);
    EXPECT_EQ(TextOf(*read), "other");

    disk->Release(7);
    EXPECT_TRUE(Eventually([&] { return watched.expired(); }));
}

// Method: all threads of the device hang; what comes then waits, and what is given up then is never begun.
TEST_F(OverlappedFileTest, AReadThatIsGivenUpBeforeItBeganIsNeverCarriedOut) {
    disk->cacheError.store(EAGAIN, std::memory_order_relaxed);
    std::vector<std::shared_ptr<OverlappedRead>> hung;
    for (off_t i = 0; i < ReaderGroup::kMostThreads; ++i) {
        disk->Hang(i);
        hung.push_back(file_->MakeRead());
        EXPECT_EQ(file_->StartRead(hung.back(), static_cast<u64>(i), 1), ReadState::Pending);
    }
    EXPECT_TRUE(Eventually([&] { return Readers().QueueLength() == 0; }));
    EXPECT_EQ(Readers().ThreadCount(), ReaderGroup::kMostThreads);

    auto dropped = file_->MakeRead();
    const auto kept = file_->MakeRead();
    EXPECT_EQ(file_->StartRead(dropped, 5000, 10), ReadState::Pending);
    EXPECT_EQ(file_->StartRead(kept, 6000, 10), ReadState::Pending);
    EXPECT_EQ(Readers().QueueLength(), 2u);
    EXPECT_EQ(Readers().ThreadCount(), ReaderGroup::kMostThreads);
    dropped.reset();
    EXPECT_EQ(Readers().QueueLength(), 1u);
    EXPECT_EQ(kept->Poll(), ReadState::Pending);

    disk->Release(0);
    EXPECT_EQ(Finish(*kept), ReadState::Done);
    EXPECT_EQ(TextOf(*kept), text_.substr(6000, 10));
    EXPECT_FALSE(disk->WasAsked(5000));
}

// A wait for the other end of the FIFO would be seen as the test's time limit.
TEST_F(OverlappedFileTest, WhatIsNoRegularFileIsRefusedWithoutBeingWaitedFor) {
    ASSERT_EQ(::mkfifo((folder_ / "fifo.raw").c_str(), 0666), 0);
    ASSERT_EQ(::mkdir((folder_ / "folder.raw").c_str(), 0777), 0);
    SystemError error = 0;
    EXPECT_EQ(OpenOverlappedFile(folder_ / "fifo.raw", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EINVAL));
    EXPECT_EQ(OpenOverlappedFile("/dev/zero", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EINVAL));
    EXPECT_EQ(OpenOverlappedFile(folder_ / "folder.raw", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EISDIR));
    EXPECT_EQ(OpenOverlappedFile(folder_ / "none.raw", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
}

// Goal: the road of many channels at once, for the thread sanitizer too. Method: four callers with files of their own
// read all of it by pieces, every third read given up on the way; each piece must be the file's.
TEST_F(OverlappedFileTest, ManyCallersReadSideBySide) {
    disk->cacheError.store(EAGAIN, std::memory_order_relaxed);
    std::atomic<int> wrong{0};
    std::vector<Thread> threads;
    for (u64 caller = 0; caller < 4; ++caller) {
        threads.emplace_back("reads", [&, caller] {
            const auto file = Open(folder_ / "a.raw");
            auto read = file->MakeRead();
            for (u64 round = 0; round < 60; ++round) {
                const u64 position = (round * 1601 + caller * 977) % (kSize - 4000);
                if (round % 3 == 0) {
                    file->StartRead(file->MakeRead(), position + 1, 4000);
                }
                file->StartRead(read, position, 4000);
                if (Finish(*read) != ReadState::Done || TextOf(*read) != text_.substr(position, 4000)) {
                    wrong.fetch_add(1, std::memory_order_relaxed);
                }
            }
        });
    }
    for (Thread& thread : threads) thread.Join();
    EXPECT_EQ(wrong.load(std::memory_order_relaxed), 0);
}

// The system's own calls, whatever this file system can.
TEST_F(OverlappedFileTest, TheSystemsOwnCallsBringTheFilesBytes) {
    SetReadCalls(nullptr);
    const auto read = file_->MakeRead();
    std::string all;
    for (u64 position = 0;; position += read->Bytes()) {
        file_->StartRead(read, position, 8192);
        if (Finish(*read) != ReadState::Done) break;
        all += TextOf(*read);
    }
    EXPECT_EQ(read->Poll(), ReadState::EndOfFile);
    EXPECT_EQ(all, text_);
}

// Method: a child, started afresh so that it has no threads of other tests, leaves by exit() with one read that hangs
// for ever and one thread that is idle.
TEST(OverlappedFileDeathTest, AHungReadDoesNotHoldUpTheEndOfTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto folder = std::make_unique<TempFolder>();
    WriteFileText(*folder / "a.raw", "text");
    const auto leaveWithAHungRead = [&folder] {
        static constexpr ReadCalls kCalls{[](int, void*, std::size_t, off_t) -> ssize_t {
                                              errno = EAGAIN;
                                              return -1;
                                          },
                                          [](int, void*, std::size_t, off_t position) -> ssize_t {
                                              while (position == 1) SleepMilliseconds(1000);
                                              return 0;
                                          }};
        SetReadCalls(&kCalls);
        SystemError error = 0;
        const auto file = OpenOverlappedFile(*folder / "a.raw", error);
        folder.reset();
        const auto hung = file->MakeRead();
        const auto ended = file->MakeRead();
        file->StartRead(hung, 1, 10);
        file->StartRead(ended, 2, 10);
        while (ended->Poll() == ReadState::Pending) SleepMilliseconds(1);
        std::exit(hung->Poll() == ReadState::Pending ? 0 : 1);
    };
    EXPECT_EXIT(leaveWithAHungRead(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Platform
