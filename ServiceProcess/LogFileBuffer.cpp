#include "ServiceProcess/LogFileBuffer.h"

#include <utility>

namespace Orv {

void LogFileBuffer::Open(std::unique_ptr<Platform::IWriteFile> file) {
    file_ = std::move(file);
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
    HandOver();
    return 0;
}

// A full disk must not silence the log for good, so a failed write is not passed on: the next line tries again.
void LogFileBuffer::HandOver() {
    if (!IsOpen()) return;
    if (pptr() != pbase()) file_->Write(pbase(), static_cast<u64>(pptr() - pbase()));
    setp(bytes_.data(), bytes_.data() + bytes_.size());
}

}  // namespace Orv
