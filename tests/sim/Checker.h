// Sees everything that leaves the service, in the order in which it happens, and holds it against the model: lines of
// the log, looks and writes at pipes, random draws, delivered changes, and what clients read.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "AudioFeeder/RandomDraw.h"
#include "Platform/sim/SimPipes.h"
#include "tests/sim/FeedModel.h"

namespace OrvSim {

// One call of the change listener that a commit of the Configuration service must lead to.
struct ExpectedChange {
    std::string table;
    std::string kind;
    i32 id = 0;
};

class Checker : public Platform::Sim::PipeObserver {
public:
    Checker(ModelWorld& world, u64 seed);
    ~Checker() override;

    // --- what is seen
    void OnLogBytes(std::string_view bytes);
    void OnEndpoint(const std::string& name) override;
    void OnEndpointGone(const std::string& name) override;
    void OnInstance(const std::string& name, Platform::PipeId id) override;
    void OnPoll(const std::string& name, Platform::PipeId id, Platform::ConnectState state,
                Platform::PipeId client) override;
    void OnWriting(const std::string& name, Platform::PipeId id) override;
    void OnConnect(const std::string& name, Platform::PipeId client, Platform::SystemError error) override;
    void OnWrite(const std::string& name, Platform::PipeId id, const u8* data, i64 taken) override;
    void OnClientRead(Platform::PipeId client, const u8* data, u64 count);
    void OnClientLeft(Platform::PipeId client) { sent_.erase(client); }
    // The Configuration service has committed and raised this; and what it answered to a call for a row.
    void OnCommit(const ExpectedChange& change) { expected_.push_back(change); }
    void OnAnswer(const std::string& table, i32 id, const Row& row);
    void BeginChange(const std::string& table, const std::string& kind, i32 id, const Row& newRow, const Row& oldRow);
    void EndChange();
    // All threads wait for time: one that rests behind its change has made it.
    void BeforeTimePasses();
    // From here on the end is near: feeds go, and changes need not come any more.
    void OnStop();
    void OnLinkLost() { linkLost_ = true; }
    // The driver turns the wall clock to another moment, now.
    void OnClockTurn();

    // --- what the driver asks
    bool Settled() const { return expected_.empty() && !changing_; }
    bool Reloaded() const { return reloaded_; }
    const Tables& ClientTables() const { return tables_; }
    // Whether every feed has gone as it should; after the run.
    void CheckEnd();
    bool Saw(const std::string& text) const { return seen_.count(text) != 0; }
    FeedModel* FeedOn(const std::string& pipe) const;

    // Called on the thread of each new pump once it has opened its pipe; may sleep.
    std::function<void()> beforeFirstPass;

    // Over everything seen.
    u64 Hash() const { return hash_; }
    // All bytes of the log, if they are kept.
    bool keepLog = false;
    std::string log;

private:
    class Draws : public Orv::IRandomSource {
    public:
        Draws(ModelWorld& world, u64 seed);
        ~Draws() override;
        u32 Next() override;

    private:
        ModelWorld& world_;
        u64 state_;
    };

    void OnLine(std::string_view line);
    template <typename Fits>
    bool FitsClock(Fits fits) const;
    void CheckDate(std::string_view date);
    void CheckTime(std::string_view line);
    void OnMessage(u64 thread, const std::string& word, const std::string& source, std::string_view text);
    void OnEngineLine(u64 thread, const std::string& word, std::string_view text);
    void OnFeedLine(u64 thread, const std::string& word, std::string_view text);
    void OnSourceLine(const std::string& line);
    void OnManagerLine(const std::string& line);
    bool MayShow(const std::string& word, bool ofEngine) const;
    void ExpectManagerLine(const std::string& line);
    void SetLevel(const std::string& value);
    FeedModel* PumpOf(const std::string& pipe);
    bool MayEnd(const FeedModel& feed) const;
    void Reload();
    bool IsChangeMade() const;
    void TakeChangeAsMade();
    void ApplyFeed(bool deleted, const Row& newRow, const Row& oldRow);
    void ApplyParameter(const Row& row);
    void ApplyAnnouncement(bool deleted, const Row& newRow, const Row& oldRow);
    void ExpectEnd(const std::string& pipe);
    void ExpectRebuild(const Row& newRow, const Row& oldRow);
    void Mix(const void* data, u64 count);

    ModelWorld& world_;
    Draws draws_;
    std::string partLine_;
    std::string date_;       // of the log, as its last date line told it
    u64 turnedAt_ = 0;       // when the wall clock was turned last
    i64 utcBeforeTurn_ = 0;  // what it showed then
    u64 hash_ = 14'695'981'039'346'656'037U;
    bool reloaded_ = false;
    bool stopping_ = false;
    bool linkLost_ = false;

    std::map<u32, std::unique_ptr<FeedModel>> feeds_;  // by serial number
    std::map<std::string, FeedModel*> byPipe_;
    std::map<u64, FeedModel*> byThread_;
    u32 lastSerial_ = 0;
    FeedModel* building_ = nullptr;  // the one that was begun last
    i64 instanceOfNone_ = -1;        // what is added to a serial number; known from the first line on
    std::deque<Row> builds_;         // that must come next
    std::deque<std::string> managerLines_;

    std::map<Platform::PipeId, std::deque<u8>> sent_;  // on its way, by client

    Tables tables_;  // as the service must have them
    std::map<std::pair<std::string, i32>, Row> answers_;
    std::deque<ExpectedChange> expected_;
    bool changing_ = false;
    FeedModel* updating_ = nullptr;
    std::vector<u32> leaving_;          // feeds that must be gone when the change is over
    std::optional<std::string> level_;  // that the change brings
    LogLevels otherLevels_;             // in force as well in the moment of a change of threads that race
    u64 otherLevelsAt_ = 0;
    std::set<std::string> seen_;
};

}  // namespace OrvSim
