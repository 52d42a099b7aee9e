// The live sources in use, shared by all who play them. Names are pipe paths and compare exactly.
#pragma once

#include "Projects/Common/VoIPFileEngine/PipeMusicBox.h"

namespace Orv {

// The box of that name; the first to ask builds it. Null when the name is no pipe's ("\\" and 7 more characters at
// least) or the box has no thread; otherwise to be given back by ReleasePipeBox(). Any thread; never waits for the
// source, and holds no lock while it builds.
MTObjects::THolder<IPipeMusicBox> AcquirePipeBox(const char* name);
// Gives one use of the name back, whoever's it was; a name that is not in use changes nothing. Who still holds the box
// keeps it. Any thread.
void ReleasePipeBox(const char* name);
// Takes the lock of the live sources for a moment: for who looks whether it can be had. Any thread.
void TakePipeBoxLock();

}  // namespace Orv
