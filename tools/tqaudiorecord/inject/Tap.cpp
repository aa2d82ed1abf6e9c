#include "inject/Tap.h"

#include <cmath>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <thread>
#include <utility>

#include "common/SignalsBlocked.h"
#include "inject/GuardState.h"
#include "inject/HostImage.h"

namespace tqrecorder {
namespace {

constexpr int kPublishMilliseconds = 100;
constexpr int kFollowMilliseconds = 20;

std::atomic<Tap*> theTap{nullptr};

bool isOutOfDescriptors(int error) {
    return error == EMFILE || error == ENFILE;
}

tq_capture_state captureState() {
    tq_capture_state state{};
    state.size = sizeof state;
    (void)tq_capture_get_state(&state);
    return state;
}

/// One track as the library's statistics tell it.
void publishTrack(SharedTrack& shared, const tq_track& track) {
    shared.sampleRate = static_cast<std::uint32_t>(track.format.sample_rate);
    shared.channels = track.format.channels;
    shared.isFloat = track.format.is_float;
    shared.bufferedBytes = track.mix_backlog_bytes;
    shared.unit.store(track.name);
}

}  // namespace

Tap::Tap(const TapSettings& settings) : settings_(settings) {
    sem_init(&unitMade_, 0, 0);
}

Tap* Tap::current() {
    return theTap.load(std::memory_order_acquire);
}

void Tap::begin(const TapSettings& settings, char** arguments) {
    // Never freed: listeners' threads come by until the process is gone.
    Tap* const tap = std::unique_ptr<Tap>(new Tap(settings)).release();
    theTap.store(tap, std::memory_order_release);
    if (settings.task == TapSettings::Task::kRecord) {
        tap->record(arguments);
    } else if (getppid() == settings.recorder) {
        tap->answerGuard();
    }
}

void Tap::answerGuard() {
    // The host must not run, whatever becomes of this.
    int result = 0;
    if (settings_.task == TapSettings::Task::kGuardArm) {
        result = tq_guard_arm(kGuardHookId);
    } else if (settings_.task == TapSettings::Task::kGuardDisarm) {
        result = tq_guard_disarm();
    }
    Hello hello = helloWith(guardStatus(), usesPlatform());
    hello.result = result;
    const bool told = connection_.open(settings_.socket) && connection_.send(hello, -1);
    _exit(told ? 0 : 1);
}

void Tap::record(char** arguments) {
    usesPlatform_ = usesPlatform();
    const bool mayPlay = usesPlatform_ || mayHaveSound();
    // A shell, or a tool that a script calls, is none of our business.
    if (!mayPlay && !isCommand(settings_) && !isInterpreter()) {
        return;
    }
    if (!connection_.open(settings_.socket)) {
        if (isOutOfDescriptors(errno)) {
            tellThatDescriptorsLack();
        }
        return;
    }
    // The guard decides while the library loads: armed by now, it would let the hooks in at the
    // next launch only. So this is the next launch, before the program's own code has run.
    const bool isHooked = captureState().hooks_installed != 0;
    const bool isSecond = isRestarted();
    bool isRestartFailed = false;
    if (settings_.armGuard && !isHooked && !isSecond && armForNextLaunch()) {
        restartProgram(arguments);
        isRestartFailed = true;
    }
    Hello hello = helloWith(guardStatus(), usesPlatform_);
    program_ = hello.name.data();
    hello.isRecording = 1;
    hello.isRestartFailed = isRestartFailed ? 1 : 0;
    hello.mayPlay = mayPlay ? 1 : 0;
    if (hello.lacksDescriptors != 0) {
        // The program shall have what is left of them.
        (void)connection_.send(hello, -1);
        connection_.close();
        return;
    }
    if (!connectRecording(hello)) {
        return;
    }
    // Before the program makes its first unit. Refused where the hooks were kept out.
    tq_capture_rules rules{};
    rules.size = sizeof rules;
    rules.frees_own_number_only = 1;
    rules.ends_disposed_units = 1;
    rules.keeps_float_tracks = 1;
    chooseUnits(rules);
    (void)tq_capture_set_rules(&rules);
    watchForks();
    watchMainThread();
    // Before the first stream: its first frame has the level already.
    setVolume();
    publishFramesAtExit();
    memory_->page().facts.bridges = useBridges();
    makeRoomAtExit();
    isThreadOwed_ = !usesPlatform_;
    watch();
    if (usesPlatform_) {
        // A unit that plays for the first time is recorded from its first frame on; the bridges
        // keep that of a native stream for us.
        collect();
        // The library starts on a thread of its own, which a child that is forked meanwhile would
        // not have.
        (void)tq_capture_settle();
        startThread(&Tap::runRecording);
    }
}

/// A child has descriptors of its own, of which it can do without all.
void Tap::tellThatDescriptorsLack() {
    Hello hello = helloWith(guardStatus(), usesPlatform_);
    hello.isRecording = 1;
    hello.lacksDescriptors = 1;
    const pid_t child = _Fork();
    if (child == 0) {
        close_range(STDERR_FILENO + 1, ~0U, 0);
        _exit(connection_.open(settings_.socket) && connection_.send(hello, -1) ? 0 : 1);
    }
    if (child > 0) {
        (void)waitpid(child, nullptr, 0);
    }
}

/// Whether the hooks were kept out of this launch and come with the next.
bool Tap::armForNextLaunch() {
    const GuardStatus status = guardStatus();
    if (status.state == GuardState::kArmed) {
        // Somebody else has done it since this program was loaded: two recorders begin at once.
        return !status.wasArmed;
    }
    return mayArm(status.state) && tq_guard_arm(kGuardHookId) == TQ_OK;
}

bool Tap::connectRecording(Hello hello) {
    int descriptor = -1;
    const std::optional<SharedMapping> parents = std::exchange(memory_, std::nullopt);
    memory_ = SharedMapping::make(settings_.soundBytes, descriptor);
    if (!memory_) {
        hello.lacksDescriptors = isOutOfDescriptors(errno) ? 1 : 0;
        // The recorder says that there was none.
        (void)connection_.send(hello, -1);
        connection_.close();
        return false;
    }
    if (parents) {
        // Until the recorder has written the child's own.
        memory_->page().duckLevel.store(parents->page().duckLevel.load());
        memory_->page().duckOrder.store(parents->page().duckOrder.load());
    }
    SharedFacts& facts = memory_->page().facts;
    facts.guard = static_cast<GuardState>(hello.guard);
    facts.retriesLeft = hello.retriesLeft;
    facts.hooksInstalled = captureState().self_test_passed;
    const bool sent = connection_.send(hello, descriptor);
    ::close(descriptor);
    if (!sent) {
        return false;
    }
    for (std::atomic<std::uint64_t>& lost : lostFrames_) {
        lost.store(0, std::memory_order_relaxed);
    }
    outlets_ = {memory_->writer(RingId::kSound), memory_->writer(RingId::kEvents),
                memory_->writer(RingId::kLog), memory_->writer(RingId::kStreams), &memory_->page()};
    outlet_.store(&outlets_, std::memory_order_release);
    return true;
}

void Tap::startThread(void (Tap::*body)()) {
    const tqcommon::SignalsBlocked blocked;
    std::thread([this, body] {
        pthread_setname_np(pthread_self(), "TQAudioTap");
        try {
            (this->*body)();
        } catch (...) {
            // Out of memory: the host goes on without us.
            outlet_.store(nullptr);
        }
    }).detach();
}

/// Where nothing is collected yet, a unit that is made ends the pause.
bool Tap::waitForEnd(int milliseconds) {
    if (mix_ != nullptr) {
        return connection_.waitForEnd(milliseconds, settings_.recorder);
    }
    timespec then{};
    clock_gettime(CLOCK_MONOTONIC, &then);
    then.tv_nsec += milliseconds * 1'000'000L;
    then.tv_sec += then.tv_nsec / 1'000'000'000L;
    then.tv_nsec %= 1'000'000'000L;
    (void)sem_clockwait(&unitMade_, CLOCK_MONOTONIC, &then);
    return connection_.waitForEnd(0, settings_.recorder);
}

void Tap::runRecording() {
    bool isPopulating = true;
    bool follows = settings_.duck;
    for (int turn = 0;; ++turn) {
        const int wait = follows ? kFollowMilliseconds : kPublishMilliseconds;
        if (waitForEnd(isPopulating ? 1 : wait)) {
            break;
        }
        if (isProgramOver()) {
            // What the C library does when a program's last thread ends.
            std::exit(0);
        }
        const std::lock_guard lock(work_);
        isPopulating = isPopulating && memory_->populateMore();
        if (mix_ == nullptr && isUnitMade_.load(std::memory_order_relaxed)) {
            collect();
            (void)tq_capture_settle();
        }
        const float order = memory_->page().duckOrder.load(std::memory_order_relaxed);
        follows = follows || !std::isnan(order);
        if (follows) {
            followOrder();
        }
        if (turn % (kPublishMilliseconds / wait) == 0) {
            publish();
        }
    }
    const std::lock_guard lock(work_);
    leave();
}

/// Of the first unit of the process only.
void Tap::noteUnitMade() {
    if (isThreadOwed_.exchange(false)) {
        startThread(&Tap::runRecording);
    }
    sem_post(&unitMade_);
}

void Tap::publish() {
    SharedPage& page = memory_->page();
    page.facts.hooksInstalled = captureState().self_test_passed;
    // Again: two threads may have stored theirs in the wrong order.
    publishCounts(page);
    publishFrames();
    struct Visit {
        const Tap& tap;
        SharedPage& page;
        std::array<bool, kTracks> isThere{};
    } visit{*this, page};
    (void)tq_capture_tracks(
        [](void* context, const tq_track* track) {
            auto& seen = *static_cast<Visit*>(context);
            if (track->track < kTracks && seen.tap.isWanted(track->name)) {
                seen.isThere[track->track] = true;
                publishTrack(seen.page.tracks[track->track], *track);
            }
        },
        &visit);
    for (std::size_t id = 0; id < kTracks; ++id) {
        page.tracks[id].isThere = visit.isThere[id] ? 1 : 0;
    }
}

void Tap::leave() {
    isUnheard_.store(true, std::memory_order_relaxed);
    outlet_.store(nullptr);
    // Each waits for a call under way, so that afterwards nobody writes to the memory.
    for (tq_listening** const listening : {&watching_, &tracks_, &mix_}) {
        if (*listening != nullptr) {
            (void)tq_capture_stop(*listening);
        }
        *listening = nullptr;
    }
    volume_.end();
    memory_.reset();
    connection_.close();
}

}  // namespace tqrecorder
