#pragma once

#include <Foundation/NSException.h>
#include <audio_hook_config.h>

#include "RZLogSite.h"

/// [any thread] Runs the library's own share of a call that the host made. What it throws (lack of
/// memory, in practice) is logged and does not reach the host, whose call goes on. NO when it
/// threw.
template <class Body>
BOOL RZGuarded(const RZLogSite& site, const Body& body) {
    if (NSCallGuarded(body)) {
        return YES;
    }
    NSCallGuarded([&] { site.log(4, "exception caught, the host's call goes on without us"); });
    return NO;
}

/// [any thread] The same for a road outside the intercepted render callbacks, which mark
/// themselves: the crash guard knows that a thread of the host is in here.
template <class Body>
BOOL RZRoadGuarded(const RZLogSite& site, const Body& body) {
    const korva_audio_utils::AudioHookRoadGuard road;
    return RZGuarded(site, body);
}
