// Commands as another user, for tests that are root: root's rights prove nothing.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace OrvTest {

inline constexpr uid_t Nobody = 65534;

// The command as that user, with a group of the same number and no others. Its program must be where that user can
// reach it. Only root may run it. Ends with the thread that starts it.
inline std::vector<std::string> AsUser(uid_t user, const std::vector<std::string>& command) {
    const std::string id = std::to_string(user);
    std::vector<std::string> whole{
        "/usr/bin/setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "--pdeathsig", "KILL", "--"};
    whole.insert(whole.end(), command.begin(), command.end());
    return whole;
}

}  // namespace OrvTest
