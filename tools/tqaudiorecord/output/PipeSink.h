#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/Sink.h"
#include "output/StreamClock.h"
#include "output/files/FileSeries.h"

namespace tqrecorder {

/// Writes the mix of one process at a time to a pipe, as it is or behind a WAV header whose lengths
/// say "unknown"; in a file they are filled in at the end. Another process follows where the one
/// before has ended or is silent for a second; who sounds meanwhile is left out and counted. Never
/// waits for the reader while the recording runs: what the reader does not take is kept, up to a
/// bound, and what goes over it is lost and counted.
class PipeSink : public Sink {
  public:
    enum class Shape { kRaw, kWav };
    /// `descriptor` stays the caller's. SIGPIPE has to be ignored.
    PipeSink(int descriptor, Shape shape, std::size_t mostBytes = kMostBytes);

    void block(const Process& process, const Block& block) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    void tick(std::uint64_t elapsedMicroseconds) override;
    /// More may be taken as long as the reader took something a moment ago, or the last process has
    /// just ended.
    [[nodiscard]] bool isSaving() override;
    void giveUpSaves() override { isGivenUp_ = true; }
    [[nodiscard]] std::string reasonToEnd() const override { return reason_; }
    /// What the reader has not taken by now is lost.
    void finish() override;
    [[nodiscard]] std::vector<std::string> problems() const override;
    /// What the reader has taken so far.
    [[nodiscard]] WrittenFile taken() const;

    /// About a minute and a half of mix.
    static constexpr std::size_t kMostBytes = std::size_t{16} << 20U;

  private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] bool takes(const Process& process, const Block& block);
    [[nodiscard]] bool isHolderSilent() const;
    /// What the reader has not taken: silence, and bytes behind it.
    struct Waiting {
        std::uint64_t zeros = 0;
        std::vector<std::byte> bytes{};
        std::size_t sent = 0;  // of the bytes
    };
    void queue(std::uint64_t zeros, std::span<const std::byte> bytes);
    void drain();
    [[nodiscard]] bool hand();
    void tidy();
    void completeHeader() const;

    int descriptor_;
    std::size_t mostBytes_;
    std::optional<int> holder_;              ///< id of the process whose mix it is
    double silence_ = 0;                     ///< seconds of it that the holder has delivered last
    std::chrono::microseconds unheard_{0};   ///< of the recorder's turns since it delivered last
    std::chrono::microseconds ticked_{0};    ///< when the last turn was
    std::map<std::string, double> leftOut_;  ///< seconds, by the program's name
    std::deque<Waiting> waiting_;
    std::size_t waitingBytes_ = 0;  // without the silence, which takes no room
    Clock::time_point movedAt_;     // when the reader took something last
    bool isGivenUp_ = false;
    std::unique_ptr<StreamClock> clock_;
    std::uint64_t headerBytes_ = 0;
    off_t headerAt_ = -1;      // of a header that can be completed; -1 for none
    std::uint64_t taken_ = 0;  // bytes that were written
    bool closed_ = false;
    bool hasJumped_ = false;
    std::uint64_t refused_ = 0;  // bytes
    std::string reason_;
    std::string problem_;
};

}  // namespace tqrecorder
