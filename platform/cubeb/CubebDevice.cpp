#include "CubebDevice.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <span>
#include <string_view>
#include <thread>

#include "CubebStreams.h"

namespace tqcubeb {

namespace {

using tqplatform::DeviceFormat;
using tqplatform::HeardHost;
using tqplatform::HeardWish;

constexpr UInt32 kChannels = 2;
/// What a server may ask for at a time when it is late itself: twice what it is given in hand.
constexpr UInt32 kLargestRequest = 4 * kMaximumFrames;
/// A server may say anything.
constexpr uint32_t kHighestRate = 192000;
/// As the null device's: as high as a thread gets without a real-time class, where that is allowed.
constexpr int kNiceness = -11;
/// PulseAudio brings a quarter of what it is asked for at a time. One may be late.
constexpr UInt32 kPiecesHeard = 4;
constexpr std::chrono::milliseconds kDrainStep{2};
constexpr int kDrainSteps = 250;

/// Of the first server or driver that was reached without being named; null before. The process's.
std::atomic<const char*> theKind{nullptr};
/// Of the microphone that was there last: while there is none, what is heard is silence in as many,
/// and who listens keeps its callbacks. 0 before the first, the process's.
std::atomic<UInt32> theHeardChannels{0};

}  // namespace

CubebDevice::~CubebDevice() {
    // In this order: a request reads what the microphone has brought.
    isHearing_.store(false);
    stream_.reset();
    microphone_.reset();
}

bool CubebDevice::reach(const char* kind) {
    cubeb* context = nullptr;
    if (cubeb_init(&context, kName, kind) != CUBEB_OK) {
        return false;
    }
    context_.reset(context);
    // The library begins without a device, and with another kind than was asked for.
    uint32_t rate = 0;
    uint32_t channels = 0;
    const bool isIt = std::string(cubeb_get_backend_id(context)) == kind;
    if (!isIt || cubeb_get_preferred_sample_rate(context, &rate) != CUBEB_OK ||
        cubeb_get_max_channel_count(context, &channels) != CUBEB_OK || rate == 0 || channels == 0) {
        context_.reset();
        return false;
    }
    sampleRate_ = std::min(rate, kHighestRate);
    isJack_ = std::string(kind) == "jack";
    return true;
}

bool CubebDevice::reach() {
    const char* const chosen = theKind.load(std::memory_order_relaxed);
    const std::string wanted = !kind_.empty() || chosen == nullptr ? kind_ : chosen;
    for (const char* kind : {"pulse", "jack", "alsa"}) {
        if ((wanted.empty() || wanted == kind) && reach(kind)) {
            reached_ = kind;
            return true;
        }
    }
    return false;
}

bool CubebDevice::list(TQDeviceListing each, void* refCon) {
    if (!reach()) {
        return false;
    }
    for (const cubeb_device_type type : {CUBEB_DEVICE_TYPE_OUTPUT, CUBEB_DEVICE_TYPE_INPUT}) {
        cubeb_device_collection devices{};
        if (cubeb_enumerate_devices(context_.get(), type, &devices) != CUBEB_OK) {
            continue;
        }
        const bool hears = type == CUBEB_DEVICE_TYPE_INPUT;
        for (const cubeb_device_info& device : std::span(devices.device, devices.count)) {
            const auto orNothing = [](const char* text) { return text == nullptr ? "" : text; };
            const char* const name = orNothing(device.device_id);
            const TQDeviceDescription description{
                .server = cubeb_get_backend_id(context_.get()),
                .name = name,
                .title = orNothing(device.friendly_name),
                .hears = hears,
                .isDefault =
                    device.preferred != CUBEB_DEVICE_PREF_NONE && !(hears && isOfPrograms(name)),
                .sampleRate = static_cast<Float64>(device.default_rate),
                .channels = device.max_channels};
            each(refCon, &description);
        }
        cubeb_device_collection_destroy(context_.get(), &devices);
    }
    return true;
}

std::optional<DeviceFormat> CubebDevice::open(HeardHost& host, const HeardWish& wish) {
    host_ = &host;
    if (!reach()) {
        return std::nullopt;
    }
    const UInt32 ownRate = sampleRate_;
    if (wish.sampleRate > 0) {
        sampleRate_ = static_cast<UInt32>(std::lround(wish.sampleRate));
    }
    cubeb_stream_params params = paramsAt(sampleRate_, kChannels);
    uint32_t least = 0;
    if (cubeb_get_min_latency(context_.get(), &params, &least) != CUBEB_OK) {
        return std::nullopt;
    }
    if (isJack_) {
        // Now, and kept: a client that is made when the server has gone takes the ground from under
        // the library's own.
        jackWatch_ = std::make_unique<JackWatch>(kName, [this] { lose(); });
        if (const UInt32 period = jackWatch_->period(); period > 0) {
            least = static_cast<uint32_t>(UInt64{period} * sampleRate_ / ownRate);
        }
    }
    least_ = least;
    lengths_ = lengthsFor(wish.seconds);
    isToPlay_ = wish.isToPlay;
    microphoneName_ = wish.microphone;
    inputChannels_ = microphone().channels;
    if (inputChannels_ > 0) {
        theHeardChannels.store(inputChannels_, std::memory_order_relaxed);
    }
    if (kind_.empty()) {
        // While its server is away a card that answers is not taken for good in its place.
        theKind.store(reached_, std::memory_order_relaxed);
    }
    // What is in hand at the most. The library's own figures are what happens to be on its way at
    // the moment of asking, or nothing.
    return DeviceFormat{
        .sampleRate = static_cast<Float64>(sampleRate_),
        .outputChannels = kChannels,
        .inputChannels = theHeardChannels.load(std::memory_order_relaxed),
        .maximumFrames = kMaximumFrames,
        .usualFrames = isToPlay_ ? lengths_.played / kRequestsInHand : lengths_.aloneSlice,
        .outputLatency = isToPlay_ ? lengths_.played : 0,
        .inputLatency = isToPlay_ ? lengths_.heard + lengths_.inHand : lengths_.alone};
}

StreamLengths CubebDevice::lengthsFor(Float64 seconds) const noexcept {
    return isJack_ ? StreamLengths::ofJack(least_)
                   : StreamLengths::of(seconds * sampleRate_, least_);
}

bool CubebDevice::hasLengthOf(Float64 seconds) const {
    const StreamLengths other = lengthsFor(seconds);
    if (!isToPlay_) {
        return other.alone == lengths_.alone;
    }
    // Where there is no microphone, nothing is kept between it and the speakers.
    return other.played == lengths_.played &&
           (inputChannels_ == 0 || other.inHand == lengths_.inHand);
}

bool CubebDevice::start() {
    clock_ = PlayClock(sampleRate_);
    if (std::string_view(reached_) == "pulse") {
        watch_ = std::make_unique<PulseWatch>(kName);
        watch_->expect(microphoneName_);
    }
    if (!isToPlay_) {
        return inputChannels_ > 0 && listen(&onHeardAlone, &onHeardAloneState, lengths_.alone);
    }
    if (inputChannels_ > 0) {
        heard_ = std::make_unique<tqcommon::DriftFifo>(inputChannels_, sampleRate_, lengths_.inHand,
                                                       lengths_.heard / kPiecesHeard);
        heardBlock_.resize(std::size_t{kLargestRequest} * inputChannels_);
    }
    return makeStream() && cubeb_stream_start(stream_.get()) == CUBEB_OK;
}

bool CubebDevice::makeStream() {
    cubeb_stream_params params = paramsAt(sampleRate_, kChannels);
    cubeb_stream* stream = nullptr;
    if (cubeb_stream_init(context_.get(), &stream, kName, nullptr, nullptr, nullptr, &params,
                          lengths_.played, &onBlock, &onState, this) != CUBEB_OK) {
        return false;
    }
    stream_.reset(stream);
    return true;
}

bool CubebDevice::finish() noexcept {
    stage_.store(Stage::finishing);
    for (int step = 0; stage_.load() != Stage::drained && step < kDrainSteps; ++step) {
        std::this_thread::sleep_for(kDrainStep);
        Stage stage = Stage::finishing;
        if (host_->isWantedAgain() && stage_.compare_exchange_strong(stage, Stage::playing)) {
            return true;
        }
    }
    return false;
}

tqplatform::HeardPlace CubebDevice::place() {
    // Not the library's word: it reads the name of a device while the server may be changing it.
    tqplatform::HeardPlace place;
    if (watch_ != nullptr) {
        place = watch_->place();
    }
    place.speakers.sampleRate = std::min<Float64>(place.speakers.sampleRate, kHighestRate);
    place.microphone.channels = std::min(place.microphone.channels, kChannels);
    if (mishears()) {
        place.microphone = {};
    }
    return place;
}

long CubebDevice::onBlock(cubeb_stream* /*stream*/, void* self, const void* /*heard*/, void* played,
                          long frames) {
    return static_cast<CubebDevice*>(self)->play(static_cast<float*>(played),
                                                 static_cast<UInt32>(frames));
}

long CubebDevice::play(float* played, UInt32 frames) noexcept {
    if (stage_.load(std::memory_order_relaxed) != Stage::playing) {
        // Some servers say that all is played while the last of it is still on its way: what is on
        // its way then is silence.
        tqcommon::silence(tqcommon::AudioView::interleaved(played, kChannels, frames));
        silentFrames_ += frames;
        Stage stage = Stage::finishing;
        const bool isOver =
            silentFrames_ > lengths_.played &&
            (stage_.compare_exchange_strong(stage, Stage::draining) || stage != Stage::playing);
        return isOver ? 0 : frames;
    }
    silentFrames_ = 0;
    hurry();
    // It fills up what is in hand: what was left of that is played first.
    const UInt64 ahead = durationOf(lengths_.played - std::min(frames, lengths_.played));
    tqcommon::ConstAudioView heard;
    UInt64 heardTime = 0;
    // Acquired: that the FIFO begins anew was stored before.
    if (isHearing_.load(std::memory_order_acquire) && frames <= kLargestRequest) {
        heard_->read(heardBlock_.data(), frames);
        heard = tqcommon::ConstAudioView::interleaved(heardBlock_.data(), inputChannels_, frames);
        heardTime = heardTimeOf(frames);
    }
    host_->renderHeard({.frames = frames,
                        .hostTime = clock_.next(nowNs() + ahead, frames),
                        .heard = heard,
                        .played = tqcommon::AudioView::interleaved(played, kChannels, frames),
                        .heardTime = heardTime});
    return frames;
}

void CubebDevice::hurry() noexcept {
    if (!isHurried_) {
        isHurried_ = true;
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNiceness);
    }
}

UInt64 CubebDevice::durationOf(UInt32 frames) const noexcept {
    return static_cast<UInt64>(frames * kNsPerSecond / sampleRate_);
}

void CubebDevice::onState(cubeb_stream* /*stream*/, void* self, cubeb_state state) {
    auto& device = *static_cast<CubebDevice*>(self);
    if (state == CUBEB_STATE_DRAINED) {
        device.stage_.store(Stage::drained);
    } else if (state == CUBEB_STATE_ERROR) {
        device.lose();
    }
}

void CubebDevice::lose() noexcept {
    isHearing_.store(false);       // a device that only listens has one stream alone
    stage_.store(Stage::drained);  // nobody waits for what is not played any more
    host_->lostHeard();
}

}  // namespace tqcubeb
