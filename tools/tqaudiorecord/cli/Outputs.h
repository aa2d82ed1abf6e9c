#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/Options.h"
#include "output/EventsSink.h"
#include "output/MixSink.h"
#include "output/PauseTime.h"
#include "output/PictureSink.h"
#include "output/PipeSink.h"
#include "output/ReplaySink.h"
#include "output/SinkSet.h"
#include "output/VoiceTrack.h"
#include "output/files/FileNames.h"
#include "output/report/ReportSink.h"
#include "view/Meter.h"
#include "view/Observer.h"
#include "view/Screen.h"
#include "view/VoiceFacts.h"

namespace tqrecorder {

/// Everything that one recording writes and shows, as its options ask for. [one host thread at a
/// time]
class Outputs : public SinkSet {
  public:
    /// `screen` takes messages and outlives this; `standardOutput` is for `-o -`.
    Outputs(const Options& options, Screen& screen, int standardOutput);

    /// Makes all files, so that a path that cannot be written is found before the command starts.
    /// False with one line in `error`.
    [[nodiscard]] bool open(std::string& error);

    void heard(const HeardBlock& block) override;
    void turnEnded(bool isAll) override;
    void processEnded(const Process& process, const HostFacts& facts) override;
    /// All but the meter goes on in a pause without what is in it.
    void block(const Process& process, const Block& block) override;
    void lost(const Process& process, std::uint64_t blocks, std::uint64_t bytes) override;
    void event(const Process& process, const Event& event) override;
    [[nodiscard]] ControlAnswer control(const ControlCommand& command) override;
    void closed() override;
    [[nodiscard]] std::vector<ControlAnswer> lateAnswers() override;

    void notice(const std::string& line) override;
    /// Shows problems as they come up.
    void tick(std::uint64_t elapsedMicroseconds) override;
    void finish() override;

    /// Why nothing was heard; empty when something was. `endSignal` is the one that ended COMMAND,
    /// 0 for none.
    [[nodiscard]] std::vector<std::string> silence(int endSignal) const;
    /// Whether any block arrived, also one of zeros.
    [[nodiscard]] bool isAnythingRecorded() const;
    [[nodiscard]] double elapsedSeconds() const { return observer_->elapsedSeconds(); }
    /// Whether any process has connected.
    [[nodiscard]] bool hasAnyProcess() const;
    /// What is said at the end, with the reasons for silence.
    [[nodiscard]] std::string summary(const std::vector<std::string>& silence) const;

  private:
    struct Split {
        std::uint64_t ticket;
        SplitFiles done;
    };
    template <typename Kind>
    [[nodiscard]] bool addOpened(std::unique_ptr<Kind> sink, std::string& error);
    template <typename Kind>
    [[nodiscard]] bool addFiles(std::unique_ptr<Kind> sink, std::string& error);
    [[nodiscard]] bool arePlacesGood(std::string& error) const;
    /// Null where there is no mix, or it goes to the standard output as it is.
    [[nodiscard]] const FileFormat* formatOfMix() const;
    /// The microphone's own file; empty where it has none.
    [[nodiscard]] std::string voiceFile() const;
    [[nodiscard]] FileSeries::Plan planOf(const std::string& path, const FileFormat* kind) const;
    [[nodiscard]] bool openMix(std::string& error);
    [[nodiscard]] bool openTracks(std::string& error);
    [[nodiscard]] bool openEvents(std::string& error);
    [[nodiscard]] bool openViews(std::string& error);
    [[nodiscard]] bool openLive(std::string& error);
    void sayWhatThePageCannotPlay();
    [[nodiscard]] ReportFacts reportFacts() const;
    void sayWhatTheVoiceWaitsFor();
    void showProblems();
    [[nodiscard]] ControlAnswer save(std::optional<double> seconds);
    [[nodiscard]] ControlAnswer answerOf(ReplaySaved saved) const;
    [[nodiscard]] ControlAnswer nothingToSave() const;
    [[nodiscard]] ControlAnswer split();
    [[nodiscard]] ControlAnswer answerOf(const Split& split) const;
    [[nodiscard]] ControlAnswer setPaused(bool isPaused);
    [[nodiscard]] std::string pauseLine() const;
    [[nodiscard]] std::vector<WrittenFile> files() const;
    /// Those without sound that are written before the report.
    [[nodiscard]] std::vector<std::string> otherFiles() const;
    /// Tells the user who looks on, and gives the answer for the one who asked.
    [[nodiscard]] ControlAnswer told(const std::string& what,
                                     const std::vector<WrittenFile>& files) const;

    const Options& options_;
    Screen& screen_;
    int standardOutput_;
    std::shared_ptr<ProcessNames> names_ = std::make_shared<ProcessNames>();
    Observer* observer_ = nullptr;
    PauseTime pauses_;
    bool isPlayedInPause_ = false;     ///< any sound
    std::uint64_t closedAt_ = 0;       ///< host time, microseconds; 0 before
    std::optional<VoiceTrack> voice_;  ///< with --mic
    bool isVoiceWaiting_ = false;      ///< for something to play, and that was said
    VoiceFacts voiceFacts_;
    std::vector<FilesSink*> files_;
    std::vector<Split> splits_;  ///< that are not answered yet
    std::uint64_t lastSplit_ = 0;
    ReplaySink* replay_ = nullptr;  ///< one of them
    EventsSink* events_ = nullptr;
    PictureSink* picture_ = nullptr;
    ReportSink* report_ = nullptr;
    PipeSink* pipe_ = nullptr;
    std::set<std::string> shownProblems_;
};

}  // namespace tqrecorder
