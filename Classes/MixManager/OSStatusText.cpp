#include "OSStatusText.h"

#include <algorithm>

std::string CheckError(OSStatus status) {
    if (status == 0) {
        return {};
    }
    const auto bits = static_cast<UInt32>(status);
    std::string characters;
    for (int shift = 24; shift >= 0; shift -= 8) {
        characters += static_cast<char>((bits >> shift) & 0xFF);
    }
    // Not isprint(): the answer must not depend on the host's locale.
    const bool isPrintable = std::all_of(characters.begin(), characters.end(),
                                         [](char c) { return c >= 0x20 && c <= 0x7E; });
    return isPrintable ? "'" + characters + "'" : std::to_string(status);
}
