#pragma once

namespace tqplatform {

/// What is known once it was tried to open a device. "Before" is what was open, or was tried, until
/// then.
struct OpeningFacts {
    bool isThere = false;            ///< it is open
    bool isToPlay = false;           ///< it is opened to play, not to listen alone
    bool isHeard = false;            ///< somebody is to be heard
    bool isInterrupted = false;      ///< programs were told so, and not yet of its end
    bool isNewFormat = false;        ///< programs were not told of it, and nobody else does
    bool isOtherMicrophone = false;  ///< than before, as a program that listens prefers
    bool hasOtherLength = false;     ///< of its blocks than before, as a program prefers
    bool awaitsFirstBlock = false;   ///< alone: of it that will be told with its next block
    bool wasLost = false;            ///< before: the device said so
    bool wasStill = false;           ///< before: it asked for nothing, and programs were told so
    bool isInHope = false;           ///< the same, for long: its next requests say whether it plays
    bool wasOutdated = false;        ///< before: it had to be opened anew
    bool heardAlone = false;         ///< before: somebody listened, and nothing was played
    bool wasDeaf = false;            ///< before: the microphone alone could not be opened
    bool hasRun = false;             ///< a device has played
    bool hasBeenThere = false;       ///< a device was reached, whether it could play or not
};

/// What is told of it.
enum class OpeningNotice {
    nothing,
    newFormatThenInterruptionEnds,
    interruptionEnds,
    deviceHasGone,  ///< what is open instead is another
    newDevice,
    microphoneIsThere,
    newFormat,
    newLength,  ///< with the next look: whoever has asked for it is still waiting
    microphoneIsNot,
    interruption,
    cannotPlay,  ///< a line on standard error
};

/// [any thread] What programs are told of it: one thing, whatever came together.
[[nodiscard]] OpeningNotice noticeOf(const OpeningFacts& facts) noexcept;

}  // namespace tqplatform
