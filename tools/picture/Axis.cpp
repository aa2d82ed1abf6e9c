#include "picture/Axis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace tqpicture {
namespace {

constexpr double kLogarithmicBottomHertz = 30;
constexpr double kRowsPerLabel = 26;  // a label and the space around it

double powerOfTenBelow(double value) {
    return std::pow(10.0, std::floor(std::log10(value)));
}

std::string formatted(const char* format, int decimals, double value) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, decimals, value);
    return text.data();
}

}  // namespace

double roundUp(double value) {
    if (!(value > 0) || !std::isfinite(value)) {
        return 1;
    }
    const double decade = powerOfTenBelow(value);
    for (const double factor : {1.0, 2.0, 5.0}) {
        // The tolerance keeps 0.2 / 0.1 from climbing to the next step.
        if (value <= factor * decade * (1 + 1e-9)) {
            return factor * decade;
        }
    }
    return 10 * decade;
}

std::vector<Tick> linearTicks(double end, int most) {
    std::vector<Tick> ticks;
    if (!(end > 0) || !std::isfinite(end) || most < 1) {
        return ticks;
    }
    const double step = roundUp(end / most);
    const int decimals = std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)));
    for (int index = 0; index * step <= end * (1 + 1e-9); ++index) {
        ticks.push_back({index * step, formatted("%.*f", decimals, index * step)});
    }
    return ticks;
}

std::string frequencyLabel(double hertz) {
    if (hertz < 1000) {
        const bool whole = std::abs(hertz - std::round(hertz)) < 0.005;
        return formatted("%.*f", whole ? 0 : 2, hertz);
    }
    const double kilohertz = hertz / 1000;
    const bool whole = std::abs(kilohertz - std::round(kilohertz)) < 0.005;
    return formatted("%.*f", whole ? 0 : 1, kilohertz) + "k";
}

FrequencyScale::FrequencyScale(FrequencyAxis axis, double topHertz, int rows)
    : logarithmic_(axis == FrequencyAxis::kLogarithmic && topHertz > 4 * kLogarithmicBottomHertz),
      top_(topHertz),
      bottom_(logarithmic_ ? kLogarithmicBottomHertz : 0),
      rows_(rows) {
}

double FrequencyScale::hertzAt(double position) const {
    const double fromBottom = 1 - position / rows_;
    if (logarithmic_) {
        return bottom_ * std::pow(top_ / bottom_, fromBottom);
    }
    return top_ * fromBottom;
}

double FrequencyScale::positionOf(double hertz) const {
    if (logarithmic_) {
        const double safe = std::max(hertz, 1e-3);
        return rows_ * (1 - std::log(safe / bottom_) / std::log(top_ / bottom_));
    }
    return rows_ * (1 - hertz / top_);
}

std::vector<Tick> FrequencyScale::ticks() const {
    if (!logarithmic_) {
        std::vector<Tick> ticks =
            linearTicks(top_, std::max(1, static_cast<int>(rows_ / kRowsPerLabel)));
        for (Tick& tick : ticks) {
            tick.label = frequencyLabel(tick.value);
        }
        return ticks;
    }
    std::vector<Tick> ticks;
    double lastPosition = rows_ + kRowsPerLabel;
    for (double decade = powerOfTenBelow(bottom_); decade <= top_; decade *= 10) {
        for (const double factor : {1.0, 2.0, 5.0}) {
            const double value = decade * factor;
            const double position = positionOf(value);
            if (value >= bottom_ && value <= top_ && lastPosition - position >= kRowsPerLabel) {
                ticks.push_back({value, frequencyLabel(value)});
                lastPosition = position;
            }
        }
    }
    return ticks;
}

}  // namespace tqpicture
