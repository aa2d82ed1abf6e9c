#include "inject/Tap.h"

#include <Foundation/Foundation.h>
#include <TQAudioRecord/TQAudioRecord.h>
#include <mach/mach_time.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <span>
#include <thread>
#include <utility>

#include "common/SignalsBlocked.h"
#include "inject/Guard.h"
#include "inject/HostImage.h"

namespace tqrecorder {
namespace {

constexpr int kPublishMilliseconds = 100;
constexpr int kFollowMilliseconds = 20;

std::atomic<Tap*> theTap{nullptr};

/// The name under which the platform keeps this program's caches: its file's, without folders.
std::string programName() {
    const auto caches =
        NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
    return caches.empty() ? std::string()
                          : std::filesystem::path(std::string(caches.front())).filename().string();
}

;

}  // namespace

/// Receives the mix and all events.
class MixTap : public RZReplayAudioRecorderListener<MixTap> {
  public:
    explicit MixTap(Tap& tap) : tap_(tap) {}
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        tap_.pushBlock(RecordKind::kMix, *pcm, info);
    }
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override {
        tap_.pushEvent(category, code, message);
    }
    [[nodiscard]] std::uint64_t getPCMDataType() override { return RZPCMDataTypePre; }

  private:
    Tap& tap_;
};

/// Receives each track's own blocks.
class TrackTap : public RZReplayAudioRecorderListener<TrackTap> {
  public:
    explicit TrackTap(Tap& tap) : tap_(tap) {}
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        tap_.pushBlock(RecordKind::kTrack, *pcm, info);
    }
    [[nodiscard]] std::uint64_t getPCMDataType() override { return RZPCMDataTypePost; }

  private:
    Tap& tap_;
};

Tap::Tap(const TapSettings& settings) : settings_(settings) {
}

Tap* Tap::current() {
    return theTap.load(std::memory_order_acquire);
}

void Tap::begin(const TapSettings& settings, char** arguments) {
    // Never freed: audio threads and the library's log come by until the process is gone.
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
    Hello hello;
    if (settings_.task == TapSettings::Task::kGuardArm) {
        hello.result = armGuard();
    } else if (settings_.task == TapSettings::Task::kGuardDisarm) {
        hello.result = disarmGuard();
    }
    const GuardStatus status = guardStatus();
    hello.guard = static_cast<std::uint32_t>(status.state);
    hello.retriesLeft = status.retriesLeft;
    hello.usesPlatform = usesPlatform() ? 1 : 0;
    programName().copy(hello.name.data(), hello.name.size() - 1);
    const bool told = door_.open(settings_.socket) && door_.send(hello, -1);
    _exit(told ? 0 : 1);
}

void Tap::record(char** arguments) {
    const bool isCommand = getppid() == settings_.recorder;
    usesPlatform_ = usesPlatform();
    // A shell, or a tool that a script calls, is none of our business.
    if ((!isCommand && !usesPlatform_) || !door_.open(settings_.socket)) {
        return;
    }
    Hello hello;
    hello.isRecording = 1;
    hello.usesPlatform = usesPlatform_ ? 1 : 0;
    programName().copy(hello.name.data(), hello.name.size() - 1);

    // The guard decides while the library loads: armed by now, it would let the hooks in at the
    // next launch only. So this is the next launch, before the program's own code has run.
    const bool isHooked = RZStreamCollectManager::sharedManager().isHookStarted();
    const bool isSecond = isRestarted();
    if (settings_.armGuard && !isHooked && !isSecond && mayArm(guardStatus().state) &&
        armGuard() == 0) {
        restartProgram(arguments);
        hello.isRestartFailed = 1;
    }
    const GuardStatus status = guardStatus();
    hello.guard = static_cast<std::uint32_t>(status.state);
    hello.retriesLeft = status.retriesLeft;
    if (!connectRecording(hello)) {
        return;
    }
    pthread_atfork(&Tap::onFork, &Tap::onParentForked, &Tap::onForked);
    TQAudioRecordRegisterYLogCallback(&Tap::onLog);
    if (usesPlatform_) {
        collect();
        waitForStart();
    }
    startThread(&Tap::runRecording);
}

