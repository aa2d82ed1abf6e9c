#include "picture/Spectrum.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numbers>

#include "picture/Spectrogram.h"

namespace tqpicture {
namespace {

constexpr double kWindowSeconds = 0.046;
constexpr std::size_t kSmallestWindow = 64;
constexpr std::size_t kLargestWindow = 8192;

// Only the planner of the library keeps state that threads share.
std::mutex& plannerMutex() {
    static std::mutex mutex;
    return mutex;
}

struct FreeMemory {
    void operator()(void* memory) const { fftwf_free(memory); }
};

double decibels(double power) {
    return power > 0 ? std::max(10 * std::log10(power), static_cast<double>(kSilenceDb))
                     : static_cast<double>(kSilenceDb);
}

}  // namespace

std::size_t windowFrames(double sampleRate) {
    std::size_t frames = kSmallestWindow;
    while (frames < kLargestWindow && static_cast<double>(frames) < kWindowSeconds * sampleRate) {
        frames *= 2;
    }
    return frames;
}

class PowerSpectrum::Work {
  public:
    explicit Work(std::size_t frames)
        : input_(static_cast<float*>(fftwf_malloc(sizeof(float) * frames))),
          output_(
              static_cast<fftwf_complex*>(fftwf_malloc(sizeof(fftwf_complex) * (frames / 2 + 1)))),
          window_(frames),
          power_(frames / 2 + 1) {
        double sum = 0;
        for (std::size_t index = 0; index < frames; ++index) {
            const double phase =
                2 * std::numbers::pi * static_cast<double>(index) / static_cast<double>(frames);
            window_[index] = static_cast<float>(0.5 - 0.5 * std::cos(phase));
            sum += window_[index];
        }
        scale_ = static_cast<float>(2 / sum);
        const std::lock_guard lock(plannerMutex());
        plan_ = fftwf_plan_dft_r2c_1d(static_cast<int>(frames), input_.get(), output_.get(),
                                      FFTW_ESTIMATE);
    }
    ~Work() {
        const std::lock_guard lock(plannerMutex());
        fftwf_destroy_plan(plan_);
    }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    const std::vector<float>& of(const float* samples) {
        for (std::size_t index = 0; index < window_.size(); ++index) {
            input_.get()[index] = samples[index] * window_[index];
        }
        fftwf_execute(plan_);
        for (std::size_t bin = 0; bin < power_.size(); ++bin) {
            const float real = output_.get()[bin][0] * scale_;
            const float imaginary = output_.get()[bin][1] * scale_;
            power_[bin] = real * real + imaginary * imaginary;
        }
        return power_;
    }

  private:
    std::unique_ptr<float, FreeMemory> input_;
    std::unique_ptr<fftwf_complex, FreeMemory> output_;
    std::vector<float> window_;
    std::vector<float> power_;
    float scale_ = 1;
    fftwf_plan plan_ = nullptr;
};

PowerSpectrum::PowerSpectrum(std::size_t frames) : work_(std::make_unique<Work>(frames)) {
}

PowerSpectrum::~PowerSpectrum() = default;

const std::vector<float>& PowerSpectrum::of(const float* samples) {
    return work_->of(samples);
}

std::vector<RowBins> binsOfRows(const FrequencyScale& scale, double sampleRate,
                                std::size_t frames) {
    const double binHertz = sampleRate / static_cast<double>(frames);
    const std::size_t lastBin = frames / 2;
    std::vector<RowBins> rows(static_cast<std::size_t>(scale.rows()));
    for (std::size_t row = 0; row < rows.size(); ++row) {
        const double position = static_cast<double>(row);
        const double high = scale.hertzAt(position);
        const double low = scale.hertzAt(position + 1);
        const double centre = scale.hertzAt(position + 0.5) / binHertz;
        RowBins& bins = rows[row];
        bins.hasData = centre <= static_cast<double>(lastBin);
        if (bins.hasData) {
            bins.first = static_cast<std::size_t>(std::ceil(std::max(low, 0.0) / binHertz));
            const double last = std::floor(high / binHertz);
            bins.last = std::min(lastBin, static_cast<std::size_t>(std::max(last, 0.0)));
            bins.centre = centre;
        }
    }
    return rows;
}

float levelOfRow(const RowBins& bins, const std::vector<double>& power) {
    if (bins.first <= bins.last) {
        const auto begin = power.begin() + static_cast<std::ptrdiff_t>(bins.first);
        const auto end = power.begin() + static_cast<std::ptrdiff_t>(bins.last + 1);
        return static_cast<float>(decibels(*std::max_element(begin, end)));
    }
    const auto below = std::min(static_cast<std::size_t>(bins.centre), power.size() - 1);
    const std::size_t above = std::min(below + 1, power.size() - 1);
    const double share = bins.centre - static_cast<double>(below);
    return static_cast<float>(decibels(power[below]) * (1 - share) +
                              decibels(power[above]) * share);
}

}  // namespace tqpicture
