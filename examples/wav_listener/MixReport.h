#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <span>

namespace demo {

/// Decibels relative to full scale; -infinity for silence.
[[nodiscard]] inline double toDecibels(double amplitude) {
    return 20 * std::log10(amplitude);
}

/// Peak and RMS of 16-bit samples, full scale is 1.
class LevelMeter {
  public:
    void add(std::span<const std::int16_t> samples) {
        for (const std::int16_t sample : samples) {
            peak_ = std::max(peak_, std::abs(int{sample}));
            squares_ += static_cast<double>(sample) * sample;
        }
        samples_ += samples.size();
    }
    [[nodiscard]] double peak() const { return peak_ / 32768.0; }
    [[nodiscard]] double rms() const {
        return samples_ == 0 ? 0 : std::sqrt(squares_ / static_cast<double>(samples_)) / 32768.0;
    }

  private:
    int peak_ = 0;
    double squares_ = 0;
    std::uint64_t samples_ = 0;
};

/// Looks for holes in a stream of stamped blocks: jumps of the time stamps, and blocks of nothing
/// but zeros between others.
class DropoutMeter {
  public:
    /// One block: its time stamp, its length, whether all its samples are zero.
    void add(std::uint64_t microseconds, double blockMicroseconds, bool isZero) {
        if (blocks_ > 0) {
            // Stamps follow a clock that is read anew for each block; half a block is no jitter.
            const double late = static_cast<double>(microseconds) - expected_;
            if (late > blockMicroseconds / 2) {
                ++gaps_;
                gapMicroseconds_ += late;
            } else if (late < -blockMicroseconds / 2) {
                ++backwardSteps_;
            }
        }
        expected_ = static_cast<double>(microseconds) + blockMicroseconds;
        ++blocks_;

        if (!isZero) {
            zeroBlocks_ += zeroBlocksSince_;
            zeroBlocksSince_ = 0;
            heard_ = true;
        } else if (heard_) {
            ++zeroBlocksSince_;
        }
    }
    [[nodiscard]] std::uint64_t blocks() const { return blocks_; }
    [[nodiscard]] std::uint64_t gaps() const { return gaps_; }
    [[nodiscard]] double gapMicroseconds() const { return gapMicroseconds_; }
    /// Stamps that fell back behind the end of the block before.
    [[nodiscard]] std::uint64_t backwardSteps() const { return backwardSteps_; }
    /// Blocks of zeros that lie between blocks with sound.
    [[nodiscard]] std::uint64_t zeroBlocks() const { return zeroBlocks_; }

  private:
    std::uint64_t blocks_ = 0;
    double expected_ = 0;
    std::uint64_t gaps_ = 0;
    double gapMicroseconds_ = 0;
    std::uint64_t backwardSteps_ = 0;
    bool heard_ = false;
    std::uint64_t zeroBlocks_ = 0;
    std::uint64_t zeroBlocksSince_ = 0;
};

}  // namespace demo
