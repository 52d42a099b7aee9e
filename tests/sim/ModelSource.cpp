#include "tests/sim/ModelSource.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace OrvSim {

namespace {

constexpr u64 kLongestLag = 16384;
constexpr u64 kRejoinLag = 8192;

}  // namespace

std::string PipePathOf(const std::string& content) {
    if (content.starts_with(kPipeRoot)) return content;
    std::string lower;
    for (const char letter : content) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    if (lower.size() <= 5 || !lower.ends_with(".pipe")) return {};
    const std::size_t slash = lower.find_last_of('/');
    const std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
    return kPipeRoot + lower.substr(begin, lower.size() - 5 - begin);
}

void LiveSource::ExpectLine(const std::string& line) {
    if (levels_.ShowsOfEngine(line)) lines_.push_back(line);
}

void LiveSource::Begin(u64 now) {
    tryDue_ = now;
    ExpectLine(" Info|Start thread for pipe '" + path_ + "'");
    ExpectLine(" Info|Connecting media source '" + path_ + "'...");
    ExpectLine("Error|'" + path_ + "'. Initial connection failed. Continue Waiting...");
}

void LiveSource::Serve() {
    served_ = true;
}

// It connects, and where that fails it waits for a place at once; the wait is a try as well, whose place it takes. When
// that fails too, whatever the error is, it begins again 100 ms later.
bool LiveSource::OnTry(bool connected, u64 now, std::string& wrong) {
    wrong = connected_ ? "a try while it is connected"
                       : "a try " + std::to_string(static_cast<i64>(now - tryDue_)) + " ns late";
    if (connected_ || now != tryDue_) return false;
    wrong = connected ? "a connection with nobody" : "no connection, though it is served";
    if (connected != (served_ && refusals_ == 0)) return false;
    if (connected) {
        if (waiting_) ExpectLine("Trace|'" + path_ + "'. pipe instance available.");
        ExpectLine(" Info|'" + path_ + (everConnected_ ? "'. Media connection restored" : "'. Media connected"));
        connected_ = everConnected_ = true;
        waiting_ = false;
        return true;
    }
    if (refusals_ != 0) --refusals_;
    if (waiting_) tryDue_ = now + kRetry;
    waiting_ = !waiting_;
    return true;
}

void LiveSource::Send(const u8* bytes, u64 count, u64 now) {
    sentAt_ = now;
    while (count != 0) {
        const u64 at = written_ % kRing;
        const u64 piece = std::min(count, kRing - at);
        std::memcpy(ring_.data() + at, bytes, piece);
        written_ += piece;
        bytes += piece;
        count -= piece;
    }
}

void LiveSource::Copy(u64 place, u8* to, u32 bytes) const {
    const u64 at = place % kRing;
    const u64 first = std::min<u64>(bytes, kRing - at);
    std::memcpy(to, ring_.data() + at, first);
    std::memcpy(to + first, ring_.data(), bytes - first);
}

void LiveSource::Vanish(u64 now) {
    served_ = false;
    written_ = 0;
    ring_.fill(0);
    if (!connected_) return;
    // It is tried again at once.
    connected_ = waiting_ = false;
    tryDue_ = now;
    // Who waits for more sees the read fail that is under way; who has yet to take the last bytes, the next one.
    const bool reading = now != sentAt_;
    if (reading) ExpectLine("Error|read failed:" + path_ + " - ");
    ExpectLine(" Info|closing '" + path_ + "'");
    ExpectLine("Error|'" + path_ +
               (reading ? "'. Connection lost. syserror=" : "'. Connection lost. Waiting for media..."));
}

bool LiveSource::OnLine(const std::string& line, std::string& wanted) {
    wanted = "no line";
    if (lines_.empty()) return false;
    wanted = lines_.front();
    lines_.pop_front();
    return wanted.starts_with("Error|") ? line.starts_with(wanted) : line == wanted;
}

bool LiveReader::Next(u8* frame, u32 bytes) {
    frame_ = {};
    const u64 head = source_.Head();
    if (head - position_ > kLongestLag) {
        position_ = head - kRejoinLag;
    } else if (head - position_ < bytes) {
        std::memset(frame, 0, bytes);
        return false;
    }
    source_.Copy(position_, frame, bytes);
    if (position_ % LiveSource::kRing + bytes <= LiveSource::kRing) frame_ = {&source_, position_};
    position_ += bytes;
    return true;
}

}  // namespace OrvSim
