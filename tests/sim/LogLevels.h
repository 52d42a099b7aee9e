// Which lines of the log are written at a level.
#pragma once

#include <string_view>

#include "Platform/Types.h"

namespace OrvSim {

// Lines begin with their word, five characters wide. The engine's lag behind the others', and a level above 3 leaves
// them as they were.
class LogLevels {
public:
    void Set(i32 level) {
        level_ = level;
        if (level <= 3) engine_ = level;
    }
    bool Shows(std::string_view line) const { return level_ >= Threshold(line); }
    bool ShowsOfEngine(std::string_view line) const {
        const i32 needed = line.starts_with("Error") || line.starts_with(" Warn") ? 1
                           : line.starts_with(" Info")                            ? 2
                                                                                  : 3;
        return engine_ >= needed && Shows(line);
    }
    i32 Level() const { return level_; }

private:
    static i32 Threshold(std::string_view line) {
        return line.starts_with("Debug") ? 3 : line.starts_with("Trace") ? 2 : 1;
    }

    i32 level_ = 3;
    i32 engine_ = 3;
};

}  // namespace OrvSim
