// The signals that come while a question stands on the terminal. Inside Platform/linux only.
#pragma once

#include <array>
#include <csignal>

namespace Platform {

// While it lives, a request to end or suspend the process (SIGINT of Ctrl-C, SIGQUIT of Ctrl-\, SIGTSTP of Ctrl-Z,
// SIGHUP of a hang-up, SIGTERM) is only noted, even where PrepareProcess() keeps it for others; its destructor lets it
// do what it would have done. So what is behind it in its scope, as the terminal's echo, is put back before. One at a
// time.
class QuestionSignals {
public:
    QuestionSignals();
    ~QuestionSignals();
    QuestionSignals(const QuestionSignals&) = delete;
    QuestionSignals& operator=(const QuestionSignals&) = delete;

    // Waits until there is something to read, or room to write; another process may be quicker, so `fd` is one that
    // does not block. False when a signal has come.
    bool WaitToRead(int fd) const;
    bool WaitToWrite(int fd) const;
    bool AreNoted() const;

private:
    bool WaitFor(int fd, short events) const;

    static constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

    std::array<struct sigaction, kSignals.size()> actionsBefore_{};
    sigset_t maskBefore_{};
};

}  // namespace Platform
