#include <AVFoundation/AVFoundation.h>
#include <AudioToolbox/AudioSession.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <mutex>
#include <optional>
#include <variant>
#include <vector>

#include "common/ForkLocks.h"
#include "common/NeverDestroyed.h"
#include "device/Device.h"
#include "device/DeviceNotices.h"

namespace {

using Value = std::variant<UInt32, Float32, Float64>;

/// The platform's slice before the first was rendered, in frames.
constexpr UInt32 kUsualSlice = 1024;

constexpr std::array kSettableIDs = {kAudioSessionProperty_AudioCategory,
                                     kAudioSessionProperty_Mode,
                                     kAudioSessionProperty_OverrideCategoryMixWithOthers,
                                     kAudioSessionProperty_PreferredHardwareSampleRate,
                                     kAudioSessionProperty_PreferredHardwareIOBufferDuration};

constexpr std::array kHardwareIDs = {kAudioSessionProperty_CurrentHardwareSampleRate,
                                     kAudioSessionProperty_CurrentHardwareIOBufferDuration,
                                     kAudioSessionProperty_CurrentHardwareInputNumberChannels,
                                     kAudioSessionProperty_CurrentHardwareOutputNumberChannels,
                                     kAudioSessionProperty_CurrentHardwareInputLatency,
                                     kAudioSessionProperty_CurrentHardwareOutputLatency,
                                     kAudioSessionProperty_AudioInputAvailable};

constexpr std::array kCategories = {
    kAudioSessionCategory_AmbientSound, kAudioSessionCategory_SoloAmbientSound,
    kAudioSessionCategory_MediaPlayback, kAudioSessionCategory_RecordAudio,
    kAudioSessionCategory_PlayAndRecord};

template <class List>
bool contains(const List& list, UInt32 id) {
    return std::find(list.begin(), list.end(), id) != list.end();
}

/// So many frames of the device, or one of its slices for 0.
Float32 secondsOf(UInt32 frames, const tqplatform::Device& device) {
    if (frames == 0) {
        const UInt32 known = device.sliceFrames();
        frames = known != 0 ? known : std::min(kUsualSlice, device.maximumFrames());
    }
    return static_cast<Float32>(frames / device.sampleRate());
}

/// What the device says, nothing for other ids. Takes no lock of the session.
std::optional<Value> hardwareValue(AudioSessionPropertyID id) {
    if (!contains(kHardwareIDs, id)) {
        return std::nullopt;
    }
    tqplatform::Device& device = tqplatform::sharedDevice();
    device.meet();
    switch (id) {
        case kAudioSessionProperty_CurrentHardwareSampleRate:
            return device.sampleRate();
        case kAudioSessionProperty_CurrentHardwareInputNumberChannels:
            return device.inputChannels();
        case kAudioSessionProperty_CurrentHardwareOutputNumberChannels:
            return device.outputChannels();
        case kAudioSessionProperty_AudioInputAvailable:
            return UInt32{device.inputChannels() > 0 ? 1U : 0U};
        case kAudioSessionProperty_CurrentHardwareOutputLatency:
            return secondsOf(device.outputLatency(), device);
        case kAudioSessionProperty_CurrentHardwareInputLatency:
            return secondsOf(device.inputLatency(), device);
        default:
            return secondsOf(0, device);
    }
}

UInt32 sizeOf(const Value& value) {
    return std::visit([](auto held) { return UInt32{sizeof held}; }, value);
}

void copyTo(void* target, const Value& value) {
    std::visit([target](auto held) { std::memcpy(target, &held, sizeof held); }, value);
}

/// A value of the same type as `like`.
Value valueFrom(const void* source, Value like) {
    std::visit([source](auto& held) { std::memcpy(&held, source, sizeof held); }, like);
    return like;
}

bool isPositive(const Value& value) {
    return std::visit(
        [](auto held) {
            const auto number = static_cast<Float64>(held);
            return std::isfinite(number) && number > 0;
        },
        value);
}

struct PropertyListener {
    AudioSessionPropertyID id;
    AudioSessionPropertyListener procedure;
    void* clientData;

