#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/Control.h"
#include "core/Records.h"

namespace tqrecorder {

/// Takes a recording: writes it to files, shows it, keeps it. Methods do nothing unless overridden,
/// and are called on the recorder's one thread, never inside a host: [one host thread at a time].
class Sink {
  public:
    virtual ~Sink() = default;

    virtual void processBegan(const Process&) {}
    virtual void block(const Process&, const Block&) {}
    /// What the microphone heard, with --mic or where it ducks; with --mic the one who gets it
    /// lays it beside the mix.
    virtual void heard(const HeardBlock&) {}
    /// `blocks` (`bytes` of sound) found no room in the shared ring since the last call. Which
    /// stream they are missing from says Block::lostFrames.
    virtual void lost(const Process&, std::uint64_t /*blocks*/, std::uint64_t /*bytes*/) {}
    virtual void event(const Process&, const Event&) {}
    virtual void log(const Process&, const LogLine&) {}
    /// As a stream begins to play, when it is closed, and in between.
    virtual void stream(const Process&, const StreamFacts&) {}
    /// Several times a second while the process lives.
    virtual void numbers(const Process&, std::span<const TrackNumbers>, const HostFacts&,
                         double /*ringFill, 0 to 1*/) {}
    /// Behind the blocks of one turn: first what the microphone had heard, then what processes had
    /// delivered. `isAll` when nothing of that was left for the next.
    virtual void turnEnded(bool /*isAll*/) {}
    /// Once for each process that was seen, before finish().
    virtual void seen(const SeenProcess&) {}
    virtual void processEnded(const Process&, const HostFacts&) {}
    /// About ten times a second, whatever else happens: refresh headers, redraw.
    virtual void tick(std::uint64_t /*elapsedMicroseconds*/) {}
    /// Something that the user wants to know at once; one line.
    virtual void notice(const std::string& /*line*/) {}
    /// The user asked for something while it runs.
    [[nodiscard]] virtual ControlAnswer control(const ControlCommand&) {
        return {false, "nothing here can do that\n"};
    }
    /// No block comes any more: what was played is still written, and nothing can be paused.
    virtual void closed() {}
    /// Answers with tickets that control() gave, since the last call. Asked for several times a
    /// second, and once after finish(), when all have come.
    [[nodiscard]] virtual std::vector<ControlAnswer> lateAnswers() { return {}; }
    /// Goes on with it where that waits for nobody, and says whether what is not at its place yet
    /// is on its way there without finish(): clips that are being written, sound that a reader
    /// takes.
    [[nodiscard]] virtual bool isSaving() { return false; }
    /// Nobody wants to wait for them: they end soon, and what they lack is a problem.
    virtual void giveUpSaves() {}
    /// The recording is over; files are to be whole after this. Called once.
    virtual void finish() {}
    /// Why the recording should end now, for example because the reader of the standard output has
    /// gone; empty to go on. Asked for after every tick().
    [[nodiscard]] virtual std::string reasonToEnd() const { return {}; }
    /// One line each for what could not be written so far; not empty means exit code 2.
    [[nodiscard]] virtual std::vector<std::string> problems() const { return {}; }
};

}  // namespace tqrecorder
