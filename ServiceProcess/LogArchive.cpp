// Where log files lie and where they go.
#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "Platform/Path.h"
#include "ServiceProcess/Log.h"
#include "ServiceProcess/LogFileBuffer.h"
#include "ServiceProcess/LogFormat.h"

namespace Orv {

namespace {

constexpr char kSeparators[] = "/\\";

bool IsSeparator(char character) {
    return character == '/' || character == '\\';
}

// True when the folder is there, or is there now.
bool EnsureFolder(const std::string& path) {
    if (Platform::PathExists(path)) return true;
    Platform::SystemError error = 0;
    return Platform::CreateFolder(path, error) || error == Platform::PathExistsError();
}

// From the top down. False as soon as one of them cannot be made.
bool EnsureFolders(const std::string& path) {
    for (auto cut = path.find_first_of(kSeparators); cut != std::string::npos;
         cut = path.find_first_of(kSeparators, cut + 1)) {
        if (cut > 0 && !EnsureFolder(path.substr(0, cut))) return false;
    }
    return EnsureFolder(path);
}

}  // namespace

std::string LogWriter::MakeFileName() const {
    if (folder_.empty()) return {};
    std::string path = folder_;
    if (!IsSeparator(path.back())) path += '/';
    path += name_;

    path += LogFileStamp(Platform::LocalTime());
    std::string candidate = path + ".log";
    for (u64 count = 1; Platform::PathExists(candidate); ++count) {
        candidate = path + '(' + std::to_string(count) + ").log";
    }
    return candidate;
}

void LogWriter::CloseAndArchive() {
    lastDay_ = 0;
    if (!buffer_->IsOpen()) return;
    buffer_->Close();
    Archive();
}

// Whatever fails here leaves the file where it is, without a word.
void LogWriter::Archive() const {
    if (currentPath_.empty() || backupFolder_.empty()) return;
    const std::string fileName = currentPath_.substr(currentPath_.find_last_of(kSeparators) + 1);

    std::string target =
        IsSeparator(backupFolder_.front()) ? backupFolder_ : Platform::AppendPath(folder_, backupFolder_);
    // By universal time, unlike the file's name: a file of the late evening can land in the folder of the next day.
    target = Platform::AppendPath(target, LogDayFolder(Platform::UtcTime()));
    if (std::string absolute; Platform::MakeAbsolutePath(target, absolute)) target = absolute;

    if (!EnsureFolders(target)) return;
    Platform::MoveFileTo(currentPath_, Platform::AppendPath(target, fileName));
}

}  // namespace Orv
