// Names that nobody means well with, from a seed. Tests only.
#pragma once

#include <random>
#include <string>
#include <utility>
#include <vector>

namespace OrvTest {

class HostileValues {
public:
    HostileValues(unsigned seed, std::string scratch) : random_(seed), scratch_(std::move(scratch)) {}

    // With `lineFeeds` they may hold what ends a line of a log.
    std::string Next(bool lineFeeds) {
        ++given_;
        std::string value;
        switch (Below(10)) {
            case 0:  // as long as a text in a row may be, or a byte longer
                value = std::string(4096 + Below(2), static_cast<char>('a' + Below(26)));
                break;
            case 1:
                while (value.size() < 4090) value += "../";
                break;
            case 2:  // any bytes
                for (std::size_t i = Below(60) + 1; i > 0; --i) value += static_cast<char>(1 + Below(255));
                break;
            default:
                for (std::size_t i = Below(4) + 1; i > 0; --i) value += Piece();
        }
        if (!lineFeeds) std::erase_if(value, [](char c) { return c == '\n' || c == '\r'; });
        return value;
    }
    int Given() const { return given_; }

private:
    std::size_t Below(std::size_t bound) { return random_() % bound; }
    std::string Piece() {
        const std::vector<std::string> pieces = {"../",
                                                 "../../../",
                                                 "..\\..\\",
                                                 "/",
                                                 "\\",
                                                 ".",
                                                 "..",
                                                 "",
                                                 " ",
                                                 "a",
                                                 "A",
                                                 "x/",
                                                 "./",
                                                 "~",
                                                 "~root/",
                                                 "/etc/passwd",
                                                 "/etc/cron.d/x",
                                                 "/tmp/hostile",
                                                 "/dev/shm/hostile",
                                                 "/proc/self/mem",
                                                 "/proc/self/fd/1",
                                                 "/proc/1/environ",
                                                 "/dev/zero",
                                                 "/dev/random",
                                                 "/dev/stdin",
                                                 scratch_ + "/outside/kept.wav",
                                                 scratch_ + "/outside/",
                                                 scratch_ + "/outside/zero.raw",
                                                 scratch_ + "/outside/fifo.wav",
                                                 "link/",
                                                 "link/kept.wav",
                                                 "outside.wav",
                                                 "fifo.wav",
                                                 "zero.raw",
                                                 "loop/",
                                                 "%s",
                                                 "%n%n%n%n",
                                                 "%999999d",
                                                 "%x%x%x",
                                                 "%2e%2e%2f",
                                                 "..%2f..%2f",
                                                 "%00",
                                                 "\\\\.\\pipe\\",
                                                 "\\\\.\\pipe\\..\\..\\x",
                                                 "\\\\host\\pipe\\x",
                                                 "x.pipe",
                                                 "../x.pipe",
                                                 "/x.pipe",
                                                 ".wav",
                                                 ".raw",
                                                 "http://h/x.wav",
                                                 "mms:x",
                                                 "#5#",
                                                 "##-1#",
                                                 "#99999999999#",
                                                 "defaultset:",
                                                 ":",
                                                 "\x01",
                                                 "\x1b[2J",
                                                 "\x7f",
                                                 "\t",
                                                 "\xff\xfe",
                                                 "\xc0\xaf",
                                                 "\xc2\x85",
                                                 "\xed\xa0\x80",
                                                 "\xe2\x80\xae",
                                                 "$(id)",
                                                 "`id`",
                                                 ";id",
                                                 "|id",
                                                 "'",
                                                 "\"",
                                                 "*",
                                                 "?",
                                                 "[a-z]",
                                                 "{a,b}",
                                                 "con",
                                                 "nul",
                                                 "aux.wav",
                                                 "\n13:05:09.123|00000001|Error|PipeManager(1): forged",
                                                 "\r\n",
                                                 "2024-01-01 00:00:00.000 Error forged\n"};
        return pieces[Below(pieces.size())];
    }

    std::mt19937 random_;
    const std::string scratch_;
    int given_ = 0;
};

}  // namespace OrvTest
