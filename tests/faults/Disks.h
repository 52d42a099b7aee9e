// Disks of a test's own: a small one that fills up, and one that hangs or fails when it is told to. Only root can mount
// them; nobody but the test and the processes that it starts sees them, and they are gone with the test.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace OrvTest {

// Why no disk can be mounted here, or none that hangs; empty when it can.
std::string WhyNoDisks();
std::string WhyNoFuseDisks();

// A disk in memory on `folder`, for the user that the processes run as. To go before the folder does.
class SmallDisk {
public:
    SmallDisk(std::string folder, unsigned kilobytes);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    // Takes all room but `leave` pages of 4096 bytes, and gives it back.
    void Fill(unsigned leave = 0);
    void MakeRoom();
    std::uint64_t FreeBytes() const;

private:
    const std::string folder_;
    int filler_ = -1;  // a file without a name
};

// One flat folder of files that a thread of the test serves to the kernel. What is held of a file does not return until
// it is let go, just as on a disk that hangs; reads can fail from a position on. To go before the folder does; what is
// held then fails.
class FuseDisk {
public:
    enum Work : unsigned { None = 0, Opens = 1, Reads = 2, Writes = 4 };

    explicit FuseDisk(std::string folder);
    ~FuseDisk();
    FuseDisk(const FuseDisk&) = delete;
    FuseDisk& operator=(const FuseDisk&) = delete;

    void Add(const std::string& name, const std::vector<std::uint8_t>& bytes);
    // All its files, one behind the other in the order of their making.
    std::string Text() const;
    // Holds that work, or with None nothing, of the files whose names begin so.
    void Hold(const std::string& prefix, unsigned work);
    // How many calls are being held.
    std::size_t Held() const;
    // Reads that touch `position` or what is behind it fail with EIO.
    void FailReads(const std::string& name, std::uint64_t position);

private:
    struct File {
        std::string name;
        std::vector<std::uint8_t> bytes;
        std::uint64_t failsFrom = UINT64_MAX;
    };
    using Request = std::vector<char>;

    void Serve();
    void LetGo();
    void Handle(const Request& request);
    bool MustWait(const Request& request) const;
    void Reply(const Request& request, int error, const std::string& body = "") const;
    std::string Entry(std::uint64_t node) const;
    std::string Attributes(std::uint64_t node) const;
    std::string Listing(const char* body) const;
    void Create(const Request& request);
    void Read(const Request& request);
    void Write(const Request& request);
    void SetSize(const Request& request);
    std::uint64_t NodeOf(const std::string& name) const;

    const std::string folder_;
    int device_ = -1;
    int wake_ = -1;
    mutable std::mutex mutex_;
    std::deque<File> files_;  // its place + 2 is a file's node
    std::vector<std::pair<std::string, unsigned>> holds_;
    std::vector<Request> held_;
    bool stop_ = false;
    std::thread server_;
};

}  // namespace OrvTest
