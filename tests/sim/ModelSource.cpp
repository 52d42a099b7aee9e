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

void LiveSource::Begin() {
    ExpectLine(" Info|Start thread for pipe '" + path_ + "'");
    ExpectLine(" Info|Connecting media source '" + path_ + "'...");
    ExpectLine("Error|'" + path_ + "'. Initial connection failed. Continue Waiting...");
}

std::string LiveSource::Connected() const {
    return " Info|'" + path_ + (everMet_ ? "'. Media connection restored" : "'. Media connected");
}

void LiveSource::Serve() {
    served_ = true;
    told_ = false;
    mayBeUntold_ = !levels_.ShowsOfEngine(" Info");
}

void LiveSource::Meet() {
    if (!told_ && !mayBeUntold_ && missing_.empty()) missing_ = Connected();
    everMet_ = told_ = true;
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

void LiveSource::Vanish(bool met, u64 now) {
    served_ = false;
    written_ = 0;
    ring_.fill(0);
    if (!met) return;
    // Who waits for more sees the read fail that is under way; who has yet to take the last bytes, the next one.
    const bool reading = now != sentAt_;
    if (reading) ExpectLine("Error|read failed:" + path_ + " - ");
    ExpectLine(" Info|closing '" + path_ + "'");
    ExpectLine("Error|'" + path_ +
               (reading ? "'. Connection lost. syserror=" : "'. Connection lost. Waiting for media..."));
}

bool LiveSource::OnLine(const std::string& line, std::string& wanted) {
    wanted = "no line";
    if (lines_.empty()) {
        if (!served_ || told_) return false;
        wanted = Connected();
        told_ = everMet_ = true;
        return line == wanted;
    }
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
