#include "AudioFeeder/EventTurn.h"

#include "Platform/Sync.h"

namespace Orv {

namespace {

Platform::RecursiveMutex& TurnMutex() {
    static Platform::RecursiveMutex* const mutex = new Platform::RecursiveMutex;
    return *mutex;
}

}  // namespace

EventTurn::EventTurn() ORV_NO_THREAD_SAFETY_ANALYSIS {
    TurnMutex().Lock();
}

EventTurn::~EventTurn() ORV_NO_THREAD_SAFETY_ANALYSIS {
    TurnMutex().Unlock();
}

}  // namespace Orv
