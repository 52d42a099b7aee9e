// A file that is made aside, whole, and then takes its name at once. For tools; not on the simulated platform. Paths
// are taken by their exact spelling.
#pragma once

#include <memory>
#include <string>

#include "Platform/SystemError.h"

namespace Platform {

// One thread at a time. What has not been finished is unfit for use; the file stays until somebody removes it.
class INewFile {
public:
    virtual ~INewFile() = default;
    // Appends. False with the system error when not all could be taken.
    virtual bool Write(const void* data, u64 size, SystemError& error) = 0;
    // Brings all of it to the disk and closes the file. False with the system error.
    virtual bool Finish(SystemError& error) = 0;
};

// A file that did not exist before, readable for everybody, with its folder's group. Null with the system error.
std::unique_ptr<INewFile> CreateNewFile(const std::string& path, SystemError& error);

// Gives a file its final name in the same folder, for good. A file that has that name already is replaced or, with
// PathExistsError(), kept. False with the system error.
bool NameFile(const std::string& from, const std::string& to, bool replace, SystemError& error);

// False with the system error.
bool RemoveFile(const std::string& path, SystemError& error);

// Makes a folder that everybody may look into, unless there is one. False with the system error.
bool MakeOpenFolder(const std::string& path, SystemError& error);

}  // namespace Platform
