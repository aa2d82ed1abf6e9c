#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/Options.h"
#include "core/Sink.h"
#include "session/Acceptor.h"
#include "session/ControlServer.h"
#include "session/DuckSource.h"
#include "session/HostLook.h"
#include "session/Launch.h"
#include "session/LoadingWatch.h"
#include "session/Notes.h"
#include "session/ProcessTree.h"
#include "session/SignalGate.h"
#include "session/TappedProcess.h"
#include "session/VoiceWatch.h"

namespace tqrecorder {

class Microphone;

/// How a recording went.
struct RecordingResult {
    enum class End { kNotStarted, kHostEnded, kDuration, kSignal, kSink };

    End end = End::kNotStarted;
    /// Of a command that ended by itself, as a shell tells it, which the recording may outlive.
    /// Nothing when the recording ended first, or the command was never started.
    std::optional<int> hostExitCode;
    /// The signal that ended such a command, 0 for none.
    int hostEndSignal = 0;
    /// Why it was not started, or why the sink ended it; one line.
    std::string message;
    /// False when the user did not wait until all was written.
    bool isWhole = true;
    /// What else the user should know; one line each.
    std::vector<std::string> notes;
};

/// Starts a command, lets processes of it connect, and hands what they play to a sink. All of the
/// sink's methods are called on the thread of run(). RecordingSessionProcesses.cpp has what
/// processes deliver, RecordingSessionControl.cpp what users ask for, RecordingSessionEnd.cpp what
/// ends it.
class RecordingSession {
  public:
    /// `gate` is the library to be preloaded. `options` and `sink` outlive this.
    RecordingSession(const Options& options, Sink& sink, std::string gate = findGate());
    ~RecordingSession();
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    /// Does all that can fail before the command is started. False with one line in `error`.
    /// From here on SIGINT, SIGTERM, SIGHUP and SIGUSR1 of this thread are taken by run().
    [[nodiscard]] bool prepare(std::string& error);
    [[nodiscard]] const HostProgram& program() const { return program_; }
    /// Behind prepare(): what the user should know before the command is started; one line each.
    [[nodiscard]] const std::vector<std::string>& warnings() const { return warnings_; }

    /// Records to the end; calls prepare() first if it was not called. Call it once.
    [[nodiscard]] RecordingResult run();

  private:
    using Clock = std::chrono::steady_clock;
    /// Between two looks at whether the recording is to stop. What is not taken by then waits for
    /// the next turn.
    static constexpr std::chrono::milliseconds kTurn{50};
    /// Between two looks at what the host has delivered, where nobody waits for what comes out:
    /// waking up costs more than what is taken then.
    static constexpr std::chrono::milliseconds kTickPause{100};

    [[nodiscard]] bool listen(std::string& error);
    [[nodiscard]] bool launch(std::string& error);
    [[nodiscard]] std::uint64_t soundBytes() const;
    void loop(RecordingResult& result);
    /// Until the next tick at the longest, less when something happens.
    void wait();
    [[nodiscard]] std::chrono::milliseconds pause() const;
    void acceptConnections();
    void tellShort();
    void takeConnection(Connection connection);
    /// What the microphone has heard by now.
    void takeHeard();
    /// Takes what the processes have delivered, for that long at most.
    void drain(std::chrono::milliseconds turn = kTurn);
    /// Processes that have ended go once all that they delivered is taken.
    void removeEnded();
    [[nodiscard]] bool isAnyEndedLeft() const;
    [[nodiscard]] std::vector<std::string> notes() const;
    void tick();
    void lookAround();
    [[nodiscard]] bool isTimeOver() const;
    /// True when one of the commands that have come ends the recording.
    [[nodiscard]] bool takeCommands();
    [[nodiscard]] ControlAnswer obey(const ControlCommand& command);
    void answerLate();
    [[nodiscard]] bool endsWithCommand() const { return options_.endsWith == "command"; }
    /// Whether it holds the recording when COMMAND has ended.
    [[nodiscard]] bool isPlayer(const TappedProcess& process) const;
    /// Whether it has a library for sound, as far as is known.
    [[nodiscard]] bool mayPlay(pid_t process) const;
    /// Whether nothing of what COMMAND has started plays any more, or is likely to begin.
    [[nodiscard]] bool isTreeOver();
    void tellOnce(bool& isTold, const std::string& line);
    void finish(RecordingResult& result);
    void takeTheLast(RecordingResult& result);
    void waitForSaves(const RecordingResult& result);
    /// Obeys the signals that have come, and keeps those that ask for the end.
    void takeSignals();
    [[nodiscard]] bool isSameEnd(int signal);
    [[nodiscard]] std::optional<SignalGate::Signal> nextEndSignal();
    void answerTheLast();
    void noteThoseThatRanOn(const RecordingResult& result);
    [[nodiscard]] bool waitForEnds(std::chrono::milliseconds patience);
    [[nodiscard]] std::string namesOfTheLast();
    void endHost();
    [[nodiscard]] bool isAnyToBeEnded();
    [[nodiscard]] bool isAnyToBeTold();
    [[nodiscard]] std::uint64_t elapsedMicroseconds() const;

    const Options& options_;
    Sink& sink_;
    std::string gate_;
    bool isPrepared_ = false;
    HostProgram program_;
    std::unique_ptr<Microphone> microphone_;  ///< with --mic, or where it ducks
    std::unique_ptr<DuckSource> duckSource_;
    std::optional<VoiceWatch> voiceWatch_;  ///< where there is a microphone_
    std::vector<std::string> warnings_;
    Acceptor acceptor_;
    ControlServer control_;
    std::vector<tqcommon::Descriptor> waitForEnd_;  ///< clients that asked for the end
    std::map<std::uint64_t, tqcommon::Descriptor> waitForAnswer_;  ///< clients by their tickets
    float duckOrder_ = std::numeric_limits<float>::quiet_NaN();
    SignalGate signals_;
    int firstEndSignal_ = 0;  ///< 0 before any
    Clock::time_point firstEndAt_{};
    std::deque<SignalGate::Signal> endSignals_;  ///< that have come and were not heeded yet
    ProcessTree tree_;
    Launch host_;
    std::vector<std::unique_ptr<TappedProcess>> processes_;
    int lastId_ = 0;
    bool isClosed_ = false;    ///< what comes now is not recorded any more
    bool isMoreLeft_ = false;  ///< of what was delivered, when the last drain() had to end
    bool hostKnows_ = false;   ///< the terminal has sent the host the same signal
    Notes notes_;
    HostLook look_;
    std::chrono::milliseconds lookPause_{100};
    Clock::time_point nextLook_;
    Clock::time_point began_;
    Clock::time_point nextTick_;
    LoadingWatch loading_;  ///< begun while COMMAND has ended and nobody plays
    Clock::time_point nextTreeLook_;
    bool isTreeExpected_ = true;
    bool isPlayerTold_ = false;
    bool isWaitTold_ = false;
    bool isShortTold_ = false;
    std::optional<Clock::time_point> firstConnection_;
};

}  // namespace tqrecorder
