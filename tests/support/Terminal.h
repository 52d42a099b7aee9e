// A terminal of a test's own, with a program on it that can be typed to. Tests only: nothing that is shipped may
// include this.
#pragma once

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Process.h"

namespace OrvTest {

class Terminal {
public:
    Terminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
        if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) throw std::runtime_error("no terminal");
        path_ = ::ptsname(master_);
        // Kept open, so that what is on the screen stays readable behind a program's end.
        line_ = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (line_ < 0) throw std::runtime_error("no terminal");
    }
    ~Terminal() {
        ::close(line_);
        ::close(master_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Starts a program that has all three streams on this terminal and is its session's leader. It ignores no signal,
    // whatever the test ignores: a shell lets what it starts in the background ignore Ctrl-C.
    Process Start(std::vector<std::string> command) const {
        command.insert(command.begin(), {"/usr/bin/env", "--default-signal", "/usr/bin/setsid", "--ctty"});
        ProcessOptions options;
        options.command = std::move(command);
        options.inputFile = options.outputFile = options.errorFile = path_;
        return Process(options);
    }

    // As on its keyboard: "\x03" is Ctrl-C.
    void Type(const std::string& keys) const {
        if (::write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
            throw std::runtime_error("cannot type");
    }
    // All that has been shown on it.
    const std::string& Shown() {
        char bytes[4096];
        for (ssize_t count; (count = ::read(master_, bytes, sizeof bytes)) > 0;) {
            shown_.append(bytes, static_cast<std::size_t>(count));
        }
        return shown_;
    }
    // Whether it shows what is typed.
    bool Echoes() const {
        termios state{};
        if (::tcgetattr(line_, &state) != 0) throw std::runtime_error("no state of the terminal");
        return (state.c_lflag & ECHO) != 0;
    }

private:
    int master_ = -1;
    int line_ = -1;
    std::string path_;
    std::string shown_;
};

}  // namespace OrvTest
