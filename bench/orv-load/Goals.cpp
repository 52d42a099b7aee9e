#include "bench/orv-load/Goals.h"

#include "bench/orv-load/Report.h"

namespace OrvLoad {

std::string GoalTable(const std::vector<Goal>& goals) {
    std::string text;
    for (const Goal& goal : goals) {
        text += (goal.met ? "met     " : "NOT MET ") + goal.what + "\n        goal:     " + goal.goal +
                "\n        measured: " + goal.measured + "\n";
    }
    return text;
}

std::string GoalMarkdown(const std::vector<Goal>& goals) {
    std::string text = "| What | Goal | Measured | |\n|---|---|---|---|\n";
    for (const Goal& goal : goals) {
        text += "| " + goal.what + " | " + goal.goal + " | " + goal.measured + " | " + (goal.met ? "met" : "not met") +
                " |\n";
    }
    return text;
}

}  // namespace OrvLoad
