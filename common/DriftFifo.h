#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "common/RealTime.h"
#include "common/SincKernel.h"
#include "common/SpareSound.h"

namespace tqcommon {

/// Sound from one thread to another whose clock is not the same: a microphone's and the one that
/// plays, a recorded program's and a sound server's. They differ by some parts in a million: what
/// is in hand is kept the same by reading a little faster or slower, so that nothing is ever lost
/// or made up. While the clocks agree samples pass as they are.
///
/// Invariant: `written_ - read_` frames are in the ring, at most its size. Writer: the thread that
/// brings the sound, which publishes frames by releasing `written_`. Reader: the thread that takes
/// it, which gives room back by releasing `read_`. Everything else is the reader's.
class DriftFifo {
  public:
    /// For how long who was late is waited for.
    enum class Patience {
        kForGood,    ///< a hole, or anything left out, costs more than being late does
        kForAWhile,  ///< being late costs as well: what nobody needs any more is given up
    };
    /// `inHand` frames lie between both, about what either takes at a time. Where a read leaves
    /// less than `least` of them, more are kept in hand from then on: who is later next time finds
    /// them. Throws std::bad_alloc.
    DriftFifo(std::uint32_t channels, double sampleRate, std::uint32_t inHand,
              std::uint32_t least = 0, Patience patience = Patience::kForGood);

    /// [any thread, one at a time] [real-time safe] Frames of `channels` samples; what does not fit
    /// is dropped.
    void write(const float* samples, std::uint32_t frames) noexcept TQ_NONBLOCKING;
    /// [render thread] [real-time safe] The next frames; silence until there is enough in hand.
    void read(float* samples, std::uint32_t frames) noexcept TQ_NONBLOCKING;
    /// [render thread] [real-time safe] What is in hand is old: the next read begins anew.
    void forget() noexcept TQ_NONBLOCKING;
    /// [any thread] [real-time safe] The next read() drops what is held and begins anew.
    void restart() noexcept { isToRestart_.store(true, std::memory_order_relaxed); }

    /// [any thread, the one that writes] How many frames were ever brought.
    [[nodiscard]] std::uint64_t written() const noexcept {
        return written_.load(std::memory_order_relaxed);
    }
    /// [render thread] [real-time safe] Behind a read() of so many frames: the number of the first,
    /// as they were written; where that was silence, of the one in whose place it was.
    [[nodiscard]] double firstOf(std::uint32_t frames) const noexcept TQ_NONBLOCKING;

    /// [render thread] How often it ran dry or full behind its start.
    [[nodiscard]] std::uint32_t faults() const noexcept { return faults_; }
    /// [render thread] Frames read for each frame that is given.
    [[nodiscard]] double ratio() const noexcept { return ratio_; }

  private:
    static constexpr std::uint32_t kTaps = SincKernel::kTaps;
    static constexpr double kRingSeconds = 1;
    /// At low rates it holds the largest request and what is in hand all the same.
    static constexpr std::uint32_t kSmallestRing = 32768;
    /// What is in hand goes up and down with each request; its mean is taken over so long.
    static constexpr double kMeanSeconds = 2;
    /// Behind the read that leaves the fewest that is no more than it needs.
    static constexpr double kSpareSeconds = 0.002;
    /// Within it clocks count as equal.
    static constexpr double kEqualSeconds = 0.002;
    /// What is too much or too little beyond that is made up for within so long.
    static constexpr double kSteerSeconds = 4;
    /// No two clocks differ by more.
    static constexpr double kMostSteering = 0.002;
    /// More than that is no drift either: it has piled up while the reader was late.
    static constexpr double kPiledUpSeconds = 0.05;
    /// What has piled up is made up for within so long, a hundredth faster at the most: an ear that
    /// hears that hears holes more.
    static constexpr double kHasteSeconds = 8;
    static constexpr double kMostHaste = 0.01;
    /// As much slower it reads to have more in hand.
    static constexpr double kGaining = 0.001;
    /// So near to a frame that was written it is that one.
    static constexpr double kOnFrame = 1e-6;
    /// Further away than that it is no drift: one of both stood still.
    static constexpr double kLostSeconds = 0.25;
    /// Who stood still once is waited for by so much: all of it would be heard for minutes.
    static constexpr double kMostAtOnceSeconds = 0.01;
    /// What is later than that is heard with holes.
    static constexpr double kMostInHandSeconds = 0.1;

    [[nodiscard]] std::uint64_t held() const noexcept {
        return written_.load(std::memory_order_acquire) - read_.load(std::memory_order_relaxed);
    }
    [[nodiscard]] std::uint64_t needed(std::uint32_t frames) const noexcept {
        return static_cast<std::uint64_t>(std::ceil(frames * ratio_ + phase_)) + kTaps;
    }
    [[nodiscard]] double room() const noexcept {
        return std::max(0.0, kMostInHandSeconds * sampleRate_ - inHand_);
    }
    void skip(double frames) noexcept {
        read_.store(read_.load(std::memory_order_relaxed) + static_cast<std::uint64_t>(frames),
                    std::memory_order_release);
    }
    void begin(std::uint32_t frames) noexcept;
    void resume(std::uint32_t frames) noexcept;
    [[nodiscard]] std::uint32_t runDry(std::uint32_t frames) noexcept;
    void steer(std::uint32_t frames) noexcept;
    [[nodiscard]] double drift() const noexcept;
    [[nodiscard]] double gain(std::uint32_t frames, double left) noexcept;
    [[nodiscard]] double shed(std::uint32_t frames, double left) noexcept;
    void keep(double more) noexcept;
    void settle() noexcept;
    void give(float* frame) noexcept;

