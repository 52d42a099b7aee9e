// Puts a source on a pipe, in real time.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Tools/orv-publish/Broadcast.h"
#include "Tools/orv-publish/Source.h"

namespace Orv {

struct PublishPlan {
    bool pace = true;            // false: the source keeps the time
    bool waitForClient = false;  // the source begins when the first client has come
};

// Runs until the source has ended and the clients have had everything (they get two seconds for it), or until `stop`,
// which may be set from any thread. The source is read at its pace whether anybody listens or not. Gives the source's
// result; 0 when it was stopped. Everything happens on the calling thread, each 20 ms.
i32 RunPublisher(Broadcast& broadcast, ISource& source, const PublishPlan& plan, const std::atomic<bool>& stop);

// Takes the name of a pipe; null when it cannot be had, with what to do told.
std::unique_ptr<Broadcast> OpenBroadcast(const std::string& name, const TellFunction& tell);

// What stands behind "\\.\pipe\"; other names stay as they are.
std::string BarePipeName(const std::string& name);

}  // namespace Orv
