// Somebody else's rights, lent to one piece of work: for a tool that root runs and that is to tell what a service may
// do, since root itself may do everything. Not on the simulated platform.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Platform/Types.h"

namespace Platform {

// The system's own numbers of a user and of groups.
struct Rights {
    u32 user = 0;
    u32 group = 0;
    std::vector<u32> groups;
    u64 process = 0;  // whose view of the files goes with them: its root and its mounts; 0: that of this process
};

// Those of a running process. False when there is none of that number, or when it may not be looked at.
bool RightsOfProcess(u64 process, Rights& rights);
// Those of the user that owns a path, with the groups that the system lists for that user. The path is taken by its
// exact spelling, a link by itself. False when it is not there. May wait for the disk and for the list of users.
bool RightsOfOwner(const std::string& path, Rights& rights);

enum class Lent : u8 {
    Nothing,  // the work was not run: only root can lend rights
    Rights,   // it was run with these rights, but the process's view of the files could not be had, or is not known
    RightsAndView,  // it was run with the rights and with the view
};

// Runs `work` on a thread of its own, which has these rights and this view in all that it does with files, and waits
// for its end. Other threads keep theirs. What `work` throws is thrown here; std::system_error when there is no thread.
Lent RunWithRights(const Rights& rights, const std::function<void()>& work);

}  // namespace Platform
