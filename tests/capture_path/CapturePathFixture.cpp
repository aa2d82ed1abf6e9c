#include "CapturePathFixture.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"

namespace {

constexpr double kDeviceRate = 48000;

AudioComponent component(OSType type, OSType subType) {
    const AudioComponentDescription wanted{type, subType, kAudioUnitManufacturer_Apple, 0, 0};
    return AudioComponentFindNext(nullptr, &wanted);
}

template <class Sample>
void fillWith(const AudioBuffer& buffer, Sample sample) {
    auto* const first = static_cast<Sample*>(buffer.mData);
    std::fill(first, first + buffer.mDataByteSize / sizeof(Sample), sample);
}

}  // namespace

std::string pointerText(const void* pointer) {
    return NSFormat("%p", pointer);
}

std::vector<std::int16_t> CaptureListener::Block::samples(std::size_t buffer) const {
    std::vector<std::int16_t> result(buffers.at(buffer).size() / sizeof(std::int16_t));
    std::memcpy(result.data(), buffers[buffer].data(), result.size() * sizeof(std::int16_t));
    return result;
}

bool CaptureListener::Block::isSilent() const {
    return std::all_of(buffers.begin(), buffers.end(), [](const auto& bytes) {
        return std::all_of(bytes.begin(), bytes.end(),
                           [](std::byte b) { return b == std::byte{}; });
    });
}

void CaptureListener::onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) {
    Block block{info, {}};
    for (UInt32 i = 0; i < pcm->mNumberBuffers; ++i) {
        const auto* const first = static_cast<const std::byte*>(pcm->mBuffers[i].mData);
        block.buffers.emplace_back(first, first + pcm->mBuffers[i].mDataByteSize);
    }
    const std::scoped_lock guard(mutex_);
    blocks_.push_back(std::move(block));
}

void CaptureListener::onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                         const std::string& message) {
    const std::scoped_lock guard(mutex_);
    events_.push_back({category, code, message});
}

std::vector<RecordedEvent> CaptureListener::events() const {
    const std::scoped_lock guard(mutex_);
    return events_;
}

std::vector<CaptureListener::Block> CaptureListener::mixes() const {
    const std::scoped_lock guard(mutex_);
    std::vector<Block> found = blocks_;
    std::erase_if(found, [](const Block& block) { return !block.isMix(); });
    return found;
}

std::vector<CaptureListener::Block> CaptureListener::posts() const {
    const std::scoped_lock guard(mutex_);
    std::vector<Block> found = blocks_;
    std::erase_if(found, [](const Block& block) { return block.isMix(); });
    return found;
}

void CaptureListener::clear() {
    const std::scoped_lock guard(mutex_);
    events_.clear();
    blocks_.clear();
}

OSStatus HostSound::render(void* refCon, AudioUnitRenderActionFlags* /*flags*/,
                           const AudioTimeStamp* /*ts*/, UInt32 /*bus*/, UInt32 /*frames*/,
                           AudioBufferList* ioData) {
    auto& sound = *static_cast<HostSound*>(refCon);
    const int call = sound.calls++;
    const double value = sound.value + (sound.isRising ? call / 32767.0 : 0.0);
    for (UInt32 i = 0; i < ioData->mNumberBuffers; ++i) {
        if ((sound.format.mFormatFlags & kAudioFormatFlagIsFloat) != 0) {
            fillWith(ioData->mBuffers[i], static_cast<float>(value));
        } else if (sound.format.mBitsPerChannel == 32) {
            fillWith(ioData->mBuffers[i],
                     static_cast<std::int32_t>(std::lround(value * 2147483647)));
        } else {
            fillWith(ioData->mBuffers[i], static_cast<std::int16_t>(std::lround(value * 32767)));
        }
    }
    return sound.status;
}

HostUnit::HostUnit(OSType subType) {
    AudioComponentInstanceNew(component(kAudioUnitType_Output, subType), &unit_);
}

HostUnit::~HostUnit() {
    dispose();
}

OSStatus HostUnit::setFormat(const AudioStreamBasicDescription& format) {
    sound.format = format;
    return AudioUnitSetProperty(unit_, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                                &format, sizeof(format));
}

OSStatus HostUnit::setCallback(AudioUnitScope scope, AudioUnitElement element) {
    const AURenderCallbackStruct callback = sound.callback();
    return AudioUnitSetProperty(unit_, kAudioUnitProperty_SetRenderCallback, scope, element,
                                &callback, sizeof(callback));
}