    bool operator==(const PropertyListener&) const = default;
};

class Session {
  public:
    OSStatus initialize(AudioSessionInterruptionListener listener, void* clientData) {
        {
            const std::lock_guard<std::mutex> guard(lock_);
            if (initialized_) {
                return kAudioSessionAlreadyInitialized;
            }
            initialized_ = true;
            interruptionListener_ = listener;
            interruptionData_ = clientData;
        }
        rememberHardware();
        NSNotificationCenter& center = NSNotificationCenter::defaultCenter();
        center.addObserver(
            this, [this](const NSNotification& notice) { onInterruption(notice); },
            AVAudioSessionInterruptionNotification, nullptr);
        center.addObserver(
            this, [this](const NSNotification&) { onRouteChange(); },
            AVAudioSessionRouteChangeNotification, nullptr);
        return kAudioSessionNoError;
    }

    [[nodiscard]] bool isInitialized() {
        const std::lock_guard<std::mutex> guard(lock_);
        return initialized_;
    }

    /// Nothing for an id that cannot be read.
    [[nodiscard]] std::optional<Value> value(AudioSessionPropertyID id) {
        if (const std::optional<Value> hardware = hardwareValue(id)) {
            return hardware;
        }
        if (id == kAudioSessionProperty_PreferredHardwareSampleRate ||
            id == kAudioSessionProperty_PreferredHardwareIOBufferDuration) {
            return preferredValue(id);
        }
        const std::lock_guard<std::mutex> guard(lock_);
        switch (id) {
            case kAudioSessionProperty_AudioCategory:
                return category_;
            case kAudioSessionProperty_Mode:
                return mode_;
            case kAudioSessionProperty_OverrideCategoryMixWithOthers:
                return mixWithOthers_;
            default:
                return std::nullopt;
        }
    }

    /// Takes a value of the right type.
    OSStatus setValue(AudioSessionPropertyID id, const Value& newValue) {
        const bool isPreference = id == kAudioSessionProperty_PreferredHardwareSampleRate ||
                                  id == kAudioSessionProperty_PreferredHardwareIOBufferDuration;
        if (isPreference && !isPositive(newValue)) {
            return kAudio_ParamError;
        }
        if (id == kAudioSessionProperty_AudioCategory &&
            !contains(kCategories, std::get<UInt32>(newValue))) {
            return kAudioSessionIncompatibleCategory;
        }
        const bool isRate = id == kAudioSessionProperty_PreferredHardwareSampleRate;
        const bool isDuration = id == kAudioSessionProperty_PreferredHardwareIOBufferDuration;
        const std::optional<Value> before = value(id);
        if (isRate && !tqplatform::sharedDevice().preferRate(std::get<Float64>(newValue))) {
            return kAudioSessionUnspecifiedError;
        }
        if (isDuration && !tqplatform::sharedDevice().preferDuration(std::get<Float32>(newValue))) {
            return kAudioSessionUnspecifiedError;
        }
        store(id, newValue);
        if (before != newValue) {
            callListeners(id, newValue);
        }
        // Whoever renders at the device's rate has to learn of another one, which a callback may
        // have asked for before. A device that takes long to change tells it itself.
        if ((isRate || isDuration) && tqplatform::sharedDevice().isNewFormat()) {
            tqplatform::tellRouteChange(AVAudioSessionRouteChangeReasonRouteConfigurationChange);
        }
        if (isRate || isDuration) {
            for (const auto& [hardware, now] : rememberHardware()) {
                callListeners(hardware, now);
            }
        }
        return kAudioSessionNoError;
    }

    void addListener(const PropertyListener& listener) {
        const std::lock_guard<std::mutex> guard(lock_);
        if (std::find(listeners_.begin(), listeners_.end(), listener) == listeners_.end()) {
            listeners_.push_back(listener);
        }
    }

    void removeListener(const PropertyListener& listener) {
        const std::lock_guard<std::mutex> guard(lock_);
        std::erase(listeners_, listener);
    }

