#include "picture/ColourScale.h"

#include <gtest/gtest.h>

namespace tqpicture {
namespace {

double brightness(const Colour& colour) {
    return 0.2126 * colour.red + 0.7152 * colour.green + 0.0722 * colour.blue;
}

TEST(LevelColour, GrowsBrighterWithTheLevel) {
    double last = -1;
    for (int step = 0; step <= 64; ++step) {
        const double now = brightness(levelColour(step / 64.0));
        EXPECT_GT(now, last) << step;
        last = now;
    }
}

TEST(LevelColour, ClampsLevelsOutsideTheScale) {
    EXPECT_EQ(brightness(levelColour(-3)), brightness(levelColour(0)));
    EXPECT_EQ(brightness(levelColour(7)), brightness(levelColour(1)));
}

}  // namespace
}  // namespace tqpicture
