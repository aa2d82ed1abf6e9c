#include <cstdint>

#include "picture/Drawing.h"

namespace tqpicture {

std::string printable(const std::string& text) {
    std::string result;
    for (std::size_t index = 0; index < text.size();) {
        const auto lead = static_cast<unsigned char>(text[index]);
        const std::size_t length = lead < 0x80   ? 1
                                   : lead < 0xC2 ? 0
                                   : lead < 0xE0 ? 2
                                   : lead < 0xF0 ? 3
                                   : lead < 0xF5 ? 4
                                                 : 0;
        bool good = length > 0 && index + length <= text.size() && lead >= 0x20 && lead != 0x7F;
        std::uint32_t code = length > 1 ? lead & (0x7FU >> length) : lead;
        for (std::size_t next = 1; good && next < length; ++next) {
            const auto byte = static_cast<unsigned char>(text[index + next]);
            good = (byte & 0xC0U) == 0x80U;
            code = (code << 6U) | (byte & 0x3FU);
        }
        // Overlong forms, surrogates and what lies beyond Unicode.
        good = good && !(length == 3 && code < 0x800) && !(length == 4 && code < 0x10000) &&
               !(code >= 0xD800 && code <= 0xDFFF) && code <= 0x10FFFF;
        if (good) {
            result.append(text, index, length);
            index += length;
        } else {
            result += '?';
            ++index;
        }
    }
    return result;
}

}  // namespace tqpicture
