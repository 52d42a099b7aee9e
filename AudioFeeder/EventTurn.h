// The turns of the configuration events.
#pragma once

namespace Orv {

// Held for the whole of each event that the dispatcher takes up, and of UpdateFeed, ShutdownFeed, the announcement
// operations, ReloadAll, StopAll and whatever changes the default set: an event that comes while another one runs waits
// for it, and the operations may call each other. No pump and no music box ever holds or wants a turn, so one may be
// held while their threads are joined. A turn comes before every other lock.
class EventTurn {
public:
    EventTurn();
    ~EventTurn();
    EventTurn(const EventTurn&) = delete;
    EventTurn& operator=(const EventTurn&) = delete;
};

}  // namespace Orv
