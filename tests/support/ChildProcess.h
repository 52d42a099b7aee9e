// A piece of a test in a process of its own, which may end as it likes.
#pragma once

#include <functional>
#include <string>

namespace OrvTest {

struct ChildEnd {
    bool hung = false;  // it had to be ended
    int exitCode = -1;  // -1 when a signal ended it
    int signal = 0;
    std::string said;  // on standard output and error

    // All of it, for a message.
    std::string Describe() const;
};

// Forks; the child calls `body` and ends with exit code 0, 1 when an expectation has failed. Only while this process
// has one thread, and no failed expectation. The child has a minute of processor time.
ChildEnd InChild(const std::function<void()>& body);

}  // namespace OrvTest