OSStatus HostUnit::enableMicrophone() {
    const UInt32 on = 1;
    return AudioUnitSetProperty(unit_, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1,
                                &on, sizeof(on));
}

OSStatus HostUnit::initialize() {
    return AudioUnitInitialize(unit_);
}

OSStatus HostUnit::start() {
    return AudioOutputUnitStart(unit_);
}

OSStatus HostUnit::stop() {
    return AudioOutputUnitStop(unit_);
}

void HostUnit::uninitialize() {
    AudioUnitUninitialize(unit_);
}

void HostUnit::dispose() {
    if (unit_ != nullptr) {
        AudioOutputUnitStop(unit_);
        AudioUnitUninitialize(unit_);
        AudioComponentInstanceDispose(unit_);
        unit_ = nullptr;
    }
}

void HostUnit::prepare(AudioUnitScope callbackScope) {
    ASSERT_EQ(setFormat(sound.format), 0);
    ASSERT_EQ(setCallback(callbackScope), 0);
    ASSERT_EQ(initialize(), 0);
}

void HostUnit::play(AudioUnitScope callbackScope) {
    prepare(callbackScope);
    ASSERT_EQ(start(), 0);
}

std::shared_ptr<RZReplayAudioUnitObject> HostUnit::object() const {
    return RZStreamMixManager::sharedManager()->findAudioUnitObj(unit_);
}

HostGraph::HostGraph() {
    NewAUGraph(&graph_);
}

HostGraph::~HostGraph() {
    dispose();
}

AUNode HostGraph::add(OSType type, OSType subType) {
    const AudioComponentDescription desc{type, subType, kAudioUnitManufacturer_Apple, 0, 0};
    AUNode node = -1;
    EXPECT_EQ(AUGraphAddNode(graph_, &desc, &node), 0);
    return node;
}

AUNode HostGraph::addOutput() {
    output_ = add(kAudioUnitType_Output, kAudioUnitSubType_RemoteIO);
    return output_;
}

AUNode HostGraph::addMixer() {
    return add(kAudioUnitType_Mixer, kAudioUnitSubType_MultiChannelMixer);
}

OSStatus HostGraph::setCallback(AUNode node, UInt32 input) {
    const AURenderCallbackStruct callback = sound.callback();
    return AUGraphSetNodeInputCallback(graph_, node, input, &callback);
}

AudioUnit HostGraph::unitOf(AUNode node) const {
    AudioUnit unit = nullptr;
    AUGraphNodeInfo(graph_, node, nullptr, &unit);
    return unit;
}

void HostGraph::setOutputFormat() {
    ASSERT_EQ(AudioUnitSetProperty(unitOf(output_), kAudioUnitProperty_StreamFormat,
                                   kAudioUnitScope_Input, 0, &sound.format, sizeof(sound.format)),
              0);
}

void HostGraph::play() {
    addOutput();
    ASSERT_EQ(setCallback(output_), 0);
    ASSERT_EQ(AUGraphOpen(graph_), 0);
    setOutputFormat();
    ASSERT_EQ(AUGraphInitialize(graph_), 0);
    ASSERT_EQ(AUGraphStart(graph_), 0);
}

void HostGraph::dispose() {
    if (graph_ != nullptr) {
        DisposeAUGraph(graph_);
        graph_ = nullptr;
    }
}

std::shared_ptr<RZReplayAudioUnitObject> HostGraph::object() const {
    return RZStreamMixManager::sharedManager()->findAudioUnitObjByAUGraph(graph_);
}

void CapturePath::SetUp() {
    platform.install();
    RZReplayAudioUnitCapturer::startHook();
    RZReplayAudioUnitGraphCapturer::startHook();
    ASSERT_TRUE(collect().isHookSuccess());
    platform.clear();
    logs = std::make_unique<LogCapture>();
}

void CapturePath::TearDown() {
    platform.heal();
    collect().stopAudioStreamCollect(listener);
    drainRecorder();
    logs.reset();
}

bool CapturePath::startCapture() {
    collect().startAudioStreamCollect(listener);
    drainRecorder();
    return manager().isCapturing();
}

void CapturePath::stopCapture() {
    collect().stopAudioStreamCollect(listener);
    drainRecorder();
}

void CapturePath::drainRecorder() {
    dispatch_sync(collect().audioRecorder()->queue(), [] {});
}

void CapturePath::pump(int slices, UInt32 frames) {
    for (int i = 0; i < slices; ++i) {
        ASSERT_EQ(TQManualDevicePump(frames, hostTime), 0);
        hostTime += static_cast<std::uint64_t>(frames * (1e9 / kDeviceRate));
    }
}
