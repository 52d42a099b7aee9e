#include "AudioFeeder/JsonText.h"

#include <charconv>
#include <cmath>

namespace Orv {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Bytes of the character that begins at `index`; 0 when none does.
u64 CharacterLength(std::string_view text, u64 index) {
    const auto byte = [&](u64 at) { return at < text.size() ? static_cast<u8>(text[at]) : u8{0}; };
    const auto follows = [&](u64 at, u8 low = 0x80, u8 high = 0xBF) { return byte(at) >= low && byte(at) <= high; };
    const u8 first = byte(index);
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return follows(index + 1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        // No overlong forms, no surrogates.
        const u8 low = first == 0xE0 ? 0xA0 : 0x80;
        const u8 high = first == 0xED ? 0x9F : 0xBF;
        return follows(index + 1, low, high) && follows(index + 2) ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const u8 low = first == 0xF0 ? 0x90 : 0x80;
        const u8 high = first == 0xF4 ? 0x8F : 0xBF;
        return follows(index + 1, low, high) && follows(index + 2) && follows(index + 3) ? 4 : 0;
    }
    return 0;
}

}  // namespace

std::string ValidUtf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    for (u64 index = 0; index < text.size();) {
        const u64 length = CharacterLength(text, index);
        valid += length != 0 ? text.substr(index, length) : kReplacement;
        index += length != 0 ? length : 1;
    }
    return valid;
}

std::string FixedPoint(double number, int places) {
    if (!std::isfinite(number)) number = 0;
    char digits[400];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed, places);
    return error == std::errc() ? std::string(digits, end) : "0";
}

void JsonText::Separate() {
    if (!first_) text_ += ',';
    first_ = false;
}

JsonText& JsonText::Open(char bracket) {
    Separate();
    text_ += bracket;
    first_ = true;
    return *this;
}

JsonText& JsonText::Close(char bracket) {
    text_ += bracket;
    first_ = false;
    return *this;
}

JsonText& JsonText::Plain(std::string_view value) {
    Separate();
    text_ += value;
    return *this;
}

JsonText& JsonText::Key(std::string_view name) {
    Separate();
    Quote(name);
    text_ += ':';
    first_ = true;  // no comma between a name and its value
    return *this;
}

JsonText& JsonText::Text(std::string_view text) {
    Separate();
    Quote(text);
    return *this;
}

JsonText& JsonText::Number(double number, int places) {
    return Plain(FixedPoint(number, places));
}

void JsonText::Quote(std::string_view text) {
    constexpr char kHex[] = "0123456789abcdef";
    text_ += '"';
    for (const char c : ValidUtf8(text)) {
        if (c == '"' || c == '\\') {
            text_ += '\\';
            text_ += c;
        } else if (static_cast<u8>(c) < 0x20 || c == 0x7F) {
            text_ += "\\u00";
            text_ += kHex[static_cast<u8>(c) >> 4];
            text_ += kHex[static_cast<u8>(c) & 15];
        } else {
            text_ += c;
        }
    }
    text_ += '"';
}

}  // namespace Orv
