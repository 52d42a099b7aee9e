#include "Platform/Terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>

namespace Platform {
namespace {

int Descriptor(StandardStream stream) {
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

void WriteAll(int fd, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
        if (count <= 0) return;
        done += static_cast<std::size_t>(count);
    }
}

}  // namespace

bool IsTerminal(StandardStream stream) {
    return ::isatty(Descriptor(stream)) == 1;
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
    const int fd = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return false;
    termios before{};
    if (::tcgetattr(fd, &before) != 0) {
        ::close(fd);
        return false;
    }
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(fd, TCSAFLUSH, &silent);
    WriteAll(fd, prompt);
    bool complete = false;
    char c = 0;
    while (::read(fd, &c, 1) == 1) {
        if (c == '\n') {
            complete = true;
            break;
        }
        password.push_back(c);
    }
    WriteAll(fd, "\n");
    ::tcsetattr(fd, TCSAFLUSH, &before);
    ::close(fd);
    return complete;
}

}  // namespace Platform
