#include "tests/sim/ModelNames.h"

#include <cerrno>

namespace OrvSim {

std::string ModelNames::Fold(const std::string& name) {
    std::string folded = name;
    for (char& letter : folded) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    }
    return folded;
}

void ModelNames::Fail(const std::string& name, i32 error, u32 times) {
    faults_[Fold(name)] = {error, times};
}

i32 ModelNames::Try(const std::string& name) {
    const std::string folded = Fold(name);
    Fault& fault = faults_[folded];
    if (fault.times != 0) {
        --fault.times;
        return fault.error;
    }
    const std::string& holder = holders_.try_emplace(folded, name).first->second;
    if (holder != name) {
        ++clashes_;
        waiting_.insert(name);
        return EADDRINUSE;
    }
    takeovers_ += waiting_.erase(name);
    return 0;
}

void ModelNames::Release(const std::string& name) {
    waiting_.erase(name);
    const auto holder = holders_.find(Fold(name));
    if (holder != holders_.end() && holder->second == name) holders_.erase(holder);
}

}  // namespace OrvSim
