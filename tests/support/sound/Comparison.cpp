#include "Comparison.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string_view>

namespace tqtest {
namespace {

/// So many frames in a row tell where they come from.
constexpr std::size_t kMark = 16;
constexpr std::size_t kMost = 10;
/// Larger than any difference of samples.
constexpr double kNotComparable = 99;

std::string_view framesOf(const Sound& sound, std::size_t from, std::size_t count) {
    const std::size_t size = sound.format.bytesPerFrame();
    return std::string_view(sound.bytes).substr(from * size, count * size);
}

/// The frame at or behind `from` where `mark` begins in the sound; its length when nowhere.
std::size_t find(std::string_view mark, const Sound& sound, std::size_t from) {
    const std::size_t size = sound.format.bytesPerFrame();
    std::size_t at = from * size;
    while ((at = sound.bytes.find(mark, at)) != std::string::npos) {
        if (at % size == 0) {
            return at / size;
        }
        ++at;
    }
    return sound.frames();
}

std::string said(std::size_t count, const std::string& what, std::size_t wantedAt,
                 std::size_t gotAt) {
    return std::to_string(count) + " frames " + what + " at frame " + std::to_string(gotAt) +
           ", where " + std::to_string(wantedAt) + " is due";
}

class Walk {
  public:
    Walk(const Sound& wanted, const Sound& got) : wanted_(wanted), got_(got) {}

    std::vector<std::string> run() {
        while (wantedAt_ < wanted_.frames() && gotAt_ < got_.frames() && found_.size() < kMost) {
            if (wanted_.frame(wantedAt_) == got_.frame(gotAt_)) {
                ++wantedAt_;
                ++gotAt_;
            } else {
                explain();
            }
        }
        if (found_.size() < kMost && wantedAt_ < wanted_.frames()) {
            found_.push_back(
                said(wanted_.frames() - wantedAt_, "missing at the end", wantedAt_, gotAt_));
        }
        if (found_.size() < kMost && gotAt_ < got_.frames()) {
            found_.push_back(
                said(got_.frames() - gotAt_, "too many at the end", wantedAt_, gotAt_));
        }
        return std::move(found_);
    }

  private:
    /// At a difference: goes to where both agree again.
    void explain() {
        const std::size_t later = find(framesOf(got_, gotAt_, kMark), wanted_, 0);
        if (got_.frames() - gotAt_ >= kMark && later < wanted_.frames() && later > wantedAt_) {
            found_.push_back(said(later - wantedAt_, "missing", wantedAt_, gotAt_));
            wantedAt_ = later;
            return;
        }
        if (got_.frames() - gotAt_ >= kMark && later < wantedAt_) {
            found_.push_back(said(wantedAt_ - later, "played before return", wantedAt_, gotAt_));
            wantedAt_ = later;
            return;
        }
        const std::size_t back = find(framesOf(wanted_, wantedAt_, kMark), got_, gotAt_);
        if (wanted_.frames() - wantedAt_ >= kMark && back < got_.frames()) {
            const Sound between = got_.part(gotAt_, back - gotAt_);
            const bool isSilence = between.silenceAtStart() == between.frames();
            found_.push_back(said(back - gotAt_, isSilence ? "of silence inserted" : "inserted",
                                  wantedAt_, gotAt_));
            gotAt_ = back;
            return;
        }
        std::size_t changed = 0;
        while (wantedAt_ < wanted_.frames() && gotAt_ < got_.frames() &&
               wanted_.frame(wantedAt_) != got_.frame(gotAt_)) {
            ++changed;
            ++wantedAt_;
            ++gotAt_;
        }
        found_.push_back(said(changed, "changed", wantedAt_ - changed, gotAt_ - changed));
    }

    const Sound& wanted_;
    const Sound& got_;
    std::size_t wantedAt_ = 0;
    std::size_t gotAt_ = 0;
    std::vector<std::string> found_;
};

}  // namespace

std::vector<std::string> differences(const Sound& wanted, const Sound& got) {
    if (wanted.format != got.format) {
        return {"other format: " + std::to_string(got.format.rate) + " Hz, " +
                std::to_string(got.format.channels) + " channels, " +
                std::string(pulseName(got.format.encoding)) + " instead of " +
                std::to_string(wanted.format.rate) + " Hz, " +
                std::to_string(wanted.format.channels) + " channels, " +
                std::string(pulseName(wanted.format.encoding))};
    }
    return Walk(wanted, got).run();
}

double largestDifference(const Sound& wanted, const Sound& got, double level, std::size_t from) {
    if (wanted.frames() != got.frames() || wanted.format.channels != got.format.channels) {
        return kNotComparable;
    }
    double largest = 0;
    const auto channels = static_cast<std::size_t>(wanted.format.channels);
    for (std::size_t i = from * channels; i < wanted.frames() * channels; ++i) {
        const double due = wanted.value(i / channels, i % channels) * level;
        largest = std::max(largest, std::abs(due - got.value(i / channels, i % channels)));
    }
    return largest;
}

std::size_t beginningOf(const Sound& wanted, const Sound& got) {
    const std::size_t skipped = wanted.silenceAtStart();
    const std::size_t at = find(framesOf(wanted, skipped, kMark), got, 0);
    return at < skipped || at == got.frames() ? got.frames() : at - skipped;
}

Sound alignedTo(const Sound& wanted, const Sound& got) {
    return got.part(beginningOf(wanted, got), wanted.frames());
}

}  // namespace tqtest
