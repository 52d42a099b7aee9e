// Paths. Both "/" and "\" separate. Case is told apart by the disk but not by the system: names are lower-cased on
// their way, and what is on the disk is found whatever its case. Only A to Z have a lower case here, and a name that
// is not UTF-8 is used byte for byte.
#pragma once

#include <string>

#include "Platform/SystemError.h"

namespace Platform {

// `path` with A to Z lowered. Nothing else changes.
std::string LowerAscii(std::string path);

// An absolute path with "/" between its components: the working directory in front of a relative path, empty and "."
// components gone, ".." taken back without a look at the disk (and ignored at the root). False when the working
// directory cannot be told or `path` is empty. Never touches the disk otherwise.
bool MakeAbsolutePath(const std::string& path, std::string& absolute);

// The spelling under which `path` exists on the disk: each component by its exact spelling first, otherwise the one
// that matches when the case of A to Z is ignored, the bytewise smallest of several. Components that do not exist are
// left as they stand, so that the caller's open fails with the system's own error. Relative paths stay relative.
// Reads folders, and so may wait for the disk.
std::string FindOnDisk(const std::string& path);

// Puts one "/" between the two unless `left` ends in a separator or is empty; a leading "./" of `right` and its
// separators are dropped. Does not touch the disk.
std::string AppendPath(const std::string& left, const std::string& right);

// The per-machine data folder of the system's services, without a closing separator.
std::string ProgramDataFolder();

// Changes the working directory. False with the system error on failure.
bool SetWorkingDirectory(const std::string& path, SystemError& error);

}  // namespace Platform
