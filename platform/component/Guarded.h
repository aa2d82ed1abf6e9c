#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <new>
#include <stdexcept>

namespace tqplatform {

/// Runs the body of a C function: no exception leaves it.
template <class Body>
OSStatus guarded(const Body& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return kAudio_MemFullError;
    } catch (const std::runtime_error&) {
        // A rate converter that cannot be made.
        return kAudioUnitErr_FormatNotSupported;
    } catch (...) {
        return kAudioUnitErr_FailedInitialization;
    }
}

}  // namespace tqplatform
