#include "bench/orv-load/Listeners.h"

#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace OrvLoad {
namespace {

constexpr u64 kDriftBlocks = 5 * kSecond / kBlockTime;
constexpr i64 kGrace = 2 * kSecond;
// What a later client may seem early by without having been placed a block too high: the grid is not found yet.
constexpr i64 kGuessTolerance = kBlockTime / 4;
// After its first block a paced client waits so long that two more blocks wait for it.
constexpr i64 kPacedDelay = 3 * kBlockTime;
constexpr i64 kPauseLook = 2 * kMillisecond;
constexpr int kEventsAtOnce = 1024;
constexpr u64 kConnectsAtOnce = 256;
constexpr std::size_t kReadBytes = 65536;

i64 ThreadTime(pthread_t thread) {
    clockid_t clock{};
    timespec time{};
    if (::pthread_getcpuclockid(thread, &clock) != 0 || ::clock_gettime(clock, &time) != 0) return 0;
    return time.tv_sec * kSecond + time.tv_nsec;
}

bool IsSilent(const u8* block) {
    return block[0] == 0 && std::memcmp(block, block + 1, kBlockBytes - 1) == 0;
}

}  // namespace

Listeners::Listeners(i64 period) : period_(period), epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
    if (epoll_ < 0) Fail("No epoll");
    // Signals are the main thread's.
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { Run(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Listeners::~Listeners() {
    stop_ = true;
    thread_.join();
    DetachAll();
    ::close(epoll_);
}

u32 Listeners::Attach(std::vector<Seat> seats) {
    const std::lock_guard guard(mutex_);
    const auto first = static_cast<u32>(clients_.size());
    for (Seat& seat : seats) {
        if (seat.feed >= grids_.size()) grids_.resize(seat.feed + 1);
        pending_.push_back(static_cast<u32>(clients_.size()));
        Client& client = clients_.emplace_back();
        client.seat = std::move(seat);
        client.windows.resize(windows_);
        ++withoutFirstBlock_;
    }
    return first;
}

bool Listeners::WaitForFirstBlocks(i64 nanoseconds) {
    return WaitFor(nanoseconds, [this] {
        const std::lock_guard guard(mutex_);
        return withoutFirstBlock_ == 0;
    });
}

void Listeners::BeginWindow() {
    const std::lock_guard guard(mutex_);
    heard_ = Heard();
    endedBefore_ = ended_;
    for (Client& client : clients_) client.windows.push_back(client.afterFirst.size());
    ++windows_;
    ownTimeBegin_ = ThreadTime(thread_.native_handle());
    windowBegin_ = Now();
    windowEnd_ = kNever;
    inWindow_ = true;
}

void Listeners::EndWindow() {
    const std::lock_guard guard(mutex_);
    if (!inWindow_ || windowEnd_ != kNever) return;
    windowEnd_ = Now();
    heard_.length = windowEnd_ - windowBegin_;
    heard_.ownTime = ThreadTime(thread_.native_handle()) - ownTimeBegin_;
    heard_.ended = ended_ - endedBefore_;
    for (const Client& client : clients_) heard_.clients += client.descriptor >= 0 ? 1 : 0;
}

Heard Listeners::Collect() {
    EndWindow();
    WaitFor(kGrace, [this] {
        const std::lock_guard guard(mutex_);
        return Missing() == 0;
    });
    const std::lock_guard guard(mutex_);
    inWindow_ = false;
    heard_.missing = Missing();
    for (const Client& client : clients_) Judge(client);
    return heard_;
}

// Of clients that saw the end, what they had not got is not missing: that they saw it is told.
u64 Listeners::Missing() const {
    u64 missing = 0;
    for (const Client& client : clients_) missing += MissingOf(client, windowEnd_);
    return missing;
}

u64 Listeners::MissingOf(const Client& client, i64 time) const {
    if (client.descriptor < 0 || client.firstBlockAt == 0) return 0;
    const u64 due = grids_[client.seat.feed].BlocksBefore(time);
    const u64 there = client.offset + client.bytes / kBlockBytes;
    return due > there ? due - there : 0;
}

bool Listeners::HaveAllBefore(i64 time) const {
    const std::lock_guard guard(mutex_);
    return std::all_of(clients_.begin(), clients_.end(),
                       [&](const Client& client) { return MissingOf(client, time) == 0; });
}

i64 Listeners::Lateness(const Client& client, u64 sample) const {
    return std::max<i64>(0, client.afterFirst[sample] * kMicrosecond + grids_[client.seat.feed].Moved());
}

Histogram Listeners::LatenessIn(u32 window) const {
    const std::lock_guard guard(mutex_);
    Histogram histogram;
    for (const Client& client : clients_) {
        const u64 end = window + 1 < windows_ ? client.windows[window + 1] : client.afterFirst.size();
        for (u64 i = client.windows[window]; i < end; ++i) histogram.Add(Lateness(client, i));
    }
    return histogram;
}

void Listeners::Judge(const Client& client) {
    if (client.firstBlockAt == 0) return;
    const Grid& grid = grids_[client.seat.feed];
    const u64 end = client.afterFirst.size();
    i64 least = kNever;
    for (u64 i = client.windows.back(); i < end; ++i) {
        const i64 lateness = Lateness(client, i);
        heard_.lateness.Add(lateness);
        heard_.lateBlocks += lateness > kBlockTime ? 1 : 0;
        if (end - i <= kDriftBlocks) least = std::min(least, lateness);
        ++heard_.blocks;
    }
    heard_.earliest = std::max(heard_.earliest, grid.Early());
    heard_.drift = std::max(heard_.drift, grid.Early() / kBlockTime);
    if (client.descriptor < 0) return;
    heard_.torn += client.bytes % kBlockBytes != 0 ? 1 : 0;
    if (least != kNever) heard_.drift = std::max(heard_.drift, least / kBlockTime);
}

u64 Listeners::BlocksOf(u32 client) const {
    const std::lock_guard guard(mutex_);
    return clients_[client].bytes / kBlockBytes;
}

i64 Listeners::FirstBlockAt(u32 client) const {
    const std::lock_guard guard(mutex_);
    return clients_[client].firstBlockAt;
}

i64 Listeners::EndedAt(u32 client) const {
    const std::lock_guard guard(mutex_);
    return clients_[client].endedAt;
}

u64 Listeners::Ended() const {
    const std::lock_guard guard(mutex_);
    return ended_;
}

u64 Listeners::Count() const {
    const std::lock_guard guard(mutex_);
    return clients_.size();
}

void Listeners::DetachAll() {
    const std::lock_guard guard(mutex_);
    for (Client& client : clients_) {
        if (client.descriptor >= 0) ::close(client.descriptor);
    }
    clients_.clear();
    pending_.clear();
    paced_.clear();
    grids_.clear();
    withoutFirstBlock_ = ended_ = windows_ = 0;
}

void Listeners::Run() {
    ::pthread_setname_np(::pthread_self(), "listeners");
    const timespec period{0, period_};
    while (!stop_) {
        if (period_ > 0) ::nanosleep(&period, nullptr);
        if (paused_) {
            SleepFor(kPauseLook);
        } else {
            ReadReady();
            ReadPaced();
        }
        const std::lock_guard guard(mutex_);
        ConnectPending();
    }
}

void Listeners::ConnectPending() {
    // Not all in one go: blocks of those that are attached wait meanwhile.
    const u64 count = std::min<u64>(kConnectsAtOnce, pending_.size());
    std::vector<u32> again;
    for (u64 i = 0; i < count; ++i) {
        if (!Connect(pending_[i])) again.push_back(pending_[i]);
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(count));
    pending_.insert(pending_.end(), again.begin(), again.end());
}

bool Listeners::Connect(u32 index) {
    Client& client = clients_[index];
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (client.seat.path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, client.seat.path.c_str(), client.seat.path.size());
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return false;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = index;
    client.askedAt = Now();
    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        (!client.seat.paced && ::epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)) {
        ::close(descriptor);
        return false;
    }
    client.descriptor = descriptor;
    if (client.seat.paced) paced_.push_back(index);
    return true;
}

void Listeners::ReadReady() {
    epoll_event events[kEventsAtOnce];
    for (;;) {
        const int count = ::epoll_wait(epoll_, events, kEventsAtOnce, period_ > 0 ? 0 : 20);
        const std::lock_guard guard(mutex_);
        for (int i = 0; i < count; ++i) {
            if (events[i].data.u32 < clients_.size()) Receive(clients_[events[i].data.u32], kReadBytes);
        }
        if (count < kEventsAtOnce) return;
    }
}

void Listeners::ReadPaced() {
    const std::lock_guard guard(mutex_);
    const i64 now = Now();
    for (const u32 index : paced_) {
        Client& client = clients_[index];
        if ((client.nextRead > now && !hurried_) || !Receive(client, kBlockBytes - client.bytes % kBlockBytes))
            continue;
        if (client.bytes % kBlockBytes == 0) {
            client.nextRead = client.nextRead != 0 ? client.nextRead + kBlockTime : client.firstBlockAt + kPacedDelay;
        }
    }
}

bool Listeners::Receive(Client& client, u64 most) {
    static u8 buffer[kReadBytes];  // one thread's
    if (client.descriptor < 0) return false;
    const ssize_t size = ::recv(client.descriptor, buffer, most, MSG_DONTWAIT);
    const i64 arrival = Now();  // read behind it, so that no block seems to come before it was sent
    if (size > 0) {
        TakeBlocks(client, buffer, static_cast<u64>(size), arrival);
    } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
        End(client);
    }
    return size > 0;
}

