#include "ServiceProcess/LogFileBuffer.h"

#include <utility>

namespace Orv {

void LogFileBuffer::Open(std::unique_ptr<Platform::IWriteFile> file) {
    file_ = std::move(file);
    lineStart_ = 0;
    lost_ = false;
    setp(bytes_.data(), bytes_.data() + bytes_.size());
}

void LogFileBuffer::Close() {
    HandOver();
    file_.reset();
    setp(nullptr, nullptr);
}

u64 LogFileBuffer::Position() const {
    return file_->Position() + static_cast<u64>(pptr() - pbase());
}

LogFileBuffer::int_type LogFileBuffer::overflow(int_type character) {
    if (!IsOpen()) return traits_type::eof();
    HandOver();
    if (!traits_type::eq_int_type(character, traits_type::eof())) sputc(traits_type::to_char_type(character));
    return traits_type::not_eof(character);
}

int LogFileBuffer::sync() {
    if (!IsOpen()) return 0;
    HandOver();
    lineStart_ = file_->Position();
    return std::exchange(lost_, false) ? -1 : 0;
}

void LogFileBuffer::HandOver() {
    if (!IsOpen()) return;
    const u64 size = static_cast<u64>(pptr() - pbase());
    if (size != 0 && !lost_ && !file_->Write(pbase(), size)) {
        file_->TakeBack(lineStart_);
        lost_ = true;
    }
    setp(bytes_.data(), bytes_.data() + bytes_.size());
}

}  // namespace Orv
