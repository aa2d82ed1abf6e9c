#pragma once

#include <string>
#include <vector>

#include "picture/Picture.h"

namespace tqpicture {

struct Tick {
    double value = 0;
    std::string label;
};

/// Round values (1, 2 or 5 times a power of ten apart) from 0 to `end`, at most `most` steps, each
/// with as many decimals as its step needs. Empty unless `end` is positive and finite.
[[nodiscard]] std::vector<Tick> linearTicks(double end, int most);

/// Frequency for people: "50", "200", "1k", "2.5k".
[[nodiscard]] std::string frequencyLabel(double hertz);

/// Smallest round value (1, 2 or 5 times a power of ten) that is not below `value`.
[[nodiscard]] double roundUp(double value);

/// Maps the rows of a spectrogram (row 0 at the top) to frequencies and back.
class FrequencyScale {
  public:
    /// From 0 (linear) or about 30 Hz (logarithmic) to `topHertz`, over `rows` rows. An axis too
    /// low for decades is linear whatever was asked for.
    FrequencyScale(FrequencyAxis axis, double topHertz, int rows);

    [[nodiscard]] int rows() const { return rows_; }
    /// Frequency at `position`, counted in rows from the top: 0 is topHertz, rows() the bottom.
    [[nodiscard]] double hertzAt(double position) const;
    /// The inverse; may lie outside 0 to rows() for frequencies off the axis.
    [[nodiscard]] double positionOf(double hertz) const;
    /// Labelled round frequencies on the axis, no more than fit `rows`.
    [[nodiscard]] std::vector<Tick> ticks() const;

  private:
    bool logarithmic_;
    double top_;
    double bottom_;
    int rows_;
};

}  // namespace tqpicture
