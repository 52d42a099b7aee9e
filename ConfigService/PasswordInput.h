// Where a program gets a password from: a file, standard input, or the person at the terminal.
#pragma once

#include <string>

namespace Orv {

// `file` is a path, "-" for standard input, or empty to ask on the terminal, `twice` for a new password. A file's first
// line counts. False with the reason in words. Blocks.
bool ObtainPassword(const std::string& file, const std::string& prompt, bool twice, std::string& password,
                    std::string& reason);

}  // namespace Orv
