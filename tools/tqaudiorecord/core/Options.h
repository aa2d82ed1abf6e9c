#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/Control.h"
#include "core/Records.h"

namespace tqrecorder {

/// What the user asked for. Numbers are in their range and options do not contradict each other;
/// whether files can be read and written is not known yet. The values here are the defaults.
struct Options {
    enum class Action { kRecord, kGuardStatus, kGuardArm, kGuardDisarm, kControl, kList };

    Action action = Action::kRecord;
    std::vector<std::string> command;  ///< with its arguments; empty for kControl and kList only
    bool isListWanted = false;         ///< for kList

    // What a running recorder is asked for.
    std::optional<int> controlPid;
    ControlCommand control;

    // What is written.
    std::string output;           ///< the mix; "-" is standard output; empty for none
    bool isOutputChosen = false;  ///< `output` by the recorder: its folder is made
    bool overwrite = false;       ///< files that are there are replaced
    std::string format;           ///< overrides the extension; empty follows it
    std::string tracksFolder;
    std::string tracksFormat = "wav";
    bool tracksFromStart = false;  ///< their files begin with the recording
    std::string eventsFile;
    std::string pictureFile;
    std::string reportFile;
    std::optional<double> maximumFileSeconds;  ///< a new file follows
    std::optional<double> replaySeconds;       ///< keep only that much, in memory
    bool replayOverlaps = true;                ///< a save has what was saved before as well
    bool live = false;                         ///< sources of the sound server meanwhile

    // What is recorded: patterns over names of programs and tracks.
    std::vector<std::string> only;
    std::vector<std::string> without;

    // When it ends.
    std::optional<double> durationSeconds;
    std::string endsWith = "tree";  ///< "command", or "tree": the last that COMMAND has started
    bool endsHost = true;           ///< the host ends with the recording

    // What is shown.
    bool quiet = false;
    bool verbose = false;

    // What is done to the host's own output.
    bool duck = false;
    double duckDecibels = -12;
    std::string duckOn;  ///< a WAV file, or "microphone"; empty ducks all the time
    bool compress = false;
    double compressThresholdDecibels = -20;
    double attackSeconds = 0.01;
    double releaseSeconds = 0.2;

    // The user's own voice.
    bool microphone = false;
    std::string microphoneName;    ///< as tqplatform-devices lists it; empty for the default
    bool microphoneInMix = false;  ///< else it is a track only

    bool armGuard = true;
    double ringSeconds = 10;  ///< of sound that the shared ring holds

    /// Whether the microphone decides when to duck.
    [[nodiscard]] bool isDuckedByVoice() const { return duck && duckOn == kMicrophoneName; }
    /// Whether sources for other programs are all that is wanted: there is no file then.
    [[nodiscard]] bool isLiveAlone() const {
        return live && output.empty() && tracksFolder.empty() && !replaySeconds &&
               !maximumFileSeconds && format.empty();
    }
};

}  // namespace tqrecorder
