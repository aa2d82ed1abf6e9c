#include "DriftFifo.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace tqcubeb {

namespace {

constexpr double kRingSeconds = 1;
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
constexpr double kCutoff = 0.96;
constexpr double kKaiser = 8;

/// Of order 0, as far as a float can tell.
double bessel(double x) {
    double term = 1;
    double sum = 1;
    for (int step = 1; step < 40; ++step) {
        term *= (x / (2 * step)) * (x / (2 * step));
        sum += term;
    }
    return sum;
}

double sinc(double x) {
    return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

}  // namespace

DriftFifo::DriftFifo(std::uint32_t channels, double sampleRate, std::uint32_t inHand)
    : channels_(channels),
      sampleRate_(sampleRate),
      size_(std::bit_ceil(static_cast<std::uint32_t>(sampleRate * kRingSeconds))),
      ring_(std::size_t{size_} * channels),
      kernel_(std::size_t{kPhases + 1} * kTaps),
      inHand_(inHand + kTaps) {
    for (std::uint32_t phase = 0; phase <= kPhases; ++phase) {
        float* const row = kernel_.data() + std::size_t{phase} * kTaps;
        double sum = 0;
        for (std::uint32_t tap = 0; tap < kTaps; ++tap) {
            const double away = tap - (kTaps / 2.0 - 1) - double(phase) / kPhases;
            const double place = 2 * away / kTaps;
            const double window =
                bessel(kKaiser * std::sqrt(std::max(0.0, 1 - place * place))) / bessel(kKaiser);
            const double value = sinc(kCutoff * away) * window;
            row[tap] = static_cast<float>(value);
            sum += value;
        }
        for (std::uint32_t tap = 0; tap < kTaps; ++tap) {
            row[tap] = static_cast<float>(row[tap] / sum);
        }
    }
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
    const std::uint64_t held =
        written_.load(std::memory_order_acquire) - read_.load(std::memory_order_relaxed);
    const auto needed = static_cast<std::uint64_t>(std::ceil(frames * ratio_ + phase_)) + kTaps;
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
        // It has run dry. A little more is kept in hand from here on: as much as it takes, and no
        // more.
        ++faults_;
        isFlowing_ = false;
        constexpr double kMore = 0.25;  // of a request
        inHand_ += kMore * frames;
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
        const std::size_t at = (first + kTaps / 2 - 1) & (size_ - 1);
        std::copy_n(ring_.data() + at * channels_, channels_, frame);
    } else {
        const double row = phase_ * kPhases;
        const auto below = static_cast<std::uint32_t>(row);
        const auto between = static_cast<float>(row - below);
        const float* const low = kernel_.data() + std::size_t{below} * kTaps;
        const float* const high = low + kTaps;
        std::fill_n(frame, channels_, 0.0F);
        for (std::uint32_t tap = 0; tap < kTaps; ++tap) {
            const float weight = low[tap] + between * (high[tap] - low[tap]);
            const std::size_t at = (first + tap) & (size_ - 1);
            for (std::uint32_t channel = 0; channel < channels_; ++channel) {
                frame[channel] += weight * ring_[at * channels_ + channel];
            }
        }
    }
    phase_ += ratio_;
    const double whole = std::floor(phase_);
    phase_ -= whole;
    read_.store(first + static_cast<std::uint64_t>(whole), std::memory_order_release);
}

}  // namespace tqcubeb
