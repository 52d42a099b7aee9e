// Writes JSON. Commas and escapes are its business, the right order of the calls is the caller's.
#pragma once

#include <string>
#include <string_view>

#include "Platform/Types.h"

namespace Orv {

// `text` in UTF-8, with U+FFFD in the place of each byte that belongs to no character.
std::string ValidUtf8(std::string_view text);

class JsonText {
public:
    JsonText& BeginObject() { return Open('{'); }
    JsonText& EndObject() { return Close('}'); }
    JsonText& BeginArray() { return Open('['); }
    JsonText& EndArray() { return Close(']'); }
    // The name of the member whose value comes next.
    JsonText& Key(std::string_view name);
    JsonText& Text(std::string_view text);
    JsonText& Number(u64 number) { return Plain(std::to_string(number)); }
    JsonText& Number(i64 number) { return Plain(std::to_string(number)); }
    // With `places` digits behind the point; 0 for what is no number.
    JsonText& Number(double number, int places);
    JsonText& Bool(bool value) { return Plain(value ? "true" : "false"); }
    JsonText& Null() { return Plain("null"); }

    const std::string& Get() const { return text_; }

private:
    JsonText& Open(char bracket);
    JsonText& Close(char bracket);
    JsonText& Plain(std::string_view value);
    void Separate();
    void Quote(std::string_view text);

    std::string text_;
    bool first_ = true;  // nothing stands before the next value in its array or object
};

// `number` with `places` digits behind the point, whatever the language of the process.
std::string FixedPoint(double number, int places);

}  // namespace Orv
