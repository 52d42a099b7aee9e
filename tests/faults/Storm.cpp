#include "tests/faults/Storm.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <stdexcept>

namespace OrvTest {
namespace {

constexpr char Parameter[] = "STORM";
constexpr i32 SortedFolder = 3;

std::string FeedName(unsigned index) {
    return "s" + std::to_string(index);
}

// Differs from that of the number before.
i32 VolumeOf(i32 number) {
    return 1 + number % 100;
}

// A column of a change, or nothing.
template <typename T>
const T* Column(const Orv::Change& change, const std::string& name) {
    for (const auto& [column, value] : change.values) {
        if (column == name) return std::get_if<T>(&value);
    }
    return nullptr;
}

}  // namespace

std::vector<Orv::Change> StormRows(unsigned feeds) {
    std::vector<Orv::Change> rows{{"PARAMETER", Orv::Action::Put, 0, Parameter, {{"value", std::string("calm")}}}};
    for (unsigned i = 0; i < feeds; ++i) {
        rows.push_back({"AUDIOFEED",
                        Orv::Action::Put,
                        0,
                        FeedName(i),
                        {{"thename", std::string(StormFolders[0])},
                         {"feedtype", SortedFolder},
                         {"nonstop", i32{1}},
                         {"maxannouncementpause", i32{0}},
                         {"maxvolume", VolumeOf(0)}}});
    }
    return rows;
}

// --- the writers ----------------------------------------------------------------------------------------------------

struct StormWriters::Writer {
    Writer(unsigned port, unsigned seed, unsigned index, unsigned feeds, unsigned changes)
        : client(port), random(seed + index), name(std::to_string(index)), left(changes) {
        for (unsigned feed = index; feed < feeds; feed += Writers) own.push_back({feed, 0, 0});
    }

    struct OwnFeed {
        unsigned feed;
        i32 number;
        unsigned folder;
    };

    unsigned Draw(unsigned count) { return std::uniform_int_distribution<unsigned>(0, count - 1)(random); }

    Orv::Change ChangeOf(OwnFeed& feed) {
        Orv::Change change{"AUDIOFEED", Orv::Action::Set, 0, FeedName(feed.feed), {}};
        const bool rebuild = Draw(20) == 0;
        if (rebuild && Draw(2) == 0) {
            change.action = Orv::Action::Rebuild;
            return change;
        }
        ++feed.number;
        change.values = {{"maxannouncementpause", feed.number}, {"maxvolume", VolumeOf(feed.number)}};
        if (rebuild) {
            feed.folder = (feed.folder + 1 + Draw(2)) % std::size(StormFolders);
            change.values.emplace_back("thename", std::string(StormFolders[feed.folder]));
        }
        return change;
    }

    void Write() {
        while (left > 0) {
            StormTransaction transaction;
            std::set<unsigned> touched;
            const unsigned rows = Draw(10) != 0 ? 1 : 2 + Draw(7);
            while (touched.size() < std::min({rows, left, static_cast<unsigned>(own.size())})) {
                touched.insert(Draw(static_cast<unsigned>(own.size())));
            }
            for (const unsigned each : touched) transaction.changes.push_back(ChangeOf(own[each]));
            left -= static_cast<unsigned>(touched.size());
            if (left > 0 && Draw(25) == 0) {
                const std::string value = name + "-" + std::to_string(left--);
                transaction.changes.push_back({"PARAMETER", Orv::Action::Put, 0, Parameter, {{"value", value}}});
            }
            const auto result = client.Apply(transaction.changes);
            if (!result) throw std::runtime_error("a writer's connection was lost");
            transaction.number = result->transaction;
            done.push_back(std::move(transaction));
        }
    }

