#include "session/RecordingSession.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "ipc/Printable.h"
#include "session/Microphone.h"

namespace tqrecorder {
namespace {

using std::chrono::milliseconds;

/// Between two looks at what the host has delivered, where nobody waits for what comes out: waking
/// up costs more than what is taken then.
constexpr milliseconds kTickPause{100};
/// Where somebody waits for it, or more is left than was taken.
constexpr milliseconds kShortPause{5};
/// The mix and seven tracks of 48 kHz, 16-bit, stereo, and what goes with each block.
constexpr double kBytesPerSecond = 1.8e6;
/// Between two looks at whether the recording is to stop. What is not taken by then waits for the
/// next turn.
constexpr milliseconds kTurn{50};
constexpr milliseconds kLeastTurn{1};
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
    const bool isDuckedByVoice = options_.duck && options_.duckOn == kMicrophoneName;
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
    if (!Microphone::isOpen()) {
        const std::string name =
            options_.microphoneName.empty() ? "" : " called " + printable(options_.microphoneName);
        warnings_.push_back("there is no microphone" + name +
                            "; tqplatform-devices lists what there is" +
                            (isDuckedByVoice ? ". Nothing is ducked before one comes" : ""));
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
        drain(kTurn);
        removeEnded();
        if (hostIsOver) {
            // A short-lived process may have connected since the call above; it is still queued.
            acceptConnections();
            drain(kTurn);
            removeEnded();
        }
        // Before the host's end: an interrupt of the terminal ends both, the host often first.
        while (const auto signal = signals_.next()) {
            if (signal->number == SIGUSR1) {
                (void)sink_.control({ControlCommand::Kind::kSave});
            } else if (signal->number == SIGUSR2) {
                (void)sink_.control({ControlCommand::Kind::kTogglePause});
            } else {
                hostKnows_ = signal->isFromTerminal && options_.endsHost;
                result.end = End::kSignal;
                return;
            }
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
    std::vector<pollfd> list{{acceptor_.descriptor(), POLLIN, 0},
                             {signals_.descriptor(), POLLIN, 0},
                             {control_.descriptor(), POLLIN, 0}};
    if (!host_.isOver()) {
        list.push_back({host_.endDescriptor(), POLLIN, 0});
    }
    poll(list.data(), list.size(), static_cast<int>(pause().count()));
}

milliseconds RecordingSession::pause() const {
    if (isMoreLeft_ || options_.live || options_.output == "-" || !options_.duckOn.empty()) {
        return kShortPause;
    }
    // A quarter of a short ring fills meanwhile.
    const std::chrono::duration<double> quarter{options_.ringSeconds / 4};
    const Clock::duration toTick = nextTick_ - Clock::now();
    return std::clamp(
        std::chrono::ceil<milliseconds>(std::min<std::chrono::duration<double>>(toTick, quarter)),
        kShortPause, kTickPause);
}

void RecordingSession::acceptConnections() {
    for (Connection& connection : acceptor_.connections()) {
        const Hello& hello = connection.hello;
        if (hello.isRecording == 0) {
            continue;
        }
        if (connection.memory) {
            takeConnection(std::move(connection));
        } else {
            notes_.add(printable(hello.name.data()) +
                       (hello.lacksDescriptors != 0
                            ? ": its limit of open files is used up; not recorded (ulimit -n says "
                              "how many)"
                            : ": no memory to share with the recorder; not recorded (--ring says "
                              "how much)"));
        }
    }
}

void RecordingSession::takeConnection(Connection connection) {
    if (!firstConnection_) {
        firstConnection_ = Clock::now();
    }
    const pid_t pid = connection.pid;
    look_.setTapped(pid);
    const std::string name = printable(connection.hello.name.data());
    const bool isRestartFailed = connection.hello.isRestartFailed != 0;
    const std::uint64_t startTime = TappedProcess::startTimeOf(pid);
    auto known = std::find_if(processes_.begin(), processes_.end(),
                              [&](const auto& one) { return one->is(pid, startTime); });
    if (known != processes_.end()) {
        // The process has replaced its program by exec: the blocks of the old one come first.
        (void)(*known)->drain(sink_, Clock::now() + kTurn);
    } else {
        const bool isCommand = pid == host_.pid();
        processes_.push_back(std::make_unique<TappedProcess>(lastId_ + 1, isCommand, startTime));
        known = processes_.end() - 1;
    }
    const bool isNew = (*known)->process().pid == 0;
    const std::uint64_t mostBytes =
        std::max(SharedMapping::kMostBytes, SharedMapping::sizeFor(soundBytes()));
    if (!(*known)->take(std::move(connection), mostBytes)) {
        notes_.add(name + ": what it shares with the recorder makes no sense; not recorded");
        if (isNew) {
            processes_.erase(known);
        }
        return;
    }
    lastId_ += isNew ? 1 : 0;
    (*known)->setDuckOrder(duckOrder_);
    if (isRestartFailed) {
        notes_.add(name + ": its crash guard was armed just now; it can be recorded from " +
                   "its next launch on");
    }
    sink_.processBegan((*known)->process());
}

void RecordingSession::drain(milliseconds turn) {
    isMoreLeft_ = false;
    if (options_.microphone) {
        microphone_->take([this](const HeardBlock& block) { sink_.heard(block); });
    }
    const milliseconds share = std::max(
        kLeastTurn,
        turn / static_cast<milliseconds::rep>(std::max<std::size_t>(1, processes_.size())));
    for (const auto& process : processes_) {
        if (duckSource_ != nullptr && firstConnection_) {
            const auto time = std::chrono::duration_cast<std::chrono::microseconds>(
                Clock::now() - *firstConnection_);
            process->setDuckLevel(duckSource_->level(static_cast<std::uint64_t>(time.count())));
        }
        const bool wasCorrupt = process->isCorrupt();
        isMoreLeft_ = !process->drain(sink_, Clock::now() + share) || isMoreLeft_;
        if (process->isCorrupt() && !wasCorrupt) {
            notes_.add(process->process().name +
                       ": its shared memory is corrupt; the rest is not recorded");
        }
    }
}

void RecordingSession::removeEnded() {
    const Clock::time_point deadline = Clock::now() + kTurn;
    for (auto place = processes_.begin(); place != processes_.end();) {
        TappedProcess& process = **place;
        if (!process.isOver()) {
            ++place;
            continue;
        }
        if (!process.drain(sink_, deadline)) {
            ++place;
            continue;
        }
        sink_.processEnded(process.process(), process.facts());
        place = processes_.erase(place);
    }
}

bool RecordingSession::isAnyEndedLeft() const {
    return std::any_of(processes_.begin(), processes_.end(),
                       [](const auto& process) { return process->isOver(); });
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

bool RecordingSession::takeCommands() {
    for (ControlRequest& request : control_.requests()) {
        if (request.command.kind == ControlCommand::Kind::kStop) {
            waitForEnd_.push_back(std::move(request.client));
        } else {
            ControlServer::answer(request.client, obey(request.command));
        }
    }
    return !waitForEnd_.empty();
}

ControlAnswer RecordingSession::obey(const ControlCommand& command) {
    const bool isDucking = command.kind == ControlCommand::Kind::kDuck;
    if (!isDucking && command.kind != ControlCommand::Kind::kUnduck) {
        return sink_.control(command);
    }
    constexpr double kNone = 1;
    const double order = isDucking ? command.number.value_or(options_.duckDecibels) : kNone;
    if (isDucking && !(order >= -96 && order <= 0)) {
        return {false, "duck wants a number from -96 to 0\n"};
    }
    duckOrder_ = static_cast<float>(order);
    for (const auto& process : processes_) {
        process->setDuckOrder(duckOrder_);
    }
    if (!isDucking) {
        return {true, "not ducked any more\n"};
    }
    const auto isHooked = [](const auto& process) { return process->facts().hooksInstalled; };
    if (processes_.empty()) {
        return {true, "nothing plays yet; what comes is ducked\n"};
    }
    if (std::none_of(processes_.begin(), processes_.end(), isHooked)) {
        return {false, "nothing can be ducked: the hooks are not in the program; -v shows why\n"};
    }
    return {true, "ducked\n"};
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
