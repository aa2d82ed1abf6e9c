#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/servers/FileOutputs.h"
#include "support/servers/PipeWireServer.h"
#include "support/sound/Sound.h"

// Runs a program that plays, bare and under the recorder, and compares what was heard.

namespace programruns {

/// Where programs play, one after the other.
class Output {
  public:
    Output() = default;
    virtual ~Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    [[nodiscard]] virtual const tqtest::Environment& environment() const = 0;
    [[nodiscard]] virtual const TemporaryFolder& folder() const = 0;
    /// Before each program.
    virtual void listen() {}
    /// What the program played, without the silence around it; when it has gone.
    [[nodiscard]] virtual tqtest::Sound heard() = 0;
};

/// A PulseServer or PipeWireServer, heard through its monitor.
template <typename Server>
class ServerOutput : public Output {
  public:
    [[nodiscard]] const tqtest::Environment& environment() const override {
        return server_.environment();
    }
    [[nodiscard]] const TemporaryFolder& folder() const override { return server_.folder(); }
    void listen() override { recording_ = server_.record(); }
    [[nodiscard]] tqtest::Sound heard() override {
        tqtest::Sound sound = recording_->finish().trimmed();
        recording_.reset();
        return sound;
    }

  private:
    Server server_;
    std::unique_ptr<tqtest::Recording> recording_;
};

/// An AlsaFilePcm or SdlDisk; `format` is what the program opens it with.
template <typename File>
class FileOutput : public Output {
  public:
    explicit FileOutput(const tqtest::SoundFormat& format = {}) : format_(format) {}
    [[nodiscard]] const tqtest::Environment& environment() const override {
        return file_.environment();
    }
    [[nodiscard]] const TemporaryFolder& folder() const override { return file_.folder(); }
    [[nodiscard]] tqtest::Sound heard() override {
        return tqtest::Sound{format_, file_.takeWritten()}.trimmed();
    }

  private:
    File file_;
    tqtest::SoundFormat format_;
};

struct ProgramRun {
    tqtest::ProgramEnd end;
    tqtest::Sound heard;
    std::map<std::string, tqtest::Sound> tracks;  ///< by the name of their file
    tqtest::Sound mix = {};                       ///< 16 bits, stereo, at 44100 Hz
};

/// The program by itself.
[[nodiscard]] ProgramRun runBare(Output& output, const std::vector<std::string>& command);
/// The same under the recorder; `options` are the recorder's, beside those for its files.
[[nodiscard]] ProgramRun runRecorded(Output& output, const std::vector<std::string>& command,
                                     const std::vector<std::string>& options = {});

/// Six channels, one after the other alone for a fifth of a second, all with the same sound.
[[nodiscard]] tqtest::Sound oneChannelAfterTheOther(int rate);
/// Fails unless the mix has each of them left and right as loud as `gains` say, in the order of the
/// channels. The first is heard.
void expectFolded(const ProgramRun& run, const std::array<std::array<double, 2>, 6>& gains);

/// Fails unless both were heard, frame for frame.
void expectSameSound(const ProgramRun& bare, const ProgramRun& other, const std::string& what);
/// The same for a program, bare and under the recorder.
void expectSameSoundAsBare(Output& output, const std::vector<std::string>& command);

/// What keeps the run from having exactly one track, which holds `played` once, in order and in its
/// own format, with nothing but silence around it. Empty when nothing does.
[[nodiscard]] std::vector<std::string> trackFaults(const ProgramRun& run,
                                                   const tqtest::Sound& played);
/// Fails unless one of the tracks has that sound in one piece.
void expectOnTracks(const ProgramRun& run, const tqtest::Sound& played);
/// Fails where there are such faults.
void expectTrackHolds(const ProgramRun& run, const tqtest::Sound& played);

}  // namespace programruns
