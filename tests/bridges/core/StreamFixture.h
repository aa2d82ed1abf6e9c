#pragma once

#include <TQAudioRecord/tq_source.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "CapturePathFixture.h"
#include "bridges/core/NativeStream.h"
#include "support/sound/Sound.h"

// A made-up sound interface on the manual device, with the whole library behind it.

namespace bridgetests {

inline const std::vector<std::string> kNothing;
/// A track of float sound reaches listeners with 16 bits.
inline constexpr double kRounding = 1.6 / 32768;
/// Of ducking that no test is long enough to see at work: what is lower was so from its beginning.
inline constexpr float kEndlessAttack = 1000;

/// What a listener was told of one name.
struct HeardTrack {
    tq_format format{};
    std::string bytes;
};

/// A stream of the made-up interface.
class MadeUpPcm {
  public:
    using Memory = tq::bridges::NativeStream::Memory;

    MadeUpPcm(const tqtest::SoundFormat& format, const std::string& name);
    ~MadeUpPcm() { close(); }
    MadeUpPcm(const MadeUpPcm&) = delete;
    MadeUpPcm& operator=(const MadeUpPcm&) = delete;

    /// Writes as a replaced function does; the interface takes the first `taken` frames.
    void write(const tqtest::Sound& sound, std::size_t taken, Memory memory = Memory::kConstant);
    void write(const tqtest::Sound& sound) { write(sound, sound.frames()); }
    void open(const std::string& name);
    void close();
    [[nodiscard]] tq::bridges::NativeStream::Use use() const {
        return tq::bridges::NativeStream::Use(this);
    }
    /// What the interface was given to play, as far as it took it.
    [[nodiscard]] const tqtest::Sound& passed() const { return passed_; }

  private:
    tqtest::SoundFormat format_;
    tqtest::Sound passed_;
};

[[nodiscard]] tq::bridges::NativeFormat nativeFormat(const tqtest::SoundFormat& format);

/// Everything is listened to from the beginning.
class NativeStreams : public CapturePath {
  protected:
    static constexpr std::size_t kSlice = kFrames;

    void SetUp() override;
    void TearDown() override;

    /// Waits until that was said of the latest stream of the name.
    void awaitReport(const std::string& name, tq_stream_fate fate = TQ_STREAM_RECORDED,
                     bool isClosed = false);
    /// Waits until that stream, which was paused, goes on: one that was paused from its beginning
    /// has its unit started only then.
    void awaitGoingOn(const std::string& name) const;
    /// Waits until so many streams with names of that ending have begun, or were closed.
    void awaitReports(const std::string& ending, bool areClosed, std::size_t count) const;
    /// Reports that streams with names of that ending have begun, or were closed.
    [[nodiscard]] std::size_t countReports(const std::string& ending, bool areClosed) const;
    /// Pumps until it was said that the stream is closed: what it had is played.
    void playOut(const std::string& name);
    /// Pumps until no stream of the interface is left, whatever its name, so that the next one is
    /// the first. They are closed.
    void playOutAll(const std::string& api);
    [[nodiscard]] std::vector<tq_stream> reports(const std::string& name) const;
    /// As 16-bit sound at that rate, or as what is given.
    [[nodiscard]] tqtest::Sound track(const std::string& name,
                                      const tqtest::SoundFormat& format = {}) const;
    [[nodiscard]] tqtest::Sound mix() const;
    [[nodiscard]] const std::map<std::string, HeardTrack>& tracks() const { return tracks_; }
    /// What the listener has heard so far is forgotten.
    void forget();

    /// -20 dB until duckingEnds(): from their first frame on for streams that begin after it, for
    /// others with that attack.
    void duckingBegins(float attackSeconds = 0.001F);
    /// As loud as whoever ducks us, in dB.
    void duckingLevel(float level);
    void duckingEnds();

  private:
    static void hear(void* fixture, const tq_block* block);
    [[nodiscard]] std::string playing() const;
    static void learn(void* fixture, const tq_stream* stream);

    mutable std::mutex lock_;
    std::map<std::string, HeardTrack> tracks_;
    std::vector<std::pair<std::string, tq_stream>> reports_;
    tq_listening* listening_ = nullptr;
    tq_volume* volume_ = nullptr;
};

}  // namespace bridgetests
