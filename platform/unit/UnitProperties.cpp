#include <algorithm>
#include <cmath>
#include <cstring>

#include "component/Status.h"
#include "unit/Unit.h"

namespace tqplatform {

namespace {

/// A layout that describes the most channels there can be.
constexpr std::size_t kLargestProperty =
    sizeof(AudioChannelLayout) + kMaximumChannels * sizeof(AudioChannelDescription);
constexpr UInt32 kMostFramesPerSlice = 1U << 20;

}  // namespace

/// What all kinds of units have.
struct Unit::Properties {
    static OSStatus onBus(Unit& unit, PropertyKey key) {
        OSStatus status = noErr;
        static_cast<void>(unit.findBus(key.scope, key.element, status));
        return status;
    }
    static OSStatus onSideOfBus(Unit& unit, PropertyKey key) {
        return key.scope == kAudioUnitScope_Global ? OSStatus{kAudioUnitErr_InvalidScope}
                                                   : onBus(unit, key);
    }
    static OSStatus onSide(Unit& /*unit*/, PropertyKey key) {
        return okOr(key.scope <= kAudioUnitScope_Output, kAudioUnitErr_InvalidScope);
    }

    static void adjustFormat(Unit& unit, PropertyKey key, PropertyInfo& info) {
        info.writable = unit.isFormatWritableAt(key);
    }
    static void adjustCount(Unit& unit, PropertyKey key, PropertyInfo& info) {
        info.writable = key.scope == kAudioUnitScope_Input && unit.isInputCountWritable();
    }
    static OSStatus setFormat(Unit& unit, PropertyKey key, const void* data, UInt32 size) {
        return unit.writeFormat(key, data, size);
    }

    static void adjustLayout(Unit& unit, PropertyKey key, PropertyInfo& info) {
        info.size = static_cast<UInt32>(unit.layout(key).bytes().size());
    }
    static OSStatus getLayout(Unit& unit, PropertyKey key, void* data) {
        const ChannelLayout layout = unit.layout(key);
        std::memcpy(data, layout.bytes().data(), layout.bytes().size());
        return noErr;
    }
    static OSStatus setLayout(Unit& unit, PropertyKey key, const void* data, UInt32 size) {
        return unit.writeLayout(key, data, size);
    }
    static std::vector<AudioChannelLayoutTag> tagsAt(Unit& unit, PropertyKey key) {
        return layoutTags(unit.busFormat(key.scope, key.element).mChannelsPerFrame);
    }
    static void adjustLayoutTags(Unit& unit, PropertyKey key, PropertyInfo& info) {
        info.size = static_cast<UInt32>(tagsAt(unit, key).size() * sizeof(AudioChannelLayoutTag));
    }
    static OSStatus getLayoutTags(Unit& unit, PropertyKey key, void* data) {
        const auto tags = tagsAt(unit, key);
        std::memcpy(data, tags.data(), tags.size() * sizeof tags[0]);
        return noErr;
    }