  private:
    /// Until a program asks for something, what the device does is what is preferred.
    [[nodiscard]] std::optional<Value> preferredValue(AudioSessionPropertyID id) {
        const bool isRate = id == kAudioSessionProperty_PreferredHardwareSampleRate;
        if (!isRate || !tqplatform::sharedDevice().hasRefusedRate()) {
            const std::lock_guard<std::mutex> guard(lock_);
            if (const auto& preferred = isRate ? preferredRate_ : preferredDuration_) {
                return preferred;
            }
        }
        return hardwareValue(isRate ? kAudioSessionProperty_CurrentHardwareSampleRate
                                    : kAudioSessionProperty_CurrentHardwareIOBufferDuration);
    }

    void store(AudioSessionPropertyID id, const Value& newValue) {
        const std::lock_guard<std::mutex> guard(lock_);
        switch (id) {
            case kAudioSessionProperty_AudioCategory:
                category_ = std::get<UInt32>(newValue);
                break;
            case kAudioSessionProperty_Mode:
                mode_ = std::get<UInt32>(newValue);
                break;
            case kAudioSessionProperty_OverrideCategoryMixWithOthers:
                mixWithOthers_ = std::get<UInt32>(newValue);
                break;
            case kAudioSessionProperty_PreferredHardwareSampleRate:
                preferredRate_ = newValue;
                break;
            default:
                preferredDuration_ = newValue;
                break;
        }
    }

    /// Keeps what the hardware says now and answers what is another value than before.
    std::vector<std::pair<AudioSessionPropertyID, Value>> rememberHardware() {
        std::array<std::optional<Value>, kHardwareIDs.size()> now;
        std::transform(kHardwareIDs.begin(), kHardwareIDs.end(), now.begin(), hardwareValue);
        std::vector<std::pair<AudioSessionPropertyID, Value>> changed;
        const std::lock_guard<std::mutex> guard(lock_);
        for (std::size_t index = 0; index < now.size(); ++index) {
            if (now[index] != hardware_[index]) {
                changed.emplace_back(kHardwareIDs[index], *now[index]);
            }
        }
        hardware_ = now;
        return changed;
    }

    void onInterruption(const NSNotification& notice) {
        const long type = notice.integerForKey(AVAudioSessionInterruptionTypeKey, -1);
        AudioSessionInterruptionListener listener = nullptr;
        void* clientData = nullptr;
        {
            const std::lock_guard<std::mutex> guard(lock_);
            listener = interruptionListener_;
            clientData = interruptionData_;
        }
        if (listener == nullptr) {
            return;
        }
        if (type == AVAudioSessionInterruptionTypeBegan) {
            listener(clientData, kAudioSessionBeginInterruption);
        } else if (type == AVAudioSessionInterruptionTypeEnded) {
            listener(clientData, kAudioSessionEndInterruption);
        }
    }

    void onRouteChange() {
        const auto changed = rememberHardware();
        const CFTypeRef details = nullptr;
        callListeners(kAudioSessionProperty_AudioRouteChange, sizeof details, &details);
        for (const auto& [id, newValue] : changed) {
            callListeners(id, newValue);
        }
    }

    void callListeners(AudioSessionPropertyID id, const Value& newValue) {
        std::visit([this, id](auto held) { callListeners(id, sizeof held, &held); }, newValue);
    }

    void callListeners(AudioSessionPropertyID id, UInt32 size, const void* data) {
        std::vector<PropertyListener> called;
        {
            const std::lock_guard<std::mutex> guard(lock_);
            std::copy_if(listeners_.begin(), listeners_.end(), std::back_inserter(called),
                         [id](const PropertyListener& listener) { return listener.id == id; });
        }
        for (const PropertyListener& listener : called) {
            listener.procedure(listener.clientData, id, size, data);
        }
    }

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Foundation, lock_};
    bool initialized_ = false;
    AudioSessionInterruptionListener interruptionListener_ = nullptr;
    void* interruptionData_ = nullptr;
    UInt32 category_ = kAudioSessionCategory_SoloAmbientSound;
    UInt32 mode_ = kAudioSessionMode_Default;
    UInt32 mixWithOthers_ = 0;
    std::optional<Value> preferredRate_;
    std::optional<Value> preferredDuration_;
    std::array<std::optional<Value>, kHardwareIDs.size()> hardware_;
    std::vector<PropertyListener> listeners_;
};

