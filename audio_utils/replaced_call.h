#pragma once

namespace korva_audio_utils {

/// A function of the C library, what runs in its place, and where the function that ran before is
/// to be kept; null where it is not asked for.
struct ReplacedCall {
    const char* name;
    void* replacement;
    void** saved;
};

}  // namespace korva_audio_utils
