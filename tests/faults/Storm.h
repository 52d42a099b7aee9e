// A storm of changes: its writers, the model that replays it, and the client library's tables that take it.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/faults/Tables.h"

namespace OrvTest {

// The playlist folders between which the feeds of the storm are moved.
inline constexpr const char* StormFolders[] = {"one", "two", "three"};

// What the storm changes, as it stands in front of it: so many feeds, which play without a client, and one parameter.
std::vector<Orv::Change> StormRows(unsigned feeds);

struct StormTransaction {
    i64 number = 0;
    std::vector<Orv::Change> changes;
};

// Four writers, one connection each. A feed belongs to one of them, who numbers its changes in the column
// "maxannouncementpause"; the parameter is written by all. One change in twenty is a rebuild: of the row as it is, or
// by another folder. One transaction in ten has several rows.
class StormWriters {
public:
    StormWriters(unsigned port, unsigned seed, unsigned feeds, unsigned changes);
    ~StormWriters();

    void Start();
    // Waits for the end. Empty, or what went wrong.
    std::string Join();
    // What has been acknowledged, in no order.
    std::vector<StormTransaction> Take();

private:
    static constexpr unsigned Writers = 4;
    struct Writer;
    std::vector<std::unique_ptr<Writer>> writers_;
};

// The tables after the acknowledged transactions, replayed in the order of their numbers.
class StormModel {
public:
    // `begin` is all that the tables held in front of the storm.
    StormModel(const SeenRows& begin, std::vector<StormTransaction> transactions);

    std::size_t Transactions() const { return signals_.size(); }
    // Which number is missing or was given twice; empty when none is.
    const std::string& Gaps() const { return gaps_; }
    // The signals that must be told, in this order.
    const std::vector<std::string>& Signals() const { return signals_; }
    SeenRows Rows() const;
    // How often each row was changed or built anew.
    std::map<std::string, unsigned> ChangesOfRow() const;
    // How often each feed's channel must and may have been built. Who reads a row later than its signal came sees
    // several changes at once: a feed that was moved and moved back need not have been built for that.
    std::map<std::string, std::pair<unsigned, unsigned>> TimesBuilt() const;
    // Compares with the audio feed service's state, a JSON text. Empty, or the first difference.
    std::string CompareWithState(const std::string& json) const;

private:
    struct Feed {
        i32 id = 0;
        std::string folder;
        i32 number = 0;
        i32 numberWhenRebuilt = 0;           // of the row as it was then
        std::map<i32, std::string> folders;  // by number
        unsigned changes = 0;
        unsigned rebuilds = 0;
        unsigned moves = 0;
    };
    void Replay(const StormTransaction& transaction);

    SeenRows others_;
    std::map<std::string, Feed> feeds_;
    i32 parameterId_ = 0;
    std::string parameter_;
    unsigned parameterChanges_ = 0;
    std::vector<std::string> signals_;
    std::string gaps_;
};

// The tables of the audio feed service's client library, kept current by its signals, and what its listener is told.
// One at a time in the process.
class LiveTables {
public:
    explicit LiveTables(unsigned port);
    ~LiveTables();
    // Ends the connection. What was told can still be asked for.
    void Close();

    SeenRows Rows() const;
    // Whether the listener was told of that feed.
    bool HasFeed(const std::string& pipe) const;
    // How often the listener was told of a row that is there.
    unsigned TimesTold(const std::string& key) const;
    // What was told against the rules: a row's number going back, an old row that is not the one told before, a mark of
    // a transaction out of its place. Empty when nothing was.
    std::string Wrong() const;

private:
    bool open_ = false;
};

}  // namespace OrvTest
