#pragma once

#include <array>
#include <string_view>

#include "core/SoundLibraries.h"

namespace tqrecorder {

/// Sound servers and buses, by the beginnings of their names, which the system cuts after 15 bytes.
inline constexpr std::array<std::string_view, 9> kServices{
    "pulseaudio", "pipewire",    "wireplumber",     "jackd",          "jackdbus",
    "dbus-",      "at-spi-bus-", "at-spi2-registr", "xdg-dbus-proxy",
};

/// Whether a program of that name serves others and outlives them. What it plays its clients have
/// played already.
[[nodiscard]] constexpr bool isService(std::string_view name) {
    return beginsWithOneOf(name, kServices);
}

}  // namespace tqrecorder
