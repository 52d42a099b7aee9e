// What a feed must sound like while its files break: each block is the next one of the file that plays, or what the log
// tells of it. Every silent sample is accounted for by what made it silent.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/e2e/Exchange.h"

namespace OrvTest {

// What the log tells of a feed's blocks, in their order: of each one that is not whole sound.
struct ToldBlock {
    std::string nextFile;    // not empty: the list had run out, the block is silent, and this file is due next
    std::size_t silent = 0;  // otherwise the samples at the end of the block that were not there
    bool late = false;       // since the disk was late; else since the file has ended
};

// Of a feed that a client has come to, from there on, at log level 3.
std::vector<ToldBlock> ToldBlocks(const std::vector<LogEntry>& log, const std::string& pipe);

// The blocks of a feed without announcements and a limit, from its content's first one on. Silent are the rest of a
// file's last block; one block behind it, if the last read of the file began in it, or with it if it was a whole one;
// the block that finds the list at its end; one for each bad file; and what the disk was late with. All else is heard.
class DueBlocks {
public:
    // All that may be in a file of that name; one may end earlier than it says.
    using Contents = std::function<std::vector<const Model::Bytes*>(const std::string& path)>;
    DueBlocks(std::vector<ToldBlock> told, Contents contents, const std::string& firstFile);

    // Whether this block may come now.
    bool Take(const Model::Block& block);

    // Where it stands, for a message.
    std::string Describe() const;

    // One turn of a file that is over.
    struct Turn {
        std::string file;
        std::size_t samples = 0;              // that were heard of it
        const Model::Bytes* whole = nullptr;  // the content that was heard to its end, null when none was
    };
    struct Seen {
        std::vector<Turn> turns;            // in their order
        std::vector<std::string> badFiles;  // of which nothing was heard, each with its one silent block
        std::size_t mostInARow = 0;         // of them
        std::size_t late = 0;               // samples that a late disk made silent
        std::size_t ends = 0;               // samples at the ends of files
    };
    const Seen& SoFar() const { return seen_; }

private:
    bool TakeSound(const Model::Block& block, std::size_t count);
    void Begin(const std::string& file);

    const std::vector<ToldBlock> told_;
    const Contents contents_;
    std::size_t next_ = 0;  // in told_
    std::string file_;
    std::vector<const Model::Bytes*> playing_;  // those that are what was heard of the file
    std::size_t position_ = 0;                  // of its next sample
    enum class End { NotYet, LastBlock, SilentBlock };
    End end_ = End::NotYet;     // what was taken of the file's end
    std::size_t lastLate_ = 0;  // samples told as late in the last block
    std::size_t inARow_ = 0;
    int ramp_ = 0;
    float gain_ = 0.0f;
    Seen seen_;
};

}  // namespace OrvTest
