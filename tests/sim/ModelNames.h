// Whose the pipes' names are. A name is found whatever the case of A to Z, and one feed serves it at a time: who comes
// later, under another case of it, tries in vain until the other one has gone.
#pragma once

#include <map>
#include <set>
#include <string>

#include "Platform/Types.h"

namespace OrvSim {

class ModelNames {
public:
    // Without case, as names are told apart.
    static std::string Fold(const std::string& name);

    // The next `times` tries to serve the name, under whatever case, fail with `error`.
    void Fail(const std::string& name, i32 error, u32 times);
    // The feed of this very name tries to serve it: 0 when it must succeed, otherwise the error that it must tell.
    i32 Try(const std::string& name);
    // The feed of this very name has gone.
    void Release(const std::string& name);

    u64 Clashes() const { return clashes_; }      // tries at a name that was another feed's
    u64 Takeovers() const { return takeovers_; }  // names that such a feed had in the end

private:
    struct Fault {
        i32 error = 0;
        u32 times = 0;
    };

    std::map<std::string, Fault> faults_;         // by folded name
    std::map<std::string, std::string> holders_;  // the very name, by folded name
    std::set<std::string> waiting_;               // very names that were another feed's when they were tried
    u64 clashes_ = 0;
    u64 takeovers_ = 0;
};

}  // namespace OrvSim
