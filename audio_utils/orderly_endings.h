#pragma once

#include <span>

#include "replaced_call.h"

namespace korva_audio_utils {

/// [any thread] All of exec. A process that becomes another program while a thread plays has not
/// died in a callback: the replacements tell the crash guard. They may be called by children of
/// vfork().
std::span<const ReplacedCall> orderlyEndingCalls();

}  // namespace korva_audio_utils
