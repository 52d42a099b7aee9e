// What `orvctl doctor` looks at. Each check adds what it finds; none changes anything, none connects to a feed.
#pragma once

#include <string>
#include <vector>

#include "Tools/orvctl/Status.h"

namespace Orv {

enum class Severity : u8 {
    Note,     // worth knowing; nothing is wrong
    Warning,  // something is not as it was meant, but every feed is heard
    Fault,    // something is not heard, or cannot be changed
};

struct Ailment {
    Severity severity;
    std::string what;    // one sentence without its point
    std::string remedy;  // the same; empty when there is none
};

class Ailments {
public:
    void Add(Severity severity, const std::string& what, const std::string& remedy) {
        list_.push_back({severity, what, remedy});
    }
    const std::vector<Ailment>& List() const { return list_; }
    bool Mentions(const std::string& text) const;
    // 0 without warnings and faults, 1 with warnings, 2 with faults.
    int ExitCode() const;

private:
    std::vector<Ailment> list_;
};

// What the files and names of the feeds are judged by.
struct FeedPlan {
    std::vector<Row> feeds;
    std::vector<Row> announcements;
    std::string defaultFile;
    std::string promptRoot;
    std::vector<std::string> preload;
};

// --- DoctorService.cpp: the service and what it says of itself
void CheckState(const Json& state, Ailments& ailments);
// The service that should answer on `path` does not, because of `reason`.
void CheckSilence(const std::string& path, const std::string& reason, Ailments& ailments);
// `serviceRuns`: it has been seen alive.
void CheckPipeFolder(const std::string& folder, bool serviceRuns, Ailments& ailments);
// In the pipe folder of this process.
void CheckPipes(const std::vector<Row>& feeds, bool serviceRuns, Ailments& ailments);
void CheckDisk(const std::string& what, const std::string& path, Ailments& ailments);

// --- DoctorFiles.cpp: what the feeds are to play
void CheckContents(const FeedPlan& plan, Ailments& ailments);

}  // namespace Orv
