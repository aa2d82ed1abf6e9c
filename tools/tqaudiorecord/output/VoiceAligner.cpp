#include "output/VoiceAligner.h"

#include <algorithm>
#include <cmath>

namespace tqrecorder {

using tqcommon::SincKernel;

namespace {

/// Further away than that it is no drift.
constexpr double kStepSeconds = 0.015;
/// A hole as long as that is left to whoever writes what comes: next() goes on behind it.
constexpr double kHoleSeconds = 1;
/// What a single block says is uncertain by as much as its thread is late.
constexpr double kMeanSeconds = 1;
/// Within it clocks count as equal.
constexpr double kEqualSeconds = 0.001;
/// What is beyond it is made up for within so long, and what stays is learnt within twice that.
constexpr double kSteerSeconds = 4;
constexpr double kLearnSeconds = 8;
/// No two clocks differ by more.
constexpr double kMostSteering = 0.004;

}  // namespace

VoiceAligner::VoiceAligner(std::uint32_t channels, double rate) : channels_(channels), rate_(rate) {
}

double VoiceAligner::unread() const {
    return static_cast<double>(held_.size() / channels_ - read_) - SincKernel::kCentre - phase_;
}

void VoiceAligner::begin(double position) {
    held_.assign(std::size_t{SincKernel::kCentre} * channels_, 0.0F);
    read_ = 0;
    phase_ = mean_ = drift_ = followed_ = 0;
    ratio_ = 1;
    next_ = std::llround(position);
    isFlowing_ = true;
}

void VoiceAligner::add(double position, std::span<const float> samples) {
    if (!isFlowing_) {
        const auto before = static_cast<std::size_t>(std::ceil(std::max(0.0, -position)));
        if (before * channels_ >= samples.size()) {
            return;
        }
        samples = samples.subspan(before * channels_);
        begin(position + static_cast<double>(before));
    } else if (const double away = position - (static_cast<double>(next_) + unread() / ratio_);
               std::abs(away) > kStepSeconds * rate_) {
        step(away, position, samples);
    } else {
        steer(away, static_cast<double>(samples.size() / channels_));
    }
    held_.insert(held_.end(), samples.begin(), samples.end());
}

void VoiceAligner::step(double away, double position, std::span<const float>& samples) {
    ++steps_;
    if (away > kHoleSeconds * rate_) {
        begin(position);
        return;
    }
    const auto frames = static_cast<std::size_t>(std::llround(std::abs(away)));
    if (away < 0) {
        samples = samples.subspan(std::min(frames * channels_, samples.size()));
    } else {
        held_.resize(held_.size() + frames * channels_, 0.0F);
    }
    mean_ = followed_ = 0;
}

void VoiceAligner::steer(double away, double frames) {
    followed_ += frames;
    mean_ += (away - mean_) * std::min(1.0, frames / std::min(followed_, kMeanSeconds * rate_));
    const double equal = kEqualSeconds * rate_;
    const double beyond = mean_ > equal ? mean_ - equal : std::min(0.0, mean_ + equal);
    const double part = beyond / (kSteerSeconds * rate_);
    drift_ =
        std::clamp(drift_ + part * frames / (kLearnSeconds * rate_), -kMostSteering, kMostSteering);
    ratio_ = 1 - std::clamp(part + drift_, -kMostSteering, kMostSteering);
}

std::vector<float> VoiceAligner::take() {
    std::vector<float> taken;
    const std::size_t held = held_.size() / channels_;
    const auto frameAt = [this](std::size_t frame) { return held_.data() + frame * channels_; };
    while (read_ + SincKernel::kTaps <= held) {
        const std::size_t at = taken.size();
        taken.resize(at + channels_);
        if (phase_ == 0 && ratio_ == 1) {
            std::copy_n(frameAt(read_ + SincKernel::kCentre), channels_, taken.data() + at);
        } else {
            kernel_.read(
                phase_, channels_, [&](std::uint32_t tap) { return frameAt(read_ + tap); },
                taken.data() + at);
        }
        phase_ += ratio_;
        const double whole = std::floor(phase_);
        phase_ -= whole;
        read_ += static_cast<std::size_t>(whole);
    }
    held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(read_ * channels_));
    read_ = 0;
    next_ += static_cast<std::int64_t>(taken.size() / channels_);
    return taken;
}

}  // namespace tqrecorder
