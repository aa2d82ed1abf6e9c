#pragma once

#include <algorithm>
#include <limits>

namespace tqcommon {

/// How much of what lies between one who brings sound and one who takes it nobody has needed for a
/// while: that much is given up, slowly. Where it was needed after all, the next while is twice as
/// long. Frames throughout. [render thread] [real-time safe]
class SpareSound {
  public:
    /// `least` frames are never spare.
    SpareSound(double sampleRate, double least)
        : least_(least),
          worth_(kWorthSeconds * sampleRate),
          patience_(kShortestSeconds * sampleRate),
          longest_(kLongestSeconds * sampleRate) {}

    /// All is seen anew: the sound begins.
    void restart() noexcept {
        lowest_ = kNone;
        watched_ = 0;
        spare_ = 0;
        hasGiven_ = false;
    }
    /// Somebody was late, or nearly.
    void late() noexcept {
        if (hasGiven_) {
            patience_ = std::min(2 * patience_, longest_);
        }
        restart();
    }
    /// Behind a read of `frames` that left so many: how many of them are to go meanwhile.
    [[nodiscard]] double give(double frames, double left) noexcept {
        lowest_ = std::min(lowest_, left);
        watched_ += frames;
        if (watched_ >= patience_) {
            const double spare = lowest_ - least_;
            spare_ = spare >= worth_ ? spare : 0;
            lowest_ = kNone;
            watched_ = 0;
        }
        const double given = std::min(spare_, kGiving * frames);
        spare_ -= given;
        hasGiven_ = hasGiven_ || given > 0;
        return given;
    }

  private:
    static constexpr double kNone = std::numeric_limits<double>::infinity();
    /// What is late each few seconds is met in it.
    static constexpr double kShortestSeconds = 10;
    static constexpr double kLongestSeconds = 640;
    /// For less the samples are not touched.
    static constexpr double kWorthSeconds = 0.001;
    /// As much faster it is read: no ear hears it.
    static constexpr double kGiving = 0.001;

    const double least_;
    const double worth_;
    double patience_;
    const double longest_;
    double lowest_ = kNone;  ///< left, since it is watched
    double watched_ = 0;
    double spare_ = 0;
    bool hasGiven_ = false;  ///< since somebody was late
};

}  // namespace tqcommon
