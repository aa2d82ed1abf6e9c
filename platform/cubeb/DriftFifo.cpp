#include "DriftFifo.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace tqcubeb {

using tqcommon::SincKernel;

namespace {

constexpr double kRingSeconds = 1;
/// At low rates it holds the largest request and what is in hand all the same.
constexpr std::uint32_t kSmallestRing = 32768;
/// What is in hand goes up and down with each request; its mean is taken over so long.
constexpr double kMeanSeconds = 2;
/// Within it clocks count as equal.
constexpr double kEqualSeconds = 0.002;
/// What is too much or too little beyond that is made up for within so long.
constexpr double kSteerSeconds = 4;
/// No two clocks differ by more.
constexpr double kMostSteering = 0.002;
/// Further away than that it is no drift: one of both stood still.
constexpr double kLostSeconds = 0.25;
/// A microphone that is later than that is heard with holes.
constexpr double kMostInHandSeconds = 0.1;

}  // namespace

DriftFifo::DriftFifo(std::uint32_t channels, double sampleRate, std::uint32_t inHand)
    : channels_(channels),
      sampleRate_(sampleRate),
      size_(std::max(std::bit_ceil(static_cast<std::uint32_t>(sampleRate * kRingSeconds)),
                     kSmallestRing)),
      ring_(std::size_t{size_} * channels),
      inHand_(inHand + SincKernel::kTaps) {
}

void DriftFifo::write(const float* samples, std::uint32_t frames) noexcept {
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

void DriftFifo::read(float* samples, std::uint32_t frames) noexcept {
    if (isToRestart_.load(std::memory_order_relaxed) &&
        isToRestart_.exchange(false, std::memory_order_relaxed)) {
        isFlowing_ = false;
        read_.store(written_.load(std::memory_order_acquire), std::memory_order_release);
    }
    const std::uint64_t held =
        written_.load(std::memory_order_acquire) - read_.load(std::memory_order_relaxed);
    const auto needed =
        static_cast<std::uint64_t>(std::ceil(frames * ratio_ + phase_)) + SincKernel::kTaps;
    std::uint32_t given = 0;
    if (!isFlowing_ && static_cast<double>(held) >= inHand_ + frames) {
        // It begins with what is newest: what piled up before would be heard late for ever.
        isFlowing_ = true;
        phase_ = 0;
        ratio_ = 1;
        mean_ = 0;
        flowed_ = 0;
        read_.store(read_.load(std::memory_order_relaxed) + held - frames -
                        static_cast<std::uint64_t>(inHand_),
                    std::memory_order_release);
    } else if (isFlowing_ && held < needed) {
        // It has run dry. More is kept in hand from here on: as much as was missing.
        ++faults_;
        isFlowing_ = false;
        inHand_ = std::min(inHand_ + static_cast<double>(needed - held),
                           std::max(inHand_, kMostInHandSeconds * sampleRate_));
    } else if (isFlowing_) {
        steer(held, frames);
    }
    for (; isFlowing_ && given < frames; ++given) {
        give(samples + std::size_t{given} * channels_);
    }
    std::fill(samples + std::size_t{given} * channels_, samples + std::size_t{frames} * channels_,
              0.0F);
}

void DriftFifo::steer(std::uint64_t held, std::uint32_t frames) noexcept {
    const double left = static_cast<double>(held) - frames;
    if (left - inHand_ > kLostSeconds * sampleRate_) {
        ++faults_;
        isFlowing_ = false;  // the next read begins anew with what is newest
        return;
    }
    flowed_ += frames;
    const double span = std::min(static_cast<double>(flowed_), kMeanSeconds * sampleRate_);
    mean_ += (left - mean_) * frames / span;
    if (static_cast<double>(flowed_) < kMeanSeconds * sampleRate_) {
        // Where in their turns both began is chance: how much is in hand is seen, not chosen.
        usual_ = mean_;
        return;
    }
    const double away = mean_ - usual_;
    const double equal = std::min(kEqualSeconds * sampleRate_, inHand_ / 2);
    const double beyond = away > equal ? away - equal : std::min(0.0, away + equal);
    ratio_ = 1 + std::clamp(beyond / (kSteerSeconds * sampleRate_), -kMostSteering, kMostSteering);
}

void DriftFifo::give(float* frame) noexcept {
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

}  // namespace tqcubeb
