#include "Player.h"

#include "SC_CoreAudio.h"
#include "SC_HiddenWorld.h"
#include "SC_World.h"

// The synthesiser around the back end: its buses are filled instead of computed.

#undef AudioSessionGetProperty
extern "C" OSStatus AudioSessionGetProperty(AudioSessionPropertyID id, UInt32* size, void* data);

/// The back end takes every slice for as long as the session says, and its buffers end at half of
/// what the manual device may be asked for: here the session says what is pumped.
OSStatus sessionProperty(AudioSessionPropertyID id, UInt32* size, void* data) {
    if (id == kAudioSessionProperty_CurrentHardwareIOBufferDuration) {
        *static_cast<Float32*>(data) = static_cast<Float32>(kPlayerSlice) / kPlayerRate;
        return noErr;
    }
    return AudioSessionGetProperty(id, size, data);
}

void* gCmdLib;
void* gCmdArray[1];

int scprintf(const char* /*format*/, ...) {
    return 0;
}
void World_Start(World* /*world*/) {
}
void World_SetSampleRate(World* /*world*/, double /*rate*/) {
}

void World_Run(World* world) {
    for (int i = 0; i < world->mBufLength; ++i) {
        float frame[kPlayerChannels];
        nextFloatFrames(frame, 1);
        for (int k = 0; k < kPlayerChannels; ++k) {
            world->mAudioBus[k * world->mBufLength + i] = frame[k];
            world->mAudioBusTouched[k] = world->mBufCounter;
        }
    }
}

void play() {
    static float buses[4 * kPlayerSlice];
    static int32 touched[4];
    static SC_Lock lock;
    static HiddenWorld hidden{};
    static World world{};
    world.hw = &hidden;
    world.mNumInputs = 1;
    world.mNumOutputs = kPlayerChannels;
    world.mAudioBus = buses;
    world.mAudioBusTouched = touched;
    world.mNRTLock = &lock;
    world.mVerbosity = -1;
    world.mBufLength = kPlayerSlice;
    SC_AudioDriver* const driver = SC_NewAudioDriver(&world);
    driver->SetPreferredHardwareBufferFrameSize(kPlayerSlice);
    if (!driver->Setup() || driver->NumSamplesPerCallback() != kPlayerSlice) {
        playerFailed("setup");
    }
    if (!driver->Start()) {
        playerFailed("start");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
    driver->Stop();
    delete driver;
}
