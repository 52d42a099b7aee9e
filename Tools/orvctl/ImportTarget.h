// Where an imported file belongs, so that the audio feed service finds it.
#pragma once

#include <string>
#include <vector>

#include "ConfigService/Change.h"

namespace Orv {

// The service's settings that say where sound files lie.
struct PromptSettings {
    std::string file;      // the settings file they come from; empty: none was found, and the usual folders hold
    std::string dataPath;  // [General].AppDataPath
    bool preloads = false;
};

// Reads `path` or, when that has no AppDataPath or is empty, the usual file of the service. Throws ToolError for one
// that cannot be read to its end.
PromptSettings FindPromptSettings(const std::string& path);

// The root of prompts and playlists: the parameter IVRPROMPTPATH, or else Data/Ivr/Prompts of the settings; absolute,
// as the service resolves it.
std::string PromptsRoot(const std::vector<Row>& parameters, const PromptSettings& settings);

// Whether a feed plays the files of a folder; others play the default stream.
bool PlaysFolder(const Row& feed);

struct ImportTarget {
    std::string folder;              // absolute, as it is or is to be spelled on the disk
    std::string fileName;            // empty: as the source is called
    std::vector<std::string> heard;  // when it is heard, in one sentence for each thing there is to say
};

// The folder of a feed's playlist, and who plays it. Throws ToolError when that feed plays no folder.
ImportTarget FeedTarget(const Row& feed, const std::vector<Row>& feeds, const std::string& root, u64 filesThere);
std::string FeedFolder(const Row& feed, const std::string& root);
// The file of an announcement; without a row, or with one that names no file, NAME.wav in the root. Throws ToolError
// when it is no file that could be replaced.
ImportTarget AnnouncementTarget(const std::string& name, const Row* announcement, const std::string& root);

// The files in a folder that a feed plays: .wav and .raw, whatever their case.
std::vector<std::string> PlayableFiles(const std::string& folder);

// The name that a source file gets: "song.wav" for "/music/song.flac". Throws ToolError for one that can't have one.
std::string ImportedName(const std::string& source);

}  // namespace Orv
