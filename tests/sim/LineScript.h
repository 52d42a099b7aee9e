// The lines that one thread must write for one feed, in order. Steps without a line take effect in their place.
#pragma once

#include <deque>
#include <functional>
#include <string>

namespace OrvSim {

struct ScriptStep {
    // Gives the line that must come, "<word>|<text>"; called when it has come, with that line.
    std::function<std::string(const std::string& line)> expected;
    // What happens then, or at once for a step without a line.
    std::function<void()> then;
    bool prefixOnly = false;
};

class LineScript {
public:
    void Expect(std::string line, bool prefixOnly = false) {
        steps_.push_back({[text = std::move(line)](const std::string&) { return text; }, {}, prefixOnly});
    }
    void Expect(ScriptStep step) { steps_.push_back(std::move(step)); }
    // Takes its effect as soon as all steps in front of it are done.
    void Do(std::function<void()> action) {
        steps_.push_back({{}, std::move(action), false});
        RunSilentSteps();
    }
    bool Empty() const { return steps_.empty(); }
    void Clear() { steps_.clear(); }
    // The line that is waited for, as far as it can be told.
    std::string Missing() const { return steps_.empty() ? "nothing" : steps_.front().expected(""); }
    // Takes a line; false with what was expected when it is another one.
    bool Take(const std::string& line, std::string& wanted) {
        wanted = "no line";
        if (steps_.empty()) return false;
        const ScriptStep step = std::move(steps_.front());
        steps_.pop_front();
        wanted = step.expected(line);
        if (step.prefixOnly ? !line.starts_with(wanted) : line != wanted) {
            steps_.clear();  // whatever comes now has lost its place
            return false;
        }
        if (step.then) step.then();
        RunSilentSteps();
        return true;
    }

private:
    void RunSilentSteps() {
        while (!steps_.empty() && !steps_.front().expected) {
            const auto action = std::move(steps_.front().then);
            steps_.pop_front();
            action();
        }
    }

    std::deque<ScriptStep> steps_;
};

}  // namespace OrvSim
