#include <cstdarg>
#include <memory>

#define private public
#include "stdafx.h"
#undef private
#include "debug.h"
#include "mixer.h"
#include "sound/cocoa_s.h"

#include "Player.h"

int _debug_driver_level;

void DebugPrint(const char* /*level*/, const std::string& message) {
    playerFailed(message.c_str());
}
int GetDriverParamInt(const StringList& /*parm*/, const char* /*name*/, int def) {
    return def;
}
bool MxInitialize(uint rate) {
    return rate == kPlayerRate;
}
void MxMixSamples(void* buffer, uint samples) {
    nextFrames(static_cast<int16_t*>(buffer), samples);
}
DriverFactoryBase::DriverFactoryBase(Driver::Type type, int priority, const char* name,
                                     const char* description)
    : type(type), priority(priority), name(name), description(description) {
}
DriverFactoryBase::~DriverFactoryBase() = default;

void play() {
    SoundDriver_Cocoa driver;
    if (driver.Start({}) != nullptr) {
        playerFailed("start");
    }
    for (int i = 0; i < kPlayerSlices; ++i) {
        pumpSlice();
    }
    driver.Stop();
}
