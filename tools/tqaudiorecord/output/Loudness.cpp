#include "output/Loudness.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace tqrecorder {

class Loudness::State {
  public:
    explicit State(const BlockFormat& format)
        // The histogram keeps it in one size, to 0.1 LU.
        : state_(ebur128_init(format.channels,
                              static_cast<unsigned long>(std::lround(format.sampleRate)),
                              EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK | EBUR128_MODE_HISTOGRAM)) {}
    ~State() {
        if (state_ != nullptr) {
            ebur128_destroy(&state_);
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    [[nodiscard]] ebur128_state* get() const { return state_; }

  private:
    ebur128_state* state_;
};

std::unique_ptr<Loudness> Loudness::of(const BlockFormat& format) {
    // What is not heard needs no measure, and the library refuses rates below 16 Hz.
    constexpr double kLowestRate = 1000;
    constexpr double kHighestRate = 400'000;
    constexpr unsigned kMostChannels = 64;
    if (!(format.sampleRate >= kLowestRate && format.sampleRate <= kHighestRate) ||
        format.channels == 0 || format.channels > kMostChannels) {
        return nullptr;
    }
    auto state = std::make_unique<State>(format);
    if (state->get() == nullptr) {
        return nullptr;
    }
    return std::unique_ptr<Loudness>(new Loudness(std::move(state)));
}

Loudness::Loudness(std::unique_ptr<State> state) : state_(std::move(state)) {
}

Loudness::~Loudness() = default;

void Loudness::add(const float* samples, std::size_t frames) {
    (void)ebur128_add_frames_float(state_->get(), samples, frames);
}

void Loudness::addSilence(std::uint64_t frames) {
    // Half a second fills every window; what is longer counts for nothing.
    const std::uint64_t most = state_->get()->samplerate / 2;
    const std::vector<float> silence(static_cast<std::size_t>(std::min(frames, most)) *
                                     state_->get()->channels);
    add(silence.data(), silence.size() / state_->get()->channels);
}

std::optional<double> Loudness::integrated() const {
    double lufs = 0;
    if (ebur128_loudness_global(state_->get(), &lufs) != EBUR128_SUCCESS || !std::isfinite(lufs)) {
        return std::nullopt;
    }
    return lufs;
}

double Loudness::truePeak() const {
    double highest = 0;
    for (unsigned channel = 0; channel < state_->get()->channels; ++channel) {
        double peak = 0;
        if (ebur128_true_peak(state_->get(), channel, &peak) == EBUR128_SUCCESS) {
            highest = std::max(highest, peak);
        }
    }
    return highest;
}

}  // namespace tqrecorder
