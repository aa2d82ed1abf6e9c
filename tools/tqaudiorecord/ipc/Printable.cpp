#include "ipc/Printable.h"

#include <cstddef>
#include <cstdint>

namespace tqrecorder {
namespace {

struct Letter {
    std::uint32_t code = 0;
    std::size_t bytes = 0;  ///< 0 when it is no UTF-8
};

Letter letterAt(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t bytes = lead < 0x80   ? 1
                              : lead < 0xC2 ? 0
                              : lead < 0xE0 ? 2
                              : lead < 0xF0 ? 3
                              : lead < 0xF5 ? 4
                                            : 0;
    if (bytes == 0 || bytes > text.size()) {
        return {};
    }
    std::uint32_t code = bytes == 1 ? lead : lead & (0x7FU >> bytes);
    for (const char next : text.substr(1, bytes - 1)) {
        const auto byte = static_cast<unsigned char>(next);
        if ((byte & 0xC0U) != 0x80U) {
            return {};
        }
        code = (code << 6U) | (byte & 0x3FU);
    }
    const bool isOverlong = (bytes == 3 && code < 0x800) || (bytes == 4 && code < 0x10000);
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return isOverlong || isSurrogate || code > 0x10FFFF ? Letter{} : Letter{code, bytes};
}

bool steers(std::uint32_t code) {
    const auto within = [code](std::uint32_t first, std::uint32_t last) {
        return code >= first && code <= last;
    };
    return code < 0x20 || within(0x7F, 0x9F) ||
           // Marks that turn the direction of writing, ends of lines and paragraphs.
           code == 0x061C || within(0x200E, 0x200F) || within(0x2028, 0x202E) ||
           within(0x2066, 0x2069);
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Letter letter = letterAt(text);
        if (letter.bytes == 0) {
            result += '?';
        } else if (steers(letter.code)) {
            result.append(letter.bytes, ' ');
        } else {
            result += text.substr(0, letter.bytes);
        }
        text.remove_prefix(letter.bytes == 0 ? 1 : letter.bytes);
    }
    return result;
}

}  // namespace tqrecorder
