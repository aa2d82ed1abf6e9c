#include "session/DuckSource.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "session/Microphone.h"

namespace tqrecorder {
namespace {

constexpr float kSilence = -1000;
constexpr double kWindowSeconds = 0.02;
/// 6 hours of windows. What follows in a longer file counts as silence.
constexpr std::size_t kMostWindows = 1'080'000;

float decibels(double squares, std::size_t samples) {
    return squares > 0 && samples > 0
               ? static_cast<float>(10 * std::log10(squares / static_cast<double>(samples)))
               : kSilence;
}

class FileLevel final : public DuckSource {
  public:
    [[nodiscard]] bool read(const std::string& path, std::string& error) {
        SF_INFO info{};
        const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file(
            sf_open(path.c_str(), SFM_READ, &info), &sf_close);
        if (file == nullptr) {
            error = path + ": " + sf_strerror(nullptr);
            return false;
        }
        const auto frames = std::max<sf_count_t>(
            1, static_cast<sf_count_t>(kWindowSeconds * static_cast<double>(info.samplerate)));
        std::vector<float> window(static_cast<std::size_t>(frames * info.channels));
        for (sf_count_t got = 0; levels_.size() < kMostWindows &&
                                 (got = sf_readf_float(file.get(), window.data(), frames)) > 0;) {
            const auto count = static_cast<std::size_t>(got * info.channels);
            double squares = 0;
            for (std::size_t i = 0; i < count; ++i) {
                squares += static_cast<double>(window[i]) * static_cast<double>(window[i]);
            }
            levels_.push_back(decibels(squares, count));
        }
        return true;
    }
    [[nodiscard]] float level(std::uint64_t microseconds) override {
        const auto window =
            static_cast<std::size_t>(static_cast<double>(microseconds) / 1e6 / kWindowSeconds);
        return window < levels_.size() ? levels_[window] : kSilence;
    }
    [[nodiscard]] bool isSilent() const override {
        return std::all_of(levels_.begin(), levels_.end(),
                           [](float level) { return level <= kSilence; });
    }

  private:
    std::vector<float> levels_;
};

class MicrophoneLevel final : public DuckSource {
  public:
    explicit MicrophoneLevel(const Microphone& microphone) : microphone_(microphone) {}
    [[nodiscard]] float level(std::uint64_t /*microseconds*/) override {
        return microphone_.level();
    }

  private:
    const Microphone& microphone_;
};

}  // namespace

std::unique_ptr<DuckSource> DuckSource::open(const std::string& path, std::string& error) {
    auto file = std::make_unique<FileLevel>();
    return file->read(path, error) ? std::move(file) : nullptr;
}

std::unique_ptr<DuckSource> DuckSource::of(const Microphone& microphone) {
    return std::make_unique<MicrophoneLevel>(microphone);
}

}  // namespace tqrecorder