    TableClient client;
    std::mt19937 random;
    const std::string name;
    unsigned left;
    std::vector<OwnFeed> own;
    std::vector<StormTransaction> done;
    std::string wrong;
    std::thread thread;
};

StormWriters::StormWriters(unsigned port, unsigned seed, unsigned feeds, unsigned changes) {
    for (unsigned i = 0; i < Writers; ++i) {
        writers_.push_back(std::make_unique<Writer>(port, seed, i, feeds, changes / Writers));
    }
}

StormWriters::~StormWriters() {
    Join();
}

void StormWriters::Start() {
    for (const auto& writer : writers_) {
        writer->thread = std::thread([&writer = *writer] {
            try {
                writer.Write();
            } catch (const std::exception& error) {
                writer.wrong = error.what();
            }
        });
    }
}

std::string StormWriters::Join() {
    std::string wrong;
    for (const auto& writer : writers_) {
        if (writer->thread.joinable()) writer->thread.join();
        wrong += writer->wrong;
    }
    return wrong;
}

std::vector<StormTransaction> StormWriters::Take() {
    std::vector<StormTransaction> all;
    for (const auto& writer : writers_) {
        all.insert(all.end(), std::make_move_iterator(writer->done.begin()),
                   std::make_move_iterator(writer->done.end()));
    }
    return all;
}

// --- the model ------------------------------------------------------------------------------------------------------

StormModel::StormModel(const SeenRows& begin, std::vector<StormTransaction> transactions) {
    for (const auto& [key, row] : begin) {
        if (key == std::string("PARAMETER ") + Parameter) {
            parameterId_ = row.id;
        } else if (key.starts_with("AUDIOFEED s")) {
            Feed& feed = feeds_[key.substr(10)];
            feed.id = row.id;
            feed.folder = feed.folders[0] = StormFolders[0];
        } else {
            others_[key] = row;
        }
    }
    std::sort(transactions.begin(), transactions.end(),
              [](const StormTransaction& left, const StormTransaction& right) { return left.number < right.number; });
    for (const StormTransaction& transaction : transactions) {
        const i64 expected = transactions.front().number + static_cast<i64>(signals_.size());
        if (transaction.number != expected && gaps_.empty()) {
            gaps_ = std::to_string(transaction.number) + " stands where " + std::to_string(expected) + " should";
        }
        Replay(transaction);
    }
}

void StormModel::Replay(const StormTransaction& transaction) {
    Orv::ApplyResult told;
    told.transaction = transaction.number;
    for (const Orv::Change& change : transaction.changes) {
        if (change.table == "PARAMETER") {
            parameter_ = *Column<std::string>(change, "value");
            ++parameterChanges_;
            told.changed.push_back({Orv::Parameter, parameterId_, "Updated", {}, {}, {}, {}});
            continue;
        }
        Feed& feed = feeds_.at(change.key);
        ++feed.changes;
        const bool rebuild = change.action == Orv::Action::Rebuild;
        if (const i32* number = Column<i32>(change, "maxannouncementpause")) feed.number = *number;
        if (const std::string* folder = Column<std::string>(change, "thename")) {
            feed.folder = *folder;
            ++feed.moves;
        }
        feed.folders[feed.number] = feed.folder;
        if (rebuild) {
            ++feed.rebuilds;
            feed.numberWhenRebuilt = feed.number;
        }
        told.changed.push_back({Orv::AudioFeed, feed.id, rebuild ? "Rebuilt" : "Updated", {}, {}, {}, {}});
    }
    signals_.push_back(ExpectedSignal(told));
}

SeenRows StormModel::Rows() const {
    SeenRows rows = others_;
    const Orv::Table& feeds = *Orv::FindTable("AUDIOFEED");
    for (const auto& [pipe, feed] : feeds_) {
        Orv::Row row;
        row.id = feed.id;
        row.values.resize(feeds.columns.size());
        const auto set = [&](const char* column, Orv::Value value) {
            row.values[static_cast<unsigned>(feeds.FindColumn(column))] = std::move(value);
        };
        set("pipename", pipe);
        set("thename", feed.folder);
        set("feedtype", SortedFolder);
        set("nonstop", i32{1});
        set("maxannouncementpause", feed.number);
        set("maxvolume", VolumeOf(feed.number));
        rows.insert(Seen(feeds, row));
    }
    const std::string value = parameterChanges_ == 0 ? "calm" : parameter_;
    rows.insert(Seen(*Orv::FindTable("PARAMETER"), {parameterId_, {std::string(Parameter), value}}));
    return rows;
}

std::map<std::string, unsigned> StormModel::ChangesOfRow() const {
    std::map<std::string, unsigned> changes{{std::string("PARAMETER ") + Parameter, parameterChanges_}};
    for (const auto& [pipe, feed] : feeds_) changes["AUDIOFEED " + pipe] = feed.changes;
    for (const auto& [key, row] : others_) changes[key] = 0;
    return changes;
}

std::map<std::string, std::pair<unsigned, unsigned>> StormModel::TimesBuilt() const {
    std::map<std::string, std::pair<unsigned, unsigned>> built;
    for (const auto& [pipe, feed] : feeds_) built[pipe] = {1 + feed.rebuilds, 1 + feed.rebuilds + feed.moves};
    for (const auto& [key, row] : others_) {
        if (key.starts_with("AUDIOFEED ")) built[key.substr(10)] = {1, 1};
    }
    return built;
}

std::string StormModel::CompareWithState(const std::string& json) const {
    const auto state = nlohmann::json::parse(json, nullptr, false);
    if (!state.is_object()) return "no state: " + json;
    std::map<std::string, nlohmann::json> seen;
    for (const auto& feed : state["feeds"]) seen[feed["row"]["pipename"].get<std::string>()] = feed;
    for (const auto& [pipe, feed] : feeds_) {
        const auto found = seen.find(pipe);
        if (found == seen.end()) return pipe + " is not there";
        const auto& row = found->second["row"];
        const i32 number = row["maxannouncementpause"].get<i32>();
        const auto built = feed.folders.find(number);
        const bool wasSuchARow = built != feed.folders.end() && built->second == feed.folder;
        if (row["idaudiofeed"] != feed.id || row["thename"] != feed.folder || !wasSuchARow ||
            number < feed.numberWhenRebuilt || found->second["max_volume"] != VolumeOf(feed.number)) {
            return pipe + " should be of " + feed.folder + ", built between " + std::to_string(feed.numberWhenRebuilt) +
                   " and " + std::to_string(feed.number) + ", and is " + found->second.dump();
        }
    }
    return "";
}

}  // namespace OrvTest
