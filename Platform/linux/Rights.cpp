#include "Platform/Rights.h"

#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <exception>
#include <fstream>
#include <sstream>

#include "Platform/Thread.h"
#include "Platform/linux/NativePath.h"

namespace Platform {
namespace {

constexpr std::size_t kUserBytes = 16384;
constexpr std::size_t kMostUserBytes = std::size_t{1} << 20;
constexpr int kFirstGroups = 64;

std::string ProcessPath(u64 process, const char* name) {
    return "/proc/" + std::to_string(process) + "/" + name;
}

// The user's name and own group. False when the system does not list the user.
bool FindUser(uid_t user, std::string& name, gid_t& group) {
    for (std::vector<char> buffer(kUserBytes); buffer.size() <= kMostUserBytes; buffer.resize(buffer.size() * 2)) {
        passwd entry{};
        passwd* found = nullptr;
        const int error = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) continue;
        if (found == nullptr) return false;
        name = entry.pw_name;
        group = entry.pw_gid;
        return true;
    }
    return false;
}

std::vector<u32> GroupsOf(const std::string& user, gid_t group) {
    int count = kFirstGroups;
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    if (::getgrouplist(user.c_str(), group, groups.data(), &count) < 0) {
        groups.resize(static_cast<std::size_t>(count));
        if (::getgrouplist(user.c_str(), group, groups.data(), &count) < 0) return {group};
    }
    return {groups.begin(), groups.begin() + count};
}

// The calling thread sees the files as that process does, from the same working directory by its name.
bool TakeView(u64 process) {
    if (process == 0) return false;
    char folder[PATH_MAX];
    const bool known = ::getcwd(folder, sizeof folder) != nullptr;
    // A root, and a working directory, of the thread's own.
    if (::unshare(CLONE_FS) != 0 || ::chroot(ProcessPath(process, "root").c_str()) != 0) return false;
    return (known && ::chdir(folder) == 0) || ::chdir("/") == 0;
}

// The C library's functions change all threads of the process; the system calls behind them the one that calls.
bool TakeRights(const Rights& rights) {
    const std::vector<gid_t> groups(rights.groups.begin(), rights.groups.end());
    return ::syscall(SYS_setgroups, groups.size(), groups.data()) == 0 &&
           ::syscall(SYS_setresgid, rights.group, rights.group, rights.group) == 0 &&
           ::syscall(SYS_setresuid, rights.user, rights.user, rights.user) == 0;
}

}  // namespace

bool RightsOfProcess(u64 process, Rights& rights) {
    std::ifstream file(ProcessPath(process, "status"));
    rights = {};
    bool hasUser = false;
    bool hasGroup = false;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string key;
        u32 real = 0;
        words >> key;
        if (key == "Uid:") hasUser = static_cast<bool>(words >> real >> rights.user);  // the second is what counts
        if (key == "Gid:") hasGroup = static_cast<bool>(words >> real >> rights.group);
        if (key != "Groups:") continue;
        for (u32 group = 0; words >> group;) rights.groups.push_back(group);
    }
    rights.process = process;
    return hasUser && hasGroup;
}

bool RightsOfOwner(const std::string& path, Rights& rights) {
    const std::string native = NativePath(path);
    struct stat info {};
    if (!CanBeNamed(native) || ::lstat(native.c_str(), &info) != 0) return false;
    rights = {};
    rights.user = info.st_uid;
    std::string name;
    gid_t group = info.st_gid;
    const bool listed = FindUser(info.st_uid, name, group);
    rights.group = group;
    rights.groups = listed ? GroupsOf(name, group) : std::vector<u32>{group};
    return true;
}

Lent RunWithRights(const Rights& rights, const std::function<void()>& work) {
    if (::geteuid() != 0) return Lent::Nothing;
    Lent lent = Lent::Nothing;
    std::exception_ptr failure;
    Thread thread("rights", [&] {
        const bool hasView = TakeView(rights.process);
        if (!TakeRights(rights)) return;
        lent = hasView ? Lent::RightsAndView : Lent::Rights;
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
    });
    thread.Join();
    if (failure) std::rethrow_exception(failure);
    return lent;
}

}  // namespace Platform
