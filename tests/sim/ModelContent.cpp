// What a feed plays and when: its playlist, and the cycle of its announcements.
#include <cstdlib>
#include <iterator>

#include "tests/sim/FeedModel.h"

namespace OrvSim {

namespace {

std::string Join(const std::string& left, const std::string& right) {
    return left.empty() || left.back() == '/' ? left + right : left + "/" + right;
}

std::string PauseName(i32 seconds) {
    return "#" + std::to_string(seconds) + "#";
}

}  // namespace

void FeedModel::BeginStart(u64 thread) {
    if (type_ == 1) ownerScript_.Expect(" Info|LINEIN is not available. Play as default stream");
    if (!HasSet()) return;
    starting_ = true;
    announcementMask_ = 3;
    startMusic_ = {{0, "defaultset:"}};
    if (type_ >= 2) {
        ExpectPlaylist(ownerScript_, thread);
        auto path = std::make_shared<std::string>();
        ownerScript_.Expect(ScriptStep{[this, path] {
                                           std::string line;
                                           *path = TakeMusic(line);
                                           return line;
                                       },
                                       [this, path] {
                                           startMusic_ = {{1, *path}};
                                       }});
    }
    if (announces_) ExpectPause(ownerScript_, thread, [this](i32 seconds) { startPause_ = seconds; });
}

void FeedModel::ApplyStart() {
    if (!starting_ || !world_.exact) return;
    starting_ = false;
    if (announces_) set_.Switch(false, 3, false, {{0, PauseName(startPause_)}}, Now());
    set_.Switch(true, 2, false, startMusic_, Now());
}

// The folder is read now; a shuffle is told path by path, each with its key.
void FeedModel::ExpectPlaylist(LineScript& script, u64 thread) {
    playlist_.clear();
    if (name_.empty()) return;
    const std::string folder = Join(Join(world_.root, "Playlist"), name_);
    for (const char* ending : {".wav", ".raw"}) {
        for (const std::string& file : world_.disk.Search(folder, ending)) playlist_.push_back(Join(folder, file));
    }
    if (Sorted()) {
        playlist_.sort();
        return;
    }
    const std::list<std::string> found = std::move(playlist_);
    playlist_.clear();
    shuffled_.clear();
    for (const std::string& path : found) {
        auto key = std::make_shared<i32>(0);
        script.Expect(ScriptStep{[this, thread, path, key] {
                                     *key = world_.ShuffleKey(thread);
                                     return " Info|r:" + std::to_string(*key) + "<->" + path;
                                 },
                                 [this, path, key, count = found.size()] {
                                     shuffled_.emplace(*key, path);
                                     if (shuffled_.size() != count) return;
                                     for (const auto& entry : shuffled_) playlist_.push_back(entry.second);
                                 }});
    }
}

std::string FeedModel::TakeMusic(std::string& line) {
    std::string path = world_.defaultFile;
    line = " Warn|PlayList is empty. Start default audio file - " + path;
    if (playlist_.empty()) return path;
    path = playlist_.front();
    playlist_.pop_front();
    line = "Trace|Start next audio file " + path;
    ++world_.counts.files;
    return path;
}

void FeedModel::ExpectPause(LineScript& script, u64 thread, std::function<void(i32)> then) {
    auto seconds = std::make_shared<i32>(0);
    script.Expect(ScriptStep{[this, thread, seconds] {
                                 *seconds = world_.Uniform(thread, row_.Number("minannouncementpause"),
                                                           row_.Number("maxannouncementpause"));
                                 return "Trace|Pause announcement: for " + std::to_string(*seconds) + " seconds";
                             },
                             [seconds, then = std::move(then)] { then(*seconds); }});
}

void FeedModel::PlayPause(i32 seconds) {
    announcementMask_ = 3;
    set_.Switch(false, 3, false, {{0, PauseName(seconds)}}, Now());
}

void FeedModel::OnEvents(const Events& events) {
    for (const u32 id : events) {
        if (id == 10) pumpScript_.Do([this] { set_.SetMask(announcementMask_); });
        if (id == 3 && announces_) ExpectNextAnnouncement();
        if (id == 4 && announces_) ExpectPause(pumpScript_, pumpThread_, [this](i32 seconds) { PlayPause(seconds); });
        if (id == 2) ExpectNextMusic();
    }
}

void FeedModel::ExpectNextMusic() {
    pumpScript_.Do([this] { volume_.EndOfFile(); });
    if (playlist_.empty()) {
        pumpScript_.Expect("Trace|Build playlist");
        ExpectPlaylist(pumpScript_, pumpThread_);
    }
    auto path = std::make_shared<std::string>();
    pumpScript_.Expect(ScriptStep{[this, path] {
                                      std::string line;
                                      *path = TakeMusic(line);
                                      return line;
                                  },
                                  [this, path] {
                                      set_.Switch(true, 2, false, {{1, *path}}, Now());
                                  }});
}

// With N announcements there are N + 1 outcomes; the last one is another pause.
void FeedModel::ExpectNextAnnouncement() {
    auto drawn = std::make_shared<Row>();
    auto seconds = std::make_shared<i32>(0);
    const auto expected = [this, drawn, seconds] {
        const auto& table = world_.announcements;
        const i32 index = world_.Uniform(pumpThread_, 0, static_cast<i32>(table.size()));
        if (static_cast<std::size_t>(index) < table.size()) *drawn = std::next(table.begin(), index)->second;
        if (drawn->Has("idannouncement")) {
            return "Trace|Play announcement: " + drawn->Text("thename") + "(" +
                   std::to_string(drawn->Number("thetype")) + ")[" + drawn->Text("thefile") + "]";
        }
        *seconds =
            world_.Uniform(pumpThread_, row_.Number("minannouncementpause"), row_.Number("maxannouncementpause"));
        return "Trace|Invalid announcement: pause for " + std::to_string(*seconds) + " seconds";
    };
    const auto then = [this, drawn, seconds] {
        if (!drawn->Has("idannouncement")) {
            PlayPause(*seconds);
            return;
        }
        ++world_.counts.announcements;
        announcementMask_ = drawn->Number("thetype") == 1 ? 2 : 3;
        set_.Switch(false, 4, false, {{10, "##1#"}, {0, drawn->Text("thefile")}}, Now());
    };
    pumpScript_.Expect(ScriptStep{expected, then});
}

}  // namespace OrvSim
