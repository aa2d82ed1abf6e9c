#pragma once

#include <span>

namespace korva_audio_utils {

/// A call that turns the process into another program, what runs in its place, and where the
/// function that ran before is to be kept; null where it is not asked for.
struct EndingCall {
    const char* name;
    void* replacement;
    void** saved;
};

/// [any thread] All of exec. A process that becomes another program while a thread plays has not
/// died in a callback: the replacements tell the crash guard. They may be called by children of
/// vfork().
std::span<const EndingCall> orderlyEndingCalls();

}  // namespace korva_audio_utils