    const std::uint32_t channels_;
    const double sampleRate_;
    const std::uint32_t size_;  ///< frames
    std::vector<float> ring_;
    const SincKernel kernel_;
    std::atomic<std::uint64_t> written_{0};
    std::atomic<std::uint64_t> read_{0};
    std::atomic<bool> isToRestart_{false};  ///< set by restart(), taken by the reader

    const Patience patience_;
    const double least_;  ///< behind a read
    const double firstInHand_;
    double inHand_;             ///< when it begins to flow
    double usual_ = 0;          ///< mean in hand of the first seconds of the flow
    double mean_ = 0;           ///< the same of the last seconds
    std::uint64_t flowed_ = 0;  ///< frames
    double owed_ = 0;           ///< frames that are to be in hand besides
    double ratio_ = 1;
    double phase_ = 0;  ///< of the next frame, between two that were written
    bool isFlowing_ = false;
    bool isLate_ = false;  ///< ran dry, and goes on where it did unless it was a pause
    SpareSound spare_;
    std::uint64_t dryFor_ = 0;  ///< frames of silence since it ran dry
    std::uint32_t faults_ = 0;
};

inline DriftFifo::DriftFifo(std::uint32_t channels, double sampleRate, std::uint32_t inHand,
                            std::uint32_t least, Patience patience)
    : channels_(channels),
      sampleRate_(sampleRate),
      size_(std::max(std::bit_ceil(static_cast<std::uint32_t>(sampleRate * kRingSeconds)),
                     kSmallestRing)),
      ring_(std::size_t{size_} * channels),
      patience_(patience),
      least_(least > 0 ? least + kTaps : 0),
      firstInHand_(inHand + kTaps),
      inHand_(firstInHand_),
      spare_(sampleRate, least_ + kSpareSeconds * sampleRate) {
}

inline void DriftFifo::write(const float* samples, std::uint32_t frames) noexcept {
    const std::uint64_t written = written_.load(std::memory_order_relaxed);
    const std::uint64_t held = written - read_.load(std::memory_order_acquire);
    const auto taken = static_cast<std::uint32_t>(std::min<std::uint64_t>(frames, size_ - held));
    for (std::uint32_t done = 0; done < taken;) {
        const auto place = static_cast<std::uint32_t>((written + done) & (size_ - 1));
        const std::uint32_t part = std::min(taken - done, size_ - place);
        std::copy_n(samples + std::size_t{done} * channels_, std::size_t{part} * channels_,
                    ring_.data() + std::size_t{place} * channels_);
        done += part;
    }
    written_.store(written + taken, std::memory_order_release);
}

inline void DriftFifo::read(float* samples, std::uint32_t frames) noexcept {
    if (isToRestart_.load(std::memory_order_relaxed) &&
        isToRestart_.exchange(false, std::memory_order_relaxed)) {
        forget();
    }
    if (isFlowing_) {
        steer(frames);
    }
    if (!isFlowing_) {
        begin(frames);
    }
    const bool isLast = isFlowing_ && held() < needed(frames);
    std::uint32_t most = isFlowing_ ? frames : 0;
    if (isLast) {
        most = runDry(frames);
    }
    std::uint32_t given = 0;
    for (; given < most; ++given) {
        give(samples + std::size_t{given} * channels_);
    }
    settle();
    std::fill(samples + std::size_t{given} * channels_, samples + std::size_t{frames} * channels_,
              0.0F);
}

inline void DriftFifo::forget() noexcept {
    isFlowing_ = false;
    isLate_ = false;
    read_.store(written_.load(std::memory_order_acquire), std::memory_order_release);
}

inline double DriftFifo::firstOf(std::uint32_t frames) const noexcept {
    if (isFlowing_) {
        return static_cast<double>(read_.load(std::memory_order_relaxed)) + SincKernel::kCentre +
               phase_ - frames * ratio_;
    }
    // As late as it will be when it flows.
    return static_cast<double>(written_.load(std::memory_order_relaxed)) + SincKernel::kCentre -
           inHand_ - frames;
}

inline void DriftFifo::begin(std::uint32_t frames) noexcept {
    dryFor_ += frames;
    if (static_cast<double>(dryFor_) > kLostSeconds * sampleRate_) {
        isLate_ = false;  // the sound itself made a pause
    }
    const double more = static_cast<double>(held()) - frames - inHand_;
    if (more < 0) {
        return;
    }
    if (isLate_ && more <= kLostSeconds * sampleRate_) {
        resume(frames);
        return;
    }
    isFlowing_ = true;
    phase_ = 0;
    ratio_ = 1;
    mean_ = 0;
    flowed_ = 0;
    owed_ = 0;
    spare_.restart();
    isLate_ = false;
    if (more > inHand_) {
        skip(more);  // it begins with what is newest: what piled up would be heard late for ever
    }
}

/// Goes on where it ran dry, later by the silence there was: who is as late again is met.
inline void DriftFifo::resume(std::uint32_t frames) noexcept {
    isFlowing_ = true;
    isLate_ = false;
    const double late = std::min(static_cast<double>(dryFor_ - frames), room());
    const auto more = [&] { return static_cast<double>(held()) - frames - inHand_; };
    if (patience_ == Patience::kForGood) {
        keep(std::min(late, more()));  // what was lost instead of late does not come
    } else {
        keep(std::min(late, kMostAtOnceSeconds * sampleRate_));
        if (const double piledUp = more(); piledUp > inHand_) {
            // Behind a pause of the sound what is held is new: only what has piled up is left out.
            skip(piledUp);
        }
    }
    mean_ = usual_;
    spare_.late();
}

/// Gives how many of the frames there still are.
inline std::uint32_t DriftFifo::runDry(std::uint32_t frames) noexcept {
    const double last = (static_cast<double>(held()) - kTaps - phase_) / ratio_;
    const auto given =
        static_cast<std::uint32_t>(std::clamp(last, 0.0, static_cast<double>(frames)));
    ++faults_;
    isFlowing_ = false;
    isLate_ = true;
    dryFor_ = frames - given;
    return given;
}

inline void DriftFifo::steer(std::uint32_t frames) noexcept {
    const double left = static_cast<double>(held()) - frames;
    if (left - inHand_ > kLostSeconds * sampleRate_) {
        ++faults_;
        isFlowing_ = false;  // it begins anew with what is newest
        return;
    }
    flowed_ += frames;
    const double span = std::min(static_cast<double>(flowed_), kMeanSeconds * sampleRate_);
    mean_ += (left - mean_) * frames / span;
    if (static_cast<double>(flowed_) < kMeanSeconds * sampleRate_) {
        // Where in their turns both began is chance: how much is in hand is seen, not chosen.
        usual_ = mean_;
    }
    ratio_ = 1 + drift() - gain(frames, left) + shed(frames, left);
    if (ratio_ == 1 && phase_ != 0) {
        // Back to frames as they were written.
        const double rest = ((phase_ < 0.5 ? 0 : 1) - phase_) / frames;
        ratio_ += std::clamp(rest, -kMostSteering, kMostSteering);
    }
}

/// How much faster is read to keep in hand what is usual.
inline double DriftFifo::drift() const noexcept {
    const double away = mean_ - usual_;
    const double equal = std::min(kEqualSeconds * sampleRate_, inHand_ / 2);
    const double beyond = away > equal ? away - equal : std::min(0.0, away + equal);
    const double drift =
        std::clamp(beyond / (kSteerSeconds * sampleRate_), -kMostSteering, kMostSteering);
    const double piledUp = std::max(0.0, away - kPiledUpSeconds * sampleRate_);
    return drift + std::min(piledUp / (kHasteSeconds * sampleRate_), kMostHaste);
}

/// How much slower is read to have in hand what the one who brings was late by.
inline double DriftFifo::gain(std::uint32_t frames, double left) noexcept {
    if (left < least_) {
        spare_.late();
    }
    // What ran dry is no matter of this: it begins anew.
    owed_ = std::min(std::max(owed_, std::min(least_ - left, least_)), room());
    const double gained = std::min(owed_, kGaining * frames);
    owed_ -= gained;
    keep(gained);
    return gained / frames;
}

/// How much faster is read to have no more in hand than was needed lately.
inline double DriftFifo::shed(std::uint32_t frames, double left) noexcept {
    if (patience_ == Patience::kForGood) {
        return 0;
    }
    const double given = spare_.give(frames, left);
    keep(-given);
    inHand_ = std::max(inHand_, firstInHand_);
    return given / frames;
}

/// So many more are to be in hand from here on.
inline void DriftFifo::keep(double more) noexcept {
    inHand_ += more;
    usual_ += more;
    mean_ += more;
}

inline void DriftFifo::settle() noexcept {
    if (phase_ < kOnFrame) {
        phase_ = 0;
    } else if (phase_ > 1 - kOnFrame) {
        phase_ = 0;
        read_.store(read_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
}

inline void DriftFifo::give(float* frame) noexcept {
    const std::uint64_t first = read_.load(std::memory_order_relaxed);
    if (phase_ == 0 && ratio_ == 1) {
        const std::size_t at = (first + SincKernel::kCentre) & (size_ - 1);
        std::copy_n(ring_.data() + at * channels_, channels_, frame);
    } else {
        const auto at = [&](std::uint32_t tap) {
            return ring_.data() + ((first + tap) & (size_ - 1)) * channels_;
        };
        kernel_.read(phase_, channels_, at, frame);
    }
    phase_ += ratio_;
    const double whole = std::floor(phase_);
    phase_ -= whole;
    read_.store(first + static_cast<std::uint64_t>(whole), std::memory_order_release);
}

}  // namespace tqcommon
