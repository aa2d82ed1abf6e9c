#pragma once

#include <algorithm>
#include <array>
#include <string_view>

// What a program that makes sound is known by: the libraries that it is linked against or opens.

namespace tqrecorder {

inline constexpr std::array<std::string_view, 2> kPlatformLibraries{"libtqplatform.so",
                                                                    "libTQAudioRecord.so"};

/// Libraries through which programs play. The second half open one of the first when they are
/// needed, so that a program that is linked against them names none of those.
inline constexpr std::array<std::string_view, 21> kSoundLibraries{
    "libasound.so",        "libpulse.so",
    "libpulse-simple.so",  "libpipewire-0.3.so",
    "libjack.so",          "libSDL-1.2.so",
    "libSDL2-2.0.so",      "libSDL3.so",
    "libopenal.so",        "libao.so",
    "libout123.so",        "libportaudio.so",
    "libcanberra.so",      "libgstreamer-1.0.so",
    "libvlc.so",           "libmpv.so",
    "libQt5Multimedia.so", "libsox.so",
    "libQt6Multimedia.so", "libphonon4qt",
    "libxine.so"};

template <std::size_t Count>
[[nodiscard]] constexpr bool beginsWithOneOf(std::string_view name,
                                             const std::array<std::string_view, Count>& list) {
    return std::any_of(list.begin(), list.end(),
                       [name](std::string_view one) { return name.starts_with(one); });
}

[[nodiscard]] constexpr std::string_view withoutFolders(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// Whether a library of that file name is one that is recorded through.
[[nodiscard]] constexpr bool isSoundLibrary(std::string_view name) {
    return beginsWithOneOf(name, kSoundLibraries) || beginsWithOneOf(name, kPlatformLibraries);
}

}  // namespace tqrecorder
