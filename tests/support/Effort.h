// How hard a test tries: with every run of the tests, or with the long ones (`./test.sh --long` sets ORV_LONG).
#pragma once

#include <cstdlib>

namespace OrvTest {

inline int Effort(int everyRun, int longRun) {
    return std::getenv("ORV_LONG") != nullptr ? longRun : everyRun;
}

}  // namespace OrvTest
