// The lines that one thread must write for one feed, in order, as far as the level lets them be seen. Steps without a
// line, or with one that is not seen, take effect in their place.
#pragma once

#include <deque>
#include <functional>
#include <string>

#include "tests/sim/LogLevels.h"

namespace OrvSim {

struct ScriptStep {
    // Gives the line that must come, "<word>|<text>"; called once, when what the thread has drawn for it is known.
    std::function<std::string()> expected;
    // What happens then, or in its place for a step without a line.
    std::function<void()> then;
    bool prefixOnly = false;
    // In force when the thread comes to it; set by the script.
    LogLevels levels = {};
};

class LineScript {
public:
    explicit LineScript(const LogLevels& levels) : levels_(levels) {}

    void Expect(std::string line, bool prefixOnly = false) {
        steps_.push_back({[text = std::move(line)] { return text; }, {}, prefixOnly, levels_});
    }
    void Expect(ScriptStep step) {
        step.levels = levels_;
        steps_.push_back(std::move(step));
    }
    // Takes its effect as soon as all steps in front of it are done.
    void Do(std::function<void()> action) {
        steps_.push_back({{}, std::move(action), false, levels_});
        RunSilentSteps();
    }
    // Takes a line; false with what was expected when it is another one.
    bool Take(const std::string& line, std::string& wanted) {
        wanted = "no line";
        bool prefixOnly = false;
        std::function<void()> then;
        if (!NextSeen(wanted, then, prefixOnly)) return false;
        if (prefixOnly ? !line.starts_with(wanted) : line != wanted) {
            steps_.clear();  // whatever comes now has lost its place
            return false;
        }
        if (then) then();
        RunSilentSteps();
        return true;
    }
    // The thread is known to be past all of it: false with the first line that should have been seen and was not.
    bool Finish(std::string& missing) {
        std::function<void()> then;
        bool prefixOnly = false;
        if (!NextSeen(missing, then, prefixOnly)) return true;
        steps_.clear();
        return false;
    }

private:
    // Does all that is in front of the next line that is seen, and takes that one out.
    bool NextSeen(std::string& line, std::function<void()>& then, bool& prefixOnly) {
        while (!steps_.empty()) {
            const ScriptStep step = std::move(steps_.front());
            steps_.pop_front();
            std::string expected = step.expected ? step.expected() : std::string();
            if (step.expected && step.levels.Shows(expected)) {
                line = std::move(expected);
                then = step.then;
                prefixOnly = step.prefixOnly;
                return true;
            }
            if (step.then) step.then();
        }
        return false;
    }
    void RunSilentSteps() {
        while (!steps_.empty() && !steps_.front().expected) {
            const auto action = std::move(steps_.front().then);
            steps_.pop_front();
            action();
        }
    }

    const LogLevels& levels_;
    std::deque<ScriptStep> steps_;
};

}  // namespace OrvSim