void Listeners::TakeBlocks(Client& client, const u8* data, u64 size, i64 arrival) {
    const u64 phase = client.bytes % kBlockBytes;
    const u64 firstBlock = client.bytes / kBlockBytes;
    client.bytes += size;
    const u64 endBlock = client.bytes / kBlockBytes;
    if (firstBlock == 0 && endBlock > 0) TakePlace(client, arrival);
    if (client.seat.tap) Feed(client, data, size, arrival);
    for (u64 block = firstBlock; block < endBlock; ++block) {
        if (!Account(client, block, arrival) || phase != 0) continue;
        heard_.silentBlocks += IsSilent(data + (block - firstBlock) * kBlockBytes) ? 1 : 0;
    }
}

void Listeners::TakePlace(Client& client, i64 arrival) {
    client.firstBlockAt = arrival;
    --withoutFirstBlock_;
    Grid& grid = GridOf(client);
    client.leads = !grid.HasBegun();
    if (client.leads) {
        grid.Begin(client.askedAt, arrival);
    } else {
        // It begins with a block that is due about now. Which one shows by the next ones: none is early.
        client.offset = grid.BlocksBefore(arrival + kGuessTolerance) - 1;
    }
}

bool Listeners::Account(Client& client, u64 block, i64 arrival) {
    Grid& grid = GridOf(client);
    if (client.leads) {
        grid.Hold(block, arrival);
    } else if (client.offset > 0 && arrival < grid.DueAt(client.offset + block) - kGuessTolerance) {
        --client.offset;
    }
    const u64 ofFeed = client.offset + block;
    if (!inWindow_ || grid.DueAt(ofFeed) >= windowEnd_) return false;
    client.afterFirst.push_back(static_cast<i32>(grid.AfterFirst(ofFeed, arrival) / kMicrosecond));
    return true;
}

void Listeners::Feed(Client& client, const u8* data, u64 size, i64 arrival) const {
    u64 block = (client.bytes - size) / kBlockBytes;
    client.part.insert(client.part.end(), data, data + size);
    u64 at = 0;
    for (; at + kBlockBytes <= client.part.size(); at += kBlockBytes) {
        client.seat.tap(block++, client.part.data() + at, arrival);
    }
    client.part.erase(client.part.begin(), client.part.begin() + static_cast<std::ptrdiff_t>(at));
}

void Listeners::End(Client& client) {
    ::close(client.descriptor);
    client.descriptor = -1;
    client.endedAt = Now();
    ++ended_;
}

}  // namespace OrvLoad