    static constexpr PropertyRow formatRow() {
        PropertyRow row = property::readOnly<&Unit::format>(kAudioUnitProperty_StreamFormat, onBus);
        row.access = PropertyAccess::readWrite;
        row.set = setFormat;
        row.adjust = adjustFormat;
        row.checksItself = true;
        return row;
    }
    static constexpr PropertyRow rateRow() {
        PropertyRow row = property::readWrite<&Unit::sampleRate, &Unit::writeSampleRate>(
            kAudioUnitProperty_SampleRate, onBus);
        row.adjust = adjustFormat;
        return row;
    }
    static constexpr PropertyRow countRow() {
        PropertyRow row = property::readWrite<&Unit::elementCount, &Unit::writeElementCount>(
            kAudioUnitProperty_ElementCount, onSide);
        row.adjust = adjustCount;
        return row;
    }
    /// Checks itself: as long as the layout says.
    static constexpr PropertyRow layoutRow() {
        return {.id = kAudioUnitProperty_AudioChannelLayout,
                .size = 0,
                .access = PropertyAccess::readWrite,
                .where = onSideOfBus,
                .get = getLayout,
                .set = setLayout,
                .remove = property::remove<&Unit::removeLayout>,
                .adjust = adjustLayout,
                .checksItself = true};
    }
    static constexpr PropertyRow layoutTagsRow() {
        return {.id = kAudioUnitProperty_SupportedChannelLayoutTags,
                .size = 0,
                .access = PropertyAccess::read,
                .where = onSideOfBus,
                .get = getLayoutTags,
                .adjust = adjustLayoutTags};
    }
    /// Without set(): makeConnection() takes the lock by itself.
    static constexpr PropertyRow connectionRow() {
        return {.id = kAudioUnitProperty_MakeConnection,
                .size = sizeof(AudioUnitConnection),
                .access = PropertyAccess::write,
                .where = property::anywhere,
                .remove = property::remove<&Unit::removeSource>};
    }
};

const PropertyTable& Unit::commonProperties() {
    static constexpr PropertyRow kRows[] = {
        Properties::formatRow(),
        Properties::rateRow(),
        Properties::countRow(),
        Properties::connectionRow(),
        Properties::layoutRow(),
        Properties::layoutTagsRow(),
        property::writeOnly<&Unit::writeCallback, &Unit::removeSource>(
            kAudioUnitProperty_SetRenderCallback, property::anywhere),
        property::readWrite<&Unit::allocates, &Unit::writeAllocates>(
            kAudioUnitProperty_ShouldAllocateBuffer, Properties::onSideOfBus),
        property::readWrite<&Unit::maximumFrames, &Unit::writeMaximumFrames>(
            kAudioUnitProperty_MaximumFramesPerSlice, property::global),
        property::readOnly<&Unit::takeRenderError>(kAudioUnitProperty_LastRenderError,
                                                   property::global),
        property::readOnly<&Unit::load>(kAudioUnitProperty_CPULoad, property::global),
        property::readOnly<&Unit::noTime>(kAudioUnitProperty_Latency, property::global),
        property::readOnly<&Unit::noTime>(kAudioUnitProperty_TailTime, property::global),
        property::readOnly<&Unit::lastSampleTime>(kAudioUnitProperty_LastRenderSampleTime,
                                                  property::global),
        property::readOnly<&Unit::channelCounts>(kAudioUnitProperty_SupportedNumChannels,
                                                 property::global),
    };
    static constexpr PropertyTable kTable{kRows, nullptr};
    return kTable;
}

const PropertyTable& Unit::properties() const {
    return commonProperties();
}

Unit::Bus* Unit::findBus(AudioUnitScope scope, UInt32 element, OSStatus& status) {
    std::vector<Bus>* buses = nullptr;
    if (scope == kAudioUnitScope_Input) {
        buses = &inputs_;
    } else if (scope == kAudioUnitScope_Output || scope == kAudioUnitScope_Global) {
        buses = &outputs_;
    } else {
        status = kAudioUnitErr_InvalidScope;
        return nullptr;
    }
    if (element >= buses->size()) {
        status = kAudioUnitErr_InvalidElement;
        return nullptr;
    }
    return &(*buses)[element];
}

UInt32 Unit::elementCount(PropertyKey key) {
    if (key.scope == kAudioUnitScope_Global) {
        return 1;
    }
    return static_cast<UInt32>((key.scope == kAudioUnitScope_Input ? inputs_ : outputs_).size());
}

OSStatus Unit::writeElementCount(PropertyKey /*key*/, UInt32 count) {
    return setInputCount(count);
}

OSStatus Unit::setInputCount(UInt32 /*count*/) {
    return kAudioUnitErr_PropertyNotWritable;
}

UInt32 Unit::allocates(PropertyKey key) {
    return (key.scope == kAudioUnitScope_Input ? inputs_ : outputs_)[key.element].allocate ? 1 : 0;
}

OSStatus Unit::writeAllocates(PropertyKey key, UInt32 value) {
    if (initialized_) {
        return kAudioUnitErr_Initialized;
    }
    (key.scope == kAudioUnitScope_Input ? inputs_ : outputs_)[key.element].allocate = value != 0;
    return noErr;
}

UInt32 Unit::maximumFrames(PropertyKey /*key*/) {
    return maximumFrames_;
}

OSStatus Unit::writeMaximumFrames(PropertyKey /*key*/, UInt32 frames) {
    if (initialized_) {
        return kAudioUnitErr_Initialized;
    }
    if (frames == 0 || frames > kMostFramesPerSlice) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    maximumFrames_ = frames;
    return noErr;
}

OSStatus Unit::takeRenderError(PropertyKey /*key*/) {
    return lastRenderError_.exchange(noErr);
}

Float32 Unit::load(PropertyKey /*key*/) {
    return cpuLoad();
}

Float64 Unit::noTime(PropertyKey /*key*/) {
    return 0;
}

Float64 Unit::lastSampleTime(PropertyKey /*key*/) {
    return lastSampleTime_.load();
}

AUChannelInfo Unit::channelCounts(PropertyKey /*key*/) {
    return {-1, -1};  // any to any
}

const PropertyRow* Unit::describe(PropertyKey key, PropertyInfo& info, OSStatus& status) {
    const PropertyRow* const row = properties().find(key.id);
    status = row == nullptr ? OSStatus{kAudioUnitErr_InvalidProperty} : row->where(*this, key);
    if (status != noErr) {
        return nullptr;
    }
    info = {row->size, row->access != PropertyAccess::read};
    if (row->adjust != nullptr) {
        row->adjust(*this, key, info);
    }
    return row;
}

OSStatus Unit::getPropertyInfo(PropertyKey key, UInt32* size, Boolean* writable) {
    const std::lock_guard lock(lock_);
    PropertyInfo info{};
    OSStatus status = noErr;
    if (describe(key, info, status) != nullptr) {
        if (size != nullptr) {
            *size = info.size;
        }
        if (writable != nullptr) {
            *writable = info.writable ? 1 : 0;
        }
    }
    return status;
}

OSStatus Unit::getProperty(PropertyKey key, void* data, UInt32* size) {
    if (size == nullptr || (*size == 0 && data != nullptr)) {
        return kAudio_ParamError;
    }
    const std::lock_guard lock(lock_);
    PropertyInfo info{};
    OSStatus status = noErr;
    const PropertyRow* const row = describe(key, info, status);
    if (row == nullptr) {
        return status;
    }
    if (row->get == nullptr) {
        return kAudioUnitErr_InvalidProperty;
    }
    if (data == nullptr) {
        *size = info.size;
        return noErr;
    }
    std::array<std::byte, kLargestProperty> whole{};
    status = row->get(*this, key, whole.data());
    if (status == noErr) {
        *size = std::min(*size, info.size);
        std::memcpy(data, whole.data(), *size);
    }
    return status;
}

OSStatus Unit::setProperty(PropertyKey key, const void* data, UInt32 size) {
    if ((data == nullptr) != (size == 0)) {
        return kAudio_ParamError;
    }
    // How many frames a slice may have is a matter of the whole unit, whatever bus is named.
    if (key.id == kAudioUnitProperty_MaximumFramesPerSlice) {
        key.scope = kAudioUnitScope_Global;
        key.element = 0;
    }
    OSStatus status = noErr;
    if (key.id == kAudioUnitProperty_MakeConnection && data != nullptr) {
        status = setConnection(key, data, size);
    } else {
        const std::lock_guard lock(lock_);
        status = setUnderLock(key, data, size);
    }
    if (status != noErr) {
        return status;
    }
    const bool isFormat =
        key.id == kAudioUnitProperty_StreamFormat || key.id == kAudioUnitProperty_SampleRate;
    if (isFormat) {
        waitForSlice();
    }
    tellListeners(key);
    if (isFormat && key.scope != kAudioUnitScope_Input) {
        tellDependents(key.element);
    }
    return noErr;
}

OSStatus Unit::setConnection(PropertyKey& key, const void* data, UInt32 size) {
    AudioUnitConnection connection{};
    if (size < sizeof connection) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    std::memcpy(&connection, data, sizeof connection);
    key.element = connection.destInputNumber;
    return makeConnection(connection);
}

OSStatus Unit::setUnderLock(PropertyKey key, const void* data, UInt32 size) {
    PropertyInfo info{};
    OSStatus status = noErr;
    const PropertyRow* const row = describe(key, info, status);
    if (row == nullptr) {
        return status;
    }
    if (data == nullptr) {
        return row->remove == nullptr ? OSStatus{kAudioUnitErr_InvalidPropertyValue}
                                      : row->remove(*this, key);
    }
    if (!row->checksItself) {
        if (!info.writable) {
            return kAudioUnitErr_PropertyNotWritable;
        }
        if (size < info.size) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
    }
    return row->set(*this, key, data, size);
}

}  // namespace tqplatform
