#include "Platform/Terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "Platform/linux/Descriptor.h"
#include "Platform/linux/QuestionSignals.h"

namespace Platform {
namespace {

int NumberOf(StandardStream stream) {
    switch (stream) {
        case StandardStream::Input:
            return STDIN_FILENO;
        case StandardStream::Output:
            return STDOUT_FILENO;
        case StandardStream::Error:
            break;
    }
    return STDERR_FILENO;
}

constexpr unsigned short kUsualRows = 24;

winsize TerminalSize() {
    for (const int fd : {STDERR_FILENO, STDOUT_FILENO}) {
        winsize size{};
        if (::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
            if (size.ws_row == 0) size.ws_row = kUsualRows;  // a line whose terminal told its width alone
            return size;
        }
    }
    return {kUsualRows, 80, 0, 0};
}

// Only as far as there is room when a signal has come: the terminal may have been halted.
void WriteAll(int fd, const QuestionSignals& signals, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR) || !signals.WaitToWrite(fd)) {
            return;
        }
    }
}

// The terminal shows nothing of what is typed while it lives.
class EchoOff {
public:
    explicit EchoOff(int fd) : fd_(fd), isTerminal_(::tcgetattr(fd, &before_) == 0) {
        if (!isTerminal_) return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        ::tcsetattr(fd_, TCSAFLUSH, &silent);
    }
    ~EchoOff() {
        if (isTerminal_) ::tcsetattr(fd_, TCSAFLUSH, &before_);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

    bool IsTerminal() const { return isTerminal_; }

private:
    const int fd_;
    termios before_{};
    const bool isTerminal_;
};

// False when the line has no end, or a signal has come before it.
bool ReadLine(int fd, const QuestionSignals& signals, std::string& line) {
    while (signals.WaitToRead(fd)) {
        char c = 0;
        const ssize_t count = ::read(fd, &c, 1);
        if (count == 1) {
            if (c == '\n') return true;
            line.push_back(c);
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        }
    }
    return false;
}

}  // namespace

bool IsTerminal(StandardStream stream) {
    return ::isatty(NumberOf(stream)) == 1;
}

u32 TerminalWidth() {
    return TerminalSize().ws_col;
}

u32 TerminalHeight() {
    return TerminalSize().ws_row;
}

bool ShowsColours(StandardStream stream) {
    const char* none = std::getenv("NO_COLOR");
    const char* name = std::getenv("TERM");
    return IsTerminal(stream) && (none == nullptr || *none == '\0') && name != nullptr && std::string(name) != "dumb";
}

bool ReadPassword(const std::string& prompt, std::string& password) {
    password.clear();
    // No call but poll() waits: what was there to read may have gone to another reader, as the shell does when this
    // process is in its background. It is a description of our own, so nobody else's reads change.
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (!terminal.IsOpen()) return false;
    for (;;) {
        const QuestionSignals signals;
        const EchoOff silent(terminal.Get());
        if (!silent.IsTerminal()) return false;
        WriteAll(terminal.Get(), signals, prompt);
        const bool complete = ReadLine(terminal.Get(), signals, password);
        WriteAll(terminal.Get(), signals, "\n");
        // Who comes back from a signal, as after a suspension, is asked again.
        if (complete || !signals.AreNoted()) return complete;
        password.clear();
    }
}

}  // namespace Platform
