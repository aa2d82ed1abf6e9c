#pragma once

#include <Foundation/NSException.h>

#include "RZLogSite.h"

/// Runs the library's own share of a call that the host made. Nothing that it throws (there is
/// hardly more than lack of memory to throw) reaches the host, whose call goes on without it. NO
/// when it threw.
template <class Body>
BOOL RZGuarded(const RZLogSite& site, const Body& body) {
    if (NSCallGuarded(body)) {
        return YES;
    }
    NSCallGuarded([&] { site.log(4, "exception caught, the host's call goes on without us"); });
    return NO;
}
