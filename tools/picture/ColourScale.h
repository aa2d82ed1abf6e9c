#pragma once

#include <cstdint>

namespace tqpicture {

struct Colour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
};

/// The colour of a level from 0 (nothing, nearly black) to 1 (full scale, pale yellow). Brightness
/// grows steadily along the scale, so that it reads in grey as well. Values outside are clamped.
[[nodiscard]] Colour levelColour(double level);

}  // namespace tqpicture
