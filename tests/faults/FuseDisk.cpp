// The few calls of the kernel's file system protocol that one flat folder needs. Nothing is cached in the kernel: each
// read and write of a process comes here.
#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "tests/faults/Disks.h"

namespace OrvTest {
namespace {

constexpr std::uint32_t Owner = 65534;
constexpr std::uint32_t MostWritten = 65536;

template <typename T>
std::string BytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// What follows the header, as the kernel's structure for that call.
template <typename T>
T BodyAs(const std::vector<char>& request) {
    T body{};
    std::memcpy(&body, request.data() + sizeof(fuse_in_header), sizeof body);
    return body;
}

fuse_in_header HeaderOf(const std::vector<char>& request) {
    fuse_in_header header{};
    std::memcpy(&header, request.data(), sizeof header);
    return header;
}

std::string NameBehind(const std::vector<char>& request, std::size_t offset) {
    return request.data() + sizeof(fuse_in_header) + offset;
}

}  // namespace

std::string WhyNoFuseDisks() {
    if (const std::string why = WhyNoDisks(); !why.empty()) return why;
    if (::access("/dev/fuse", R_OK | W_OK) != 0) return std::string("no /dev/fuse here: ") + std::strerror(errno);
    return "";
}

FuseDisk::FuseDisk(std::string folder) : folder_(std::move(folder)) {
    device_ = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    wake_ = ::eventfd(0, EFD_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(device_) + ",rootmode=40755,user_id=0,group_id=0,allow_other,default_permissions";
    if (::mount("disk", folder_.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        throw std::runtime_error("cannot mount " + folder_ + ": " + std::strerror(errno));
    }
    server_ = std::thread([this] { Serve(); });
}

FuseDisk::~FuseDisk() {
    {
        std::lock_guard guard(mutex_);
        stop_ = true;
    }
    LetGo();
    server_.join();
    ::umount2(folder_.c_str(), MNT_DETACH);
    ::close(device_);  // fails whatever still waits
    ::close(wake_);
}

void FuseDisk::Add(const std::string& name, const std::vector<std::uint8_t>& bytes) {
    std::lock_guard guard(mutex_);
    files_.push_back({name, bytes});
}

std::string FuseDisk::Text() const {
    std::lock_guard guard(mutex_);
    std::string text;
    for (const File& file : files_) text.append(file.bytes.begin(), file.bytes.end());
    return text;
}

void FuseDisk::Hold(const std::string& prefix, unsigned work) {
    {
        std::lock_guard guard(mutex_);
        std::erase_if(holds_, [&](const auto& hold) { return hold.first == prefix; });
        if (work != None) holds_.emplace_back(prefix, work);
    }
    LetGo();
}

std::size_t FuseDisk::Held() const {
    std::lock_guard guard(mutex_);
    return held_.size();
}

void FuseDisk::FailReads(const std::string& name, std::uint64_t position) {
    std::lock_guard guard(mutex_);
    for (File& file : files_) {
        if (file.name == name) file.failsFrom = position;
    }
}

void FuseDisk::LetGo() {
    const std::uint64_t one = 1;
    if (::write(wake_, &one, sizeof one) < 0) throw std::runtime_error("cannot wake the disk's thread");
}

void FuseDisk::Serve() {
    std::vector<char> buffer(MostWritten + 8192);
    for (;;) {
        pollfd wanted[] = {{device_, POLLIN, 0}, {wake_, POLLIN, 0}};
        if (::poll(wanted, 2, -1) < 0 && errno != EINTR) return;
        std::lock_guard guard(mutex_);
        if (stop_) return;
        if (wanted[1].revents != 0) {
            std::uint64_t count = 0;
            if (::read(wake_, &count, sizeof count) < 0) return;
            for (const Request& request : std::exchange(held_, {})) Handle(request);
        }
        if (wanted[0].revents == 0) continue;
        const ssize_t length = ::read(device_, buffer.data(), buffer.size());
        if (length < 0 && (errno == EINTR || errno == ENOENT || errno == EAGAIN)) continue;
        if (length <= 0) return;
        Handle(Request(buffer.begin(), buffer.begin() + length));
    }
}

void FuseDisk::Reply(const Request& request, int error, const std::string& body) const {
    fuse_out_header header{};
    header.unique = HeaderOf(request).unique;
    header.error = -error;
    header.len = static_cast<std::uint32_t>(sizeof header + body.size());
    const iovec parts[] = {{&header, sizeof header}, {const_cast<char*>(body.data()), body.size()}};
    // Fails only for a caller that has gone.
    [[maybe_unused]] const ssize_t written = ::writev(device_, parts, 2);
}

bool FuseDisk::MustWait(const Request& request) const {
    const fuse_in_header header = HeaderOf(request);
    unsigned work = None;
    if (header.opcode == FUSE_OPEN) work = Opens;
    if (header.opcode == FUSE_READ) work = Reads;
    if (header.opcode == FUSE_WRITE) work = Writes;
    if (work == None || header.nodeid < 2) return false;
    const std::string& name = files_[header.nodeid - 2].name;
    return std::any_of(holds_.begin(), holds_.end(),
                       [&](const auto& hold) { return name.starts_with(hold.first) && (hold.second & work) != 0; });
}

void FuseDisk::Handle(const Request& request) {
    const fuse_in_header header = HeaderOf(request);
    if (MustWait(request)) {
        held_.push_back(request);
        return;
    }
    switch (header.opcode) {
        case FUSE_INIT: {
            fuse_init_out answer{};
            answer.major = FUSE_KERNEL_VERSION;
            answer.minor = FUSE_KERNEL_MINOR_VERSION;
            answer.flags = FUSE_BIG_WRITES;
            answer.max_write = MostWritten;
            return Reply(request, 0, BytesOf(answer));
        }
        case FUSE_INTERRUPT: {
            // Of a process that is being ended; it would not go before its call has.
            const std::uint64_t unique = BodyAs<fuse_interrupt_in>(request).unique;
            const auto found = std::find_if(held_.begin(), held_.end(),
                                            [&](const Request& waiting) { return HeaderOf(waiting).unique == unique; });
            if (found == held_.end()) return;
            Reply(*found, EINTR);
            held_.erase(found);
            return;
        }
        case FUSE_FORGET:
        case FUSE_BATCH_FORGET:
            return;
        case FUSE_LOOKUP: {
            const std::uint64_t node = NodeOf(NameBehind(request, 0));
            return node == 0 ? Reply(request, ENOENT) : Reply(request, 0, Entry(node));
        }
        case FUSE_GETATTR:
            return Reply(request, 0, Attributes(header.nodeid));
        case FUSE_OPEN:
        case FUSE_OPENDIR: {
            fuse_open_out answer{};
            if (header.opcode == FUSE_OPEN) answer.open_flags = FOPEN_DIRECT_IO;
            return Reply(request, 0, BytesOf(answer));
        }
        case FUSE_READDIR:
            return Reply(request, 0, Listing(request.data() + sizeof(fuse_in_header)));
        case FUSE_CREATE:
            return Create(request);
        case FUSE_READ:
            return Read(request);
        case FUSE_WRITE:
            return Write(request);
        case FUSE_SETATTR:
            return SetSize(request);
        case FUSE_STATFS:
            return Reply(request, 0, BytesOf(fuse_statfs_out{}));
        case FUSE_FLUSH:
        case FUSE_RELEASE:
        case FUSE_RELEASEDIR:
        case FUSE_FSYNC:
        case FUSE_DESTROY:
            return Reply(request, 0);
        default:
            return Reply(request, ENOSYS);
    }
}

std::uint64_t FuseDisk::NodeOf(const std::string& name) const {
    for (std::size_t place = 0; place < files_.size(); ++place) {
        if (files_[place].name == name) return place + 2;
    }
    return 0;
}

std::string FuseDisk::Attributes(std::uint64_t node) const {
    fuse_attr_out answer{};
    answer.attr.ino = node;
    answer.attr.nlink = 1;
    answer.attr.uid = answer.attr.gid = Owner;
    answer.attr.mode = node == FUSE_ROOT_ID ? S_IFDIR | 0755 : S_IFREG | 0644;
    if (node != FUSE_ROOT_ID) answer.attr.size = files_[node - 2].bytes.size();
    return BytesOf(answer);
}

std::string FuseDisk::Entry(std::uint64_t node) const {
    fuse_attr_out attributes{};
    std::memcpy(&attributes, Attributes(node).data(), sizeof attributes);
    fuse_entry_out answer{};
    answer.nodeid = node;
    answer.attr = attributes.attr;
    return BytesOf(answer);
}

std::string FuseDisk::Listing(const char* body) const {
    fuse_read_in wanted{};
    std::memcpy(&wanted, body, sizeof wanted);
    std::string answer;
    for (std::size_t place = wanted.offset; place < files_.size(); ++place) {
        fuse_dirent entry{};
        entry.ino = place + 2;
        entry.off = place + 1;
        entry.namelen = static_cast<std::uint32_t>(files_[place].name.size());
        entry.type = S_IFREG >> 12;
        std::string record(reinterpret_cast<const char*>(&entry), FUSE_NAME_OFFSET);
        record += files_[place].name;
        record.resize(FUSE_DIRENT_ALIGN(record.size()));
        if (answer.size() + record.size() > wanted.size) break;
        answer += record;
    }
    return answer;
}

void FuseDisk::Create(const Request& request) {
    files_.push_back({NameBehind(request, sizeof(fuse_create_in)), {}});
    fuse_open_out opened{};
    opened.open_flags = FOPEN_DIRECT_IO;
    Reply(request, 0, Entry(files_.size() + 1) + BytesOf(opened));
}

void FuseDisk::Read(const Request& request) {
    const File& file = files_[HeaderOf(request).nodeid - 2];
    const auto wanted = BodyAs<fuse_read_in>(request);
    const std::uint64_t begin = std::min<std::uint64_t>(wanted.offset, file.bytes.size());
    const std::uint64_t end = std::min<std::uint64_t>(begin + wanted.size, file.bytes.size());
    if (end > file.failsFrom) return Reply(request, EIO);
    Reply(request, 0,
          std::string(file.bytes.begin() + static_cast<long>(begin), file.bytes.begin() + static_cast<long>(end)));
}

void FuseDisk::Write(const Request& request) {
    File& file = files_[HeaderOf(request).nodeid - 2];
    const auto given = BodyAs<fuse_write_in>(request);
    if (file.bytes.size() < given.offset + given.size) file.bytes.resize(given.offset + given.size);
    std::memcpy(file.bytes.data() + given.offset, request.data() + sizeof(fuse_in_header) + sizeof given, given.size);
    fuse_write_out answer{};
    answer.size = given.size;
    Reply(request, 0, BytesOf(answer));
}

void FuseDisk::SetSize(const Request& request) {
    const auto wanted = BodyAs<fuse_setattr_in>(request);
    const std::uint64_t node = HeaderOf(request).nodeid;
    if ((wanted.valid & FATTR_SIZE) != 0 && node != FUSE_ROOT_ID) files_[node - 2].bytes.resize(wanted.size);
    Reply(request, 0, Attributes(node));
}

}  // namespace OrvTest
