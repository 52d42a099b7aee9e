#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "tests/faults/Disks.h"

namespace OrvTest {
namespace {

// Once for the process, before it has threads.
bool OwnMounts() {
    static const bool own =
        ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return own;
}

}  // namespace

std::string WhyNoDisks() {
    if (::geteuid() != 0) return "a disk of the test's own can be mounted by root only";
    if (!OwnMounts()) return std::string("this machine gives no mounts of one's own: ") + std::strerror(errno);
    return "";
}

SmallDisk::SmallDisk(std::string folder, unsigned kilobytes) : folder_(std::move(folder)) {
    const std::string options = "uid=65534,gid=65534,mode=0755,size=" + std::to_string(kilobytes) + "k";
    if (::mount("tmpfs", folder_.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        throw std::runtime_error("cannot mount " + folder_ + ": " + std::strerror(errno));
    }
}

SmallDisk::~SmallDisk() {
    MakeRoom();
    ::umount2(folder_.c_str(), MNT_DETACH);
}

std::uint64_t SmallDisk::FreeBytes() const {
    struct statvfs info {};
    if (::statvfs(folder_.c_str(), &info) != 0) throw std::runtime_error("cannot look at " + folder_);
    return info.f_bavail * info.f_bsize;
}

void SmallDisk::Fill(unsigned leave) {
    if (filler_ < 0) filler_ = ::open(folder_.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    const std::vector<char> page(4096, 'x');
    while (FreeBytes() > leave * page.size() && ::write(filler_, page.data(), page.size()) > 0) {
    }
}

void SmallDisk::MakeRoom() {
    if (filler_ >= 0) ::close(std::exchange(filler_, -1));
}

}  // namespace OrvTest
