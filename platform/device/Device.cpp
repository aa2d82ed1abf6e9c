#include "device/Device.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <memory>
#include <new>
#include <thread>

#include "common/SignalsBlocked.h"
#include "common/Threads.h"
#include "device/DeviceNotices.h"
#include "format/PCMFormat.h"

namespace tqplatform {

namespace {

constexpr Float64 kLowestRate = 1000;
constexpr Float64 kHighestRate = 384000;
constexpr UInt32 kMostFrames = 1U << 20;
constexpr Float64 kTicksPerSecond = 1e9;

bool isUsable(const DeviceFormat& format) {
    // Written so that a rate that is no number fails.
    return format.sampleRate >= kLowestRate && format.sampleRate <= kHighestRate &&
           format.outputChannels >= 1 && format.outputChannels <= kMaximumChannels &&
           format.inputChannels <= kMaximumChannels && format.maximumFrames >= 1 &&
           format.maximumFrames <= kMostFrames;
}

}  // namespace

std::unique_ptr<Device> Device::open(std::string_view name, std::span<const BackendRow> rows) {
    std::unique_ptr<Device> device(new Device(rows));
    if (!device->take(name)) {
        return nullptr;
    }
    static_cast<void>(device->isNewFormat());  // what it is like at first is no news
    return device;
}

std::string_view Device::name() const noexcept {
    return row_.load(std::memory_order_relaxed)->name;
}

Float64 Device::sampleRate() const noexcept {
    return sampleRate_.load(std::memory_order_relaxed);
}

UInt32 Device::outputChannels() const noexcept {
    return outputChannels_.load(std::memory_order_relaxed);
}

UInt32 Device::inputChannels() const noexcept {
    return inputChannels_.load(std::memory_order_relaxed);
}

bool Device::take(std::string_view name) {
    for (const BackendRow& row : rows_) {
        if (name == "auto" ? !row.automatic : row.name != name) {
            continue;
        }
        auto backend = row.make();
        const auto format = backend->open(*this);
        if (!format || !isUsable(*format)) {
            continue;
        }
        if (maximumFrames_ == 0) {
            maximumFrames_ = format->maximumFrames;
        }
        adopt(*format);
        backend_ = std::move(backend);
        row_.store(&row, std::memory_order_relaxed);
        // What the program asked for holds for the one that comes after a loss, if it can.
        if (preferredRate_ > 0) {
            static_cast<void>(backend_->preferRate(preferredRate_, false));
        }
        if (preferredSeconds_ > 0) {
            backend_->preferDuration(preferredSeconds_, false);
        }
        if (!preferredMicrophone_.empty()) {
            static_cast<void>(backend_->preferMicrophone(preferredMicrophone_));
        }
        told_ = 0;
        return true;
    }
    return false;
}

void Device::adopt(const DeviceFormat& format) {
    if (buffers_ == nullptr || outputChannels() != format.outputChannels ||
        inputChannels() != format.inputChannels) {
        buffers_ = std::make_unique<SliceBuffers>(format.inputChannels, format.outputChannels,
                                                  maximumFrames_);
    }
    outputChannels_.store(format.outputChannels, std::memory_order_relaxed);
    inputChannels_.store(format.inputChannels, std::memory_order_relaxed);
    sampleRate_.store(format.sampleRate, std::memory_order_relaxed);
    outputLatency_.store(format.outputLatency, std::memory_order_relaxed);
    inputLatency_.store(format.inputLatency, std::memory_order_relaxed);
    if (format.usualFrames != 0) {
        sliceFrames_.store(format.usualFrames, std::memory_order_relaxed);
    }
}

template <class Ask>
bool Device::asked(const Ask& ask) {
    const bool mayWait = !isDeviceThread();
    std::unique_lock lock(verbs_, std::defer_lock);
    // The device's thread does not wait: the holder may be waiting for this slice to end.
    if (mayWait) {
        lock.lock();
    } else if (!lock.try_lock()) {
        return false;
    }
    // There is none where all of them refused when the last one was lost.
    return backend_ != nullptr && ask(*backend_, mayWait);
}

bool Device::preferRate(Float64 sampleRate) {
    return asked([&](Backend& backend, bool mayWait) {
        if (!backend.preferRate(sampleRate, mayWait)) {
            return false;
        }
        preferredRate_ = sampleRate;
        return true;
    });
}

bool Device::hasRefusedRate() {
    return asked([](Backend& backend, bool /*mayWait*/) { return backend.hasRefusedRate(); });
}

bool Device::isNewFormat() noexcept {
    const Float64 rate = sampleRate();
    const UInt32 outputs = outputChannels();
    const UInt32 inputs = inputChannels();
    const bool isNewRate = toldRate_.exchange(rate) != rate;
    const bool isNewOutput = toldOutputs_.exchange(outputs) != outputs;
    const bool isNewInput = toldInputs_.exchange(inputs) != inputs;
    return isNewRate || isNewOutput || isNewInput;
}

bool Device::preferDuration(Float64 seconds) {
    return asked([&](Backend& backend, bool mayWait) {
        if (!backend.preferDuration(seconds, mayWait)) {
            return false;
        }
        preferredSeconds_ = seconds;
        return true;
    });
}

bool Device::preferMicrophone(const std::string& name) {
    return asked([&](Backend& backend, bool /*mayWait*/) {
        if (!backend.preferMicrophone(name)) {
            return false;
        }
        preferredMicrophone_ = name;
        return true;
    });
}

bool Device::isHearing() {
    return asked([](Backend& backend, bool /*mayWait*/) { return backend.isHearing(); });
}

void Device::meet() {
    if (!met_.load(std::memory_order_acquire) && !isDeviceThread()) {
        static_cast<void>(asked([](Backend& backend, bool /*mayWait*/) {
            backend.meet();
            return true;
        }));
        met_.store(true, std::memory_order_release);
    }
}

unsigned Device::wants() const noexcept {
    const ClientWants coming{comingHeard_.load(std::memory_order_relaxed) > 0,
                             comingHearing_.load(std::memory_order_relaxed) > 0};
    return clients_.wants().bits() | coming.bits();
}

void Device::expect(const ClientWants& wants) {
    if ((wants.bits() & ~told_.load()) != 0) {
        const std::lock_guard lock(verbs_);
        tell(true);
    }
}

void Device::tell(bool mayWait) noexcept {
    if (const unsigned now = wants(); backend_ != nullptr && now != told_.load()) {
        told_.store(now);
        backend_->expect(ClientWants::of(now), mayWait);
    }
}

/// A client that is about to be added counts as one that is there.
class Device::Coming {
  public:
    Coming(Device& device, const ClientWants& wants) noexcept : device_(device), wants_(wants) {
        count(1);
    }
    ~Coming() { count(-1); }
    Coming(const Coming&) = delete;
    Coming& operator=(const Coming&) = delete;

