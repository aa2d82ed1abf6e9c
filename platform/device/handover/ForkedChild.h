#pragma once

#include <unistd.h>

namespace tqplatform {

/// A thread of a child that has nothing more to do there: its callback, or a handler of the
/// program, has forked, and what it came from is the parent's.
[[noreturn]] inline void restInChild() noexcept {
    while (true) {
        pause();
    }
}

}  // namespace tqplatform
