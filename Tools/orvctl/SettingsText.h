// The text of a settings file, as `orvctl setup` writes it, and about one. Pure functions.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Orv {

// A new file for the audio feed service (`withFolders`: the data and pipe folders stand in it) or for orvctl.
std::string NewSettingsText(bool withFolders, u32 port, const std::string& user, const std::string& password);

// The text with another confPass under [ConfService], everything else left byte for byte. The key is added below its
// section when it is not there, and the section at the end.
std::string ReplacePassword(const std::string& text, const std::string& password);

// The sentence about a settings file that could be opened but is not whole.
std::string CutShort(const std::string& path);

// A value as the file's reader gives it back. The value holds no double quote and no control character.
std::string QuotedValue(const std::string& value);

}  // namespace Orv
