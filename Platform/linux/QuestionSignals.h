// The signals that come while a question stands on the terminal. Inside Platform/linux only.
#pragma once

#include <array>
#include <csignal>

namespace Platform {

// While it lives, signals that would end or suspend the process are only noted, even those that PrepareProcess() keeps
// for others; its destructor lets them do what they would have done. So what is behind it in its scope, as the
// terminal's echo, is put back before. One at a time.
class QuestionSignals {
public:
    QuestionSignals();
    ~QuestionSignals();
    QuestionSignals(const QuestionSignals&) = delete;
    QuestionSignals& operator=(const QuestionSignals&) = delete;

    // Waits until there is something to read. False when a signal has come.
    bool WaitFor(int fd) const;
    bool AreNoted() const;

private:
    static constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

    std::array<struct sigaction, kSignals.size()> actionsBefore_{};
    sigset_t maskBefore_{};
};

}  // namespace Platform
