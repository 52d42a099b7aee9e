// Few descriptors for a part of a test. Tests only: nothing that is shipped may include this.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

namespace OrvTest {

// While it lives, this process may have so many more files open, and no more. The limit is one of their numbers, and
// whoever started the test may have left high ones open: so the free ones are counted, and not the others.
class SpareFiles {
public:
    explicit SpareFiles(unsigned count) {
        std::vector<int> taken;
        do {
            taken.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        } while (taken.back() >= 0 && taken.size() <= count);
        for (const int each : taken) ::close(each);
        if (taken.back() < 0 || ::getrlimit(RLIMIT_NOFILE, &before_) != 0) throw std::runtime_error("no descriptors");
        const rlimit few{static_cast<rlim_t>(taken.back()), before_.rlim_max};
        if (::setrlimit(RLIMIT_NOFILE, &few) != 0) throw std::runtime_error("no limit of descriptors");
    }
    ~SpareFiles() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    SpareFiles(const SpareFiles&) = delete;
    SpareFiles& operator=(const SpareFiles&) = delete;

private:
    rlimit before_{};
};

}  // namespace OrvTest
