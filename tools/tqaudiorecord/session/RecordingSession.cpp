#include "session/RecordingSession.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "ipc/Printable.h"
#include "session/Microphone.h"

namespace tqrecorder {
namespace {

using std::chrono::milliseconds;

/// Where somebody waits for it, or more is left than was taken.
constexpr milliseconds kShortPause{5};
/// The mix and seven tracks of 48 kHz, 16-bit, stereo, and what goes with each block.
constexpr double kBytesPerSecond = 1.8e6;
/// Looking at processes from outside costs files: often at the beginning, then seldom.
constexpr milliseconds kLongestLookPause{3000};

}  // namespace

RecordingSession::RecordingSession(const Options& options, Sink& sink, std::string gate)
    : options_(options), sink_(sink), gate_(std::move(gate)) {
}

RecordingSession::~RecordingSession() = default;

bool RecordingSession::prepare(std::string& error) {
    program_ = findHostProgram(options_.command.front());
    if (!program_.isWorthStarting()) {
        error = program_.text(options_.command.front());
        return false;
    }
    if (gate_.empty()) {
        error = "the library to be loaded into COMMAND is missing; is the installation whole?";
        return false;
    }
    if (!listen(error)) {
        return false;
    }
    if (!acceptor_.open(error)) {
        return false;
    }
    // A recording goes on without.
    if (std::string problem; !control_.open(problem)) {
        warnings_.push_back("it cannot be controlled while it runs: " + problem);
    }
    if (!signals_.open()) {
        error = "signals cannot be received";
        return false;
    }
    isPrepared_ = true;
    return true;
}

/// Opens what decides when to duck, and the microphone.
bool RecordingSession::listen(std::string& error) {
    const bool isDuckedByVoice = options_.isDuckedByVoice();
    if (options_.duck && !options_.duckOn.empty() && !isDuckedByVoice) {
        duckSource_ = DuckSource::open(options_.duckOn, error);
        if (duckSource_ == nullptr) {
            return false;
        }
        if (duckSource_->isSilent()) {
            warnings_.push_back(options_.duckOn +
                                ": holds nothing but silence, so that nothing is ducked");
        }
    }
    if (!options_.microphone && !isDuckedByVoice) {
        return true;
    }
    microphone_ = std::make_unique<Microphone>();
    if (!microphone_->start(options_.microphoneName, error)) {
        return false;
    }
    if (isDuckedByVoice) {
        duckSource_ = DuckSource::of(*microphone_);
    }
    const bool isThere = Microphone::isOpen();
    voiceWatch_.emplace(isDuckedByVoice, isThere);
    if (!isThere) {
        warnings_.push_back(microphone_->lack(isDuckedByVoice));
    }
    return true;
}

RecordingResult RecordingSession::run() {
    RecordingResult result;
    if ((!isPrepared_ && !prepare(result.message)) || !launch(result.message)) {
        sink_.finish();
        return result;
    }
    loop(result);
    finish(result);
    return result;
}

bool RecordingSession::launch(std::string& error) {
    LaunchPlan plan;
    plan.command = options_.command;
    plan.program = program_;
    plan.gate = gate_;
    plan.ownGroup = !options_.endsHost;
    plan.outputToError = options_.output == "-";
    plan.signals = signals_.before();
    TapSettings& settings = plan.settings;
    settings.socket = acceptor_.name();
    settings.recorder = getpid();
    settings.soundBytes = soundBytes();
    settings.wantsLog = options_.verbose;
    settings.armGuard = options_.armGuard;
    settings.duck = options_.duck;
    settings.duckAlways = options_.duckOn.empty();
    settings.duckDecibels = static_cast<float>(options_.duckDecibels);
    settings.compress = options_.compress;
    settings.compressThresholdDecibels = static_cast<float>(options_.compressThresholdDecibels);
    settings.attackSeconds = static_cast<float>(options_.attackSeconds);
    settings.releaseSeconds = static_cast<float>(options_.releaseSeconds);
    began_ = Clock::now();
    nextTick_ = began_ + kTickPause;
    nextLook_ = began_ + lookPause_;
    settings.choice = {options_.only, options_.without};
    if (!endsWithCommand()) {
        tree_.adopt();
    }
    return host_.start(plan, error);
}

std::uint64_t RecordingSession::soundBytes() const {
    return static_cast<std::uint64_t>(options_.ringSeconds * kBytesPerSecond);
}

void RecordingSession::loop(RecordingResult& result) {
    using End = RecordingResult::End;
    while (true) {
        wait();
        // Before drain(): blocks that the host delivered before its end are then drained as well.
        const bool hostIsOver = host_.isOver();
        acceptConnections();
        drain();
        removeEnded();
        if (hostIsOver) {
            // A short-lived process may have connected since the call above; it is still queued.
            acceptConnections();
            drain();
            removeEnded();
        }
        // Before the host's end: an interrupt of the terminal ends both, the host often first.
        if (const auto signal = nextEndSignal()) {
            hostKnows_ = signal->isFromTerminal && options_.endsHost;
            result.end = End::kSignal;
            return;
        }
        if (hostIsOver) {
            result.hostExitCode = host_.exitCode();
            result.hostEndSignal = host_.endSignal();
        }
        if (hostIsOver && !isAnyEndedLeft() && isTreeOver()) {
            result.end = End::kHostEnded;
            return;
        }
        if (takeCommands()) {
            result.end = End::kSignal;
            return;
        }
        if (isTimeOver()) {
            result.end = End::kDuration;
            return;
        }
        if (Clock::now() >= nextTick_) {
            tick();
            result.message = sink_.reasonToEnd();
            if (!result.message.empty()) {
                result.end = End::kSink;
                return;
            }
        }
    }
}

void RecordingSession::wait() {
    // Who cannot be let in is asked for again behind the pause: it would end at once.
    std::vector<pollfd> list{{acceptor_.isShort() ? -1 : acceptor_.descriptor(), POLLIN, 0},
                             {signals_.descriptor(), POLLIN, 0},
                             {control_.isShort() ? -1 : control_.descriptor(), POLLIN, 0}};
    if (!host_.isOver()) {
        list.push_back({host_.endDescriptor(), POLLIN, 0});
    }
    poll(list.data(), list.size(), static_cast<int>(pause().count()));
}

milliseconds RecordingSession::pause() const {
    if (isMoreLeft_ || !waitForAnswer_.empty() || options_.live || options_.output == "-" ||
        !options_.duckOn.empty()) {
        return kShortPause;
    }
    // A quarter of a short ring fills meanwhile.
    const std::chrono::duration<double> quarter{options_.ringSeconds / 4};
    const Clock::duration toTick = nextTick_ - Clock::now();
    return std::clamp(
        std::chrono::ceil<milliseconds>(std::min<std::chrono::duration<double>>(toTick, quarter)),
        kShortPause, kTickPause);
}

std::vector<std::string> RecordingSession::notes() const {
    std::vector<std::string> lines = notes_.lines();
    if (const std::uint64_t count = acceptor_.silentConnections(); count > 0) {
        lines.push_back(std::to_string(count) +
                        " connections of programs that said nothing were closed");
    }
    return lines;
}

void RecordingSession::tick() {
    nextTick_ = std::max(nextTick_ + kTickPause, Clock::now());
    for (const auto& process : processes_) {
        process->tellNumbers(sink_);
    }
    if (Clock::now() >= nextLook_) {
        lookAround();
    } else {
        tree_.reap(host_.pid());
    }
    sink_.tick(elapsedMicroseconds());
}

void RecordingSession::lookAround() {
    tree_.reap(host_.pid());
    for (const pid_t root : tree_.roots()) {
        look_.lookAt(root);
    }
    lookPause_ = std::min(2 * lookPause_, kLongestLookPause);
    nextLook_ = Clock::now() + lookPause_;
}

bool RecordingSession::isTimeOver() const {
    return options_.durationSeconds && Clock::now() - firstConnection_.value_or(began_) >=
                                           std::chrono::duration<double>(*options_.durationSeconds);
}

std::uint64_t RecordingSession::elapsedMicroseconds() const {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - began_).count());
}

}  // namespace tqrecorder
