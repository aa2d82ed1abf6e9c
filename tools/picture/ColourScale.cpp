#include "picture/ColourScale.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tqpicture {
namespace {

// Evenly spaced stops; between them colours are blended.
constexpr std::array<Colour, 9> kStops{{{4, 4, 12},
                                        {28, 16, 68},
                                        {79, 18, 123},
                                        {129, 37, 129},
                                        {181, 54, 122},
                                        {229, 80, 100},
                                        {251, 135, 97},
                                        {254, 194, 135},
                                        {252, 253, 191}}};

std::uint8_t blend(std::uint8_t from, std::uint8_t to, double share) {
    return static_cast<std::uint8_t>(std::lround(from + (to - from) * share));
}

}  // namespace

Colour levelColour(double level) {
    const double place = std::clamp(level, 0.0, 1.0) * (kStops.size() - 1);
    const auto index = std::min(static_cast<std::size_t>(place), kStops.size() - 2);
    const double share = place - static_cast<double>(index);
    const Colour& from = kStops[index];
    const Colour& to = kStops[index + 1];
    return {blend(from.red, to.red, share), blend(from.green, to.green, share),
            blend(from.blue, to.blue, share)};
}

}  // namespace tqpicture