bool Tap::connectRecording(const Hello& hello) {
    int descriptor = -1;
    memory_ = SharedMapping::make(settings_.soundBytes, descriptor);
    if (!memory_) {
        // The recorder says that there was none.
        (void)door_.send(hello, -1);
        return false;
    }
    SharedFacts& facts = memory_->page().facts;
    facts.guard = static_cast<GuardState>(hello.guard);
    facts.retriesLeft = hello.retriesLeft;
    facts.hooksInstalled = RZStreamCollectManager::sharedManager().isHookSuccess() ? 1 : 0;
    const bool sent = door_.send(hello, descriptor);
    ::close(descriptor);
    if (!sent) {
        return false;
    }
    outlets_ = {memory_->writer(RingId::kSound), memory_->writer(RingId::kEvents),
                memory_->writer(RingId::kLog), &memory_->page()};
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

void Tap::collect() {
    auto& manager = RZStreamCollectManager::sharedManager();
    if (!volume_.begin(settings_)) {
        pushEvent(0, 0, "ducking or compression could not be switched on");
    }
    if (mixTap_ == nullptr) {
        mixTap_ = std::make_shared<MixTap>(*this);
        trackTap_ = std::make_shared<TrackTap>(*this);
    }
    manager.startAudioStreamCollect(mixTap_);
    manager.startAudioStreamCollect(trackTap_);
    isCollecting_ = true;
}

void Tap::waitForStart() {
    // The library starts on a thread of its own, which a child that is forked meanwhile would not
    // have.
    dispatch_sync(RZStreamCollectManager::sharedManager().audioRecorder()->queue(), [] {});
}

void Tap::collectAgain() {
    if (!isCollecting_) {
        collect();
    }
    // What the parent had started is not running here.
    const auto& recorder = RZStreamCollectManager::sharedManager().audioRecorder();
    recorder->stopRecord();
    recorder->startRecord();
}

void Tap::runRecording() {
    const bool follows = settings_.duck;
    for (int turn = 0;; ++turn) {
        const int wait = follows ? kFollowMilliseconds : kPublishMilliseconds;
        if (door_.waitForEnd(wait, settings_.recorder)) {
            break;
        }
        const std::lock_guard lock(work_);
        if (!isCollecting_ && isUnitSeen_.load(std::memory_order_relaxed)) {
            collect();
            waitForStart();
        }
        if (follows) {
            volume_.follow(memory_->page().duckLevel.load(std::memory_order_relaxed));
        }
        if (turn % (kPublishMilliseconds / wait) == 0) {
            publish();
        }
    }
    const std::lock_guard lock(work_);
    leave();
}

void Tap::runForked() {
    if (!door_.open(settings_.socket)) {
        return;
    }
    const GuardStatus status = guardStatus();
    Hello hello;
    hello.isRecording = 1;
    hello.usesPlatform = 1;
    hello.guard = static_cast<std::uint32_t>(status.state);
    hello.retriesLeft = status.retriesLeft;
    programName().copy(hello.name.data(), hello.name.size() - 1);
    if (connectRecording(hello)) {
        // Its line was logged when there was nowhere to put it.
        memory_->page().facts.unitsCreated = 1;
        isUnitSeen_ = true;
        collectAgain();
        runRecording();
    }
}

void Tap::publish() {
    SharedPage& page = memory_->page();
    page.facts.hooksInstalled = RZStreamCollectManager::sharedManager().isHookSuccess() ? 1 : 0;
    const RZAudioRecordStat statistics;
    std::array<bool, kTracks> isThere{};
    for (const auto& info : statistics.getHookAudioTrackInfoList()) {
        const std::uint64_t id = info->audio_track_id();
        if (id == 0 || id >= kTracks) {
            continue;
        }
        isThere[id] = true;
        SharedTrack& track = page.tracks[id];
        track.sampleRate = static_cast<std::uint32_t>(std::max(info->sample_rate(), 0));
        track.channels = static_cast<std::uint32_t>(std::max(info->channel(), 0));
        track.isFloat = (info->audio_format() & kAudioFormatFlagIsFloat) != 0 ? 1 : 0;
        track.bufferedBytes = statistics.getHookAudioTrackStat(id)->pre_buffer_size();
    }
    for (std::size_t id = 0; id < kTracks; ++id) {
        page.tracks[id].isThere = isThere[id] ? 1 : 0;
    }
}

void Tap::leave() {
    outlet_.store(nullptr);
    // Both wait for a delivery under way, so that afterwards nobody writes to the memory.
    TQAudioRecordUnregisterYLogCallback(&Tap::onLog);
    auto& manager = RZStreamCollectManager::sharedManager();
    if (isCollecting_) {
        manager.stopAudioStreamCollect(trackTap_);
        manager.stopAudioStreamCollect(mixTap_);
        isCollecting_ = false;
    }
    volume_.end();
    memory_.reset();
    door_.close();
}

void Tap::pushBlock(RecordKind kind, const AudioBufferList& pcm,
                    const RZReplayASBDInfo& info) noexcept {
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    // Before its first unit a process has no sound, and a launcher never has: the mix would be
    // silence in files that another process's sound belongs into.
    if (outlet == nullptr || !isUnitSeen_.load(std::memory_order_relaxed)) {
        return;
    }
    constexpr std::size_t kMostBuffers = 32;
    std::array<RingWriter::Bytes, kMostBuffers> parts;
    const std::size_t count = std::min<std::size_t>(pcm.mNumberBuffers, kMostBuffers);
    for (std::size_t i = 0; i < count; ++i) {
        const AudioBuffer& buffer = pcm.mBuffers[i];
        parts[i] = {static_cast<const std::byte*>(buffer.mData),
                    buffer.mData == nullptr ? 0 : buffer.mDataByteSize};
    }
    RecordHeader header;
    header.kind = kind;
    header.buffers = static_cast<std::uint32_t>(count);
    header.channels = static_cast<std::uint32_t>(info.channelsPerFrame());
    header.bitsPerChannel = static_cast<std::uint32_t>(info.bitsPerChannel());
    header.isFloat = (info.formatFlags() & kAudioFormatFlagIsFloat) != 0 ? 1 : 0;
    header.sampleRate = info.sampleRate();
    header.microseconds = info.timeStamp();
    if (kind == RecordKind::kMix) {
        mixBlocks_.fetch_add(1, std::memory_order_relaxed);
    } else {
        header.track = static_cast<std::uint32_t>(info.trackId());
        if (header.track < kTracks) {
            header.unit = outlet->page->tracks[header.track].unit.load(std::memory_order_relaxed);
        }
    }
    outlet->sound.push(header, std::span(parts).first(count));
}

void Tap::pushEvent(std::uint64_t category, std::uint64_t code,
                    const std::string& message) noexcept {
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    if (outlet == nullptr) {
        return;
    }
    static const mach_timebase_info_data_t base = [] {
        mach_timebase_info_data_t read{};
        mach_timebase_info(&read);
        return read;
    }();
    RecordHeader header;
    header.kind = RecordKind::kEvent;
    header.category = category;
    header.code = code;
    header.microseconds = mach_absolute_time() * base.numer / base.denom / 1000;
    const std::array<RingWriter::Bytes, 1> parts{std::as_bytes(std::span(message))};
    outlet->events.push(header, parts);
}

void Tap::takeLine(const char* function, int level, NSString* message) noexcept {
    const char* const text = message == nullptr ? "" : message->UTF8String();
    if (isForked_.load(std::memory_order_relaxed)) {
        if (LogWatch::isNewUnit(text) && isForked_.exchange(false)) {
            try {
                startThread(&Tap::runForked);
            } catch (...) {
                // No thread to be had: the child plays on unrecorded.
            }
        }
        return;
    }
    const Outlet* const outlet = outlet_.load(std::memory_order_acquire);
    if (outlet == nullptr) {
        return;
    }
    if (logWatch_.take(text, *outlet->page)) {
        isUnitSeen_.store(true, std::memory_order_relaxed);
    }
    if (settings_.wantsLog) {
        RecordHeader header;
        header.kind = RecordKind::kLog;
        header.code = static_cast<std::uint64_t>(level);
        const char* const name = function == nullptr ? "" : function;
        header.first = static_cast<std::uint32_t>(std::strlen(name));
        const std::array<RingWriter::Bytes, 2> parts{
            std::as_bytes(std::span(name, header.first)),
            std::as_bytes(std::span(text, std::strlen(text)))};
        outlet->log.push(header, parts);
    }
}

void Tap::onLog(const char* /*file*/, const char* function, NSString* /*tag*/, int level,
                int /*line*/, NSString* message) {
    if (Tap* const tap = current()) {
        tap->takeLine(function, level, message);
    }
}

void Tap::onFork() {
    Tap* const tap = current();
    if (tap == nullptr) {
        return;
    }
    tap->work_.lock();
    if (!tap->isCollecting_ || tap->outlet_.load() == nullptr) {
        return;
    }
    // The mix comes last in a render cycle: right behind it the audio thread leaves the library and
    // sleeps. Nobody can hold it there, so this makes the moment likely, not certain.
    const std::uint64_t before = tap->mixBlocks_.load(std::memory_order_relaxed);
    constexpr timespec kPause{0, 200'000};
    constexpr int kMostPauses = 150;
    for (int i = 0; i < kMostPauses && tap->mixBlocks_.load(std::memory_order_relaxed) == before;
         ++i) {
        nanosleep(&kPause, nullptr);
    }
    nanosleep(&kPause, nullptr);
}

void Tap::onParentForked() {
    if (Tap* const tap = current()) {
        tap->work_.unlock();
    }
}

void Tap::onForked() {
    onParentForked();
    Tap* const tap = current();
    if (tap == nullptr || (tap->outlet_.load() == nullptr && !tap->isForked_.load())) {
        return;
    }
    // What is mapped is the parent's. The child gets its own if it ever makes a unit.
    tap->outlet_.store(nullptr);
    tap->door_.close();
    tap->isForked_.store(true);
}

}  // namespace tqrecorder