  private:
    void count(int step) noexcept {
        device_.comingHeard_ += wants_.heard ? step : 0;
        device_.comingHearing_ += wants_.hearing ? step : 0;
    }

    Device& device_;
    const ClientWants wants_;
};

bool Device::addClient(DeviceClient& client) {
    if (isDeviceThread()) {
        static_cast<void>(clients_.add(client));
        // The backend runs, unless the last client left while this slice was under way.
        if (!running_.load() || wants() != told_.load()) {
            followElsewhere();
        }
        return true;
    }
    // First of all the backend gets ready: the client's first block is the first that is heard.
    bool added = false;
    {
        const Coming coming(*this, client.wants());
        expect(client.wants());
        added = clients_.add(client);
    }
    if (follow()) {
        return true;
    }
    if (added) {
        clients_.remove(client);
        const std::lock_guard lock(verbs_);
        tell(true);
    }
    return false;
}

void Device::removeClient(DeviceClient& client) {
    clients_.remove(client);
    // Inside a slice its end looks after the backend.
    if (!isDeviceThread()) {
        static_cast<void>(follow());
    }
}

AudioTimeStamp Device::render(const BlockRequest& block) noexcept {
    const tqcommon::RenderThreadScope scope;
    const AudioTimeStamp first = stamp(block.hostTime);
    const UInt64 heardTime = block.heardTime != 0 ? block.heardTime : block.hostTime;
    bool isUsed = true;
    for (UInt32 done = 0; done < block.frames;) {
        const UInt32 frames = std::min(block.frames - done, maximumFrames_);
        const auto later = static_cast<UInt64>(done / sampleRate() * kTicksPerSecond);
        const AudioTimeStamp time = stamp(block.hostTime + later);
        buffers_->begin(time, heardTime + later, block, done, frames);
        isUsed = clients_.render(*buffers_);
        buffers_->end();
        framesRendered_ += frames;
        sliceFrames_.store(frames, std::memory_order_relaxed);
        done += frames;
    }
    if ((!isUsed && running_.load()) || wants() != told_.load(std::memory_order_relaxed)) {
        rest();
    }
    return first;
}

AudioTimeStamp Device::stamp(UInt64 hostTime) const noexcept {
    AudioTimeStamp time{};
    time.mSampleTime = static_cast<Float64>(framesRendered_);
    time.mHostTime = hostTime;
    time.mRateScalar = 1;
    time.mFlags = kAudioTimeStampSampleHostTimeValid | kAudioTimeStampRateScalarValid;
    return time;
}

void Device::changed(const DeviceFormat& format) noexcept {
    try {
        if (isUsable(format)) {
            adopt(format);
            return;
        }
    } catch (const std::bad_alloc&) {
        // No memory to go on with: like any other loss.
    }
    lost();
}

void Device::lost() noexcept {
    // Not on this thread: the backend that calls is the one to be ended.
    if (!lost_.exchange(true)) {
        followElsewhere();
    }
}

void Device::changedLate() noexcept {
    // Not on this thread, which renders: handlers take as long as they like.
    elsewhere([this] {
        if (isNewFormat()) {
            tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
        }
    });
}

template <class Call>
void Device::elsewhere(const Call& call) noexcept {
    try {
        const tqcommon::SignalsBlocked blocked;
        std::thread(call).detach();
    } catch (const std::exception&) {
        // No thread or no memory: the next client that comes or goes, or the next notice, makes up
        // for it.
    }
}

void Device::followElsewhere() noexcept {
    elsewhere([this] { static_cast<void>(follow()); });
}

void Device::rest() noexcept {
    const std::unique_lock lock(verbs_, std::try_to_lock);
    // Whoever holds the lock looks at the clients once more behind it.
    if (!lock) {
        return;
    }
    tell(false);
    if (clients_.empty() && running_.exchange(false)) {
        backend_->stop();
    }
}

bool Device::follow() {
    assert(!isDeviceThread());
    bool runs = true;
    do {
        const std::lock_guard lock(verbs_);
        runs = settle();
    } while (runs &&
             (lost_.load() || running_.load() == clients_.empty() || wants() != told_.load()));
    return runs;
}

bool Device::settle() {
    if (lost_.exchange(false) && !replace(name())) {
        lost_.store(true);
        return false;
    }
    tell(true);
    const bool isUsed = !clients_.empty();
    if (isUsed && !running_.load()) {
        return start() || (replace(name()) && start()) || (replace(rows_.back().name) && start());
    }
    if (!isUsed && running_.exchange(false)) {
        backend_->stop();
    }
    return true;
}

bool Device::start() {
    // Set first: a client may leave in the very first slice.
    running_.store(true);
    bool hasStarted = false;
    try {
        hasStarted = backend_->start();
    } catch (const std::exception&) {
        // No memory for what it needs: like any other backend that cannot.
    }
    if (!hasStarted) {
        running_.store(false);
    }
    return hasStarted;
}

bool Device::replace(std::string_view name) noexcept {
    replacing_ = true;
    running_.store(false);
    backend_.reset();
    bool taken = false;
    try {
        taken = take(name) || take(rows_.back().name);
    } catch (const std::exception&) {
        // Tried again with the next client that comes or goes.
    }
    replacing_ = false;
    return taken;
}

void Device::resetAfterFork() noexcept {
    // When a client forks, the forking thread is the backend's, and it is the child's too.
    const bool isInSlice = isDeviceThread();
    clients_.resetAfterFork();
    std::construct_at(&verbs_);
    comingHeard_ = comingHearing_ = 0;
    told_ = 0;
    if (replacing_) {
        // Half made by a thread that the child does not have: left behind and made anew.
        static_cast<void>(backend_.release());
        static_cast<void>(buffers_.release());
        replacing_ = false;
        running_.store(false);
        lost_.store(true);
    } else if (isInSlice) {
        backend_->forgetOthersAfterFork();
    } else {
        running_.store(false);
        // There is none where all of them refused when the last one was lost.
        if (backend_ != nullptr) {
            backend_->forgetAfterFork();
        }
    }
}

}  // namespace tqplatform
