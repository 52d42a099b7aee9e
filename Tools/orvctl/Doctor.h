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
    bool known = false;  // the Configuration service has told its tables
    std::vector<Row> feeds;
    std::vector<Row> announcements;
    std::string defaultFile;
    std::string promptRoot;
    std::vector<std::string> preload;
};

enum class ServiceLife : u8 {
    Runs,     // it has told its state
    Down,     // it should have, and did not
    Unknown,  // it was not asked to
};

// Whose rights this looks with. What root may do says nothing about the service.
enum class LooksAs : u8 { Caller, Service };

// --- DoctorService.cpp: the service and what it says of itself
// After CheckContents(), which has told what is wrong with the files as they are now.
void CheckState(const Json& state, const FeedPlan& plan, Ailments& ailments);
// The service that should answer on `path` does not, because of `reason`.
void CheckSilence(const std::string& path, const std::string& reason, Ailments& ailments);
void CheckPipeFolder(const std::string& folder, ServiceLife service, LooksAs looksAs, Ailments& ailments);
// Whether whoever looks may write the logs to `folder`, or make it.
void CheckLogFolder(const std::string& folder, Ailments& ailments);
// In the pipe folder of this process.
void CheckPipes(const std::vector<Row>& feeds, ServiceLife service, Ailments& ailments);
void CheckDisk(const std::string& what, const std::string& path, Ailments& ailments);

// --- DoctorFiles.cpp: what the feeds are to play
void CheckContents(const FeedPlan& plan, Ailments& ailments);
// Notes what the packaged unit hides from the service, where nobody can see what the service sees.
void CheckHiddenFolders(const FeedPlan& plan, Ailments& ailments);

enum class Standing : u8 { StillBad, Plays, Gone };
// What has become of a content that could not be played: it plays now, or nothing names it any more.
Standing LookAgain(const FeedPlan& plan, const std::string& content);

// --- Doctor.cpp
// The nearest folder above a path that is there, or the path itself.
std::string NearestFolder(std::string path);

}  // namespace Orv
