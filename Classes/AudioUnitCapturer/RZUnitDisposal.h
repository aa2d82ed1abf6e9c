#pragma once

#include "RZHookSet.h"

/// A replacement of AudioComponentInstanceDispose, for programs that dispose of initialised units:
/// a unit that still has its capture object is uninitialised first, as the program would have done,
/// so that its track number is free again. Not among the library's own sets: it is started when
/// somebody asks for it.
extern constinit RZHookSet RZDisposalHooks;