Session& session() {
    static tqcommon::NeverDestroyed<Session> theSession;
    return *theSession;
}

OSStatus checkListener(AudioSessionPropertyID id, AudioSessionPropertyListener procedure) {
    if (!session().isInitialized()) {
        return kAudioSessionNotInitialized;
    }
    if (procedure == nullptr) {
        return kAudio_ParamError;
    }
    const bool known = id == kAudioSessionProperty_AudioRouteChange ||
                       id == kAudioSessionProperty_ServerDied || contains(kHardwareIDs, id) ||
                       contains(kSettableIDs, id);
    return known ? kAudioSessionNoError : kAudioSessionUnsupportedPropertyError;
}

}  // namespace

OSStatus AudioSessionInitialize(CFRunLoopRef, CFStringRef,
                                AudioSessionInterruptionListener inInterruptionListener,
                                void* inClientData) {
    return session().initialize(inInterruptionListener, inClientData);
}

OSStatus AudioSessionSetActive(Boolean) {
    return session().isInitialized() ? kAudioSessionNoError : kAudioSessionNotInitialized;
}

OSStatus AudioSessionGetPropertySize(AudioSessionPropertyID inID, UInt32* outDataSize) {
    if (!session().isInitialized()) {
        return kAudioSessionNotInitialized;
    }
    if (outDataSize == nullptr) {
        return kAudio_ParamError;
    }
    const std::optional<Value> value = session().value(inID);
    if (!value) {
        return kAudioSessionUnsupportedPropertyError;
    }
    *outDataSize = sizeOf(*value);
    return kAudioSessionNoError;
}

OSStatus AudioSessionGetProperty(AudioSessionPropertyID inID, UInt32* ioDataSize, void* outData) {
    if (!session().isInitialized()) {
        return kAudioSessionNotInitialized;
    }
    if (ioDataSize == nullptr || outData == nullptr) {
        return kAudio_ParamError;
    }
    const std::optional<Value> value = session().value(inID);
    if (!value) {
        return kAudioSessionUnsupportedPropertyError;
    }
    if (*ioDataSize < sizeOf(*value)) {
        return kAudioSessionBadPropertySizeError;
    }
    copyTo(outData, *value);
    *ioDataSize = sizeOf(*value);
    return kAudioSessionNoError;
}

OSStatus AudioSessionSetProperty(AudioSessionPropertyID inID, UInt32 inDataSize,
                                 const void* inData) {
    if (!session().isInitialized()) {
        return kAudioSessionNotInitialized;
    }
    if (inData == nullptr) {
        return kAudio_ParamError;
    }
    const std::optional<Value> like =
        contains(kSettableIDs, inID) ? session().value(inID) : std::nullopt;
    if (!like) {
        return kAudioSessionUnsupportedPropertyError;
    }
    if (inDataSize != sizeOf(*like)) {
        return kAudioSessionBadPropertySizeError;
    }
    return session().setValue(inID, valueFrom(inData, *like));
}

OSStatus AudioSessionAddPropertyListener(AudioSessionPropertyID inID,
                                         AudioSessionPropertyListener inProc, void* inClientData) {
    const OSStatus status = checkListener(inID, inProc);
    if (status == kAudioSessionNoError) {
        session().addListener({inID, inProc, inClientData});
    }
    return status;
}

OSStatus AudioSessionRemovePropertyListenerWithUserData(AudioSessionPropertyID inID,
                                                        AudioSessionPropertyListener inProc,
                                                        void* inClientData) {
    const OSStatus status = checkListener(inID, inProc);
    if (status == kAudioSessionNoError) {
        session().removeListener({inID, inProc, inClientData});
    }
    return status;
}
