// Where the platform enters this module.

#include "CubebDevice.h"
#include "LoginManager.h"

extern "C" [[gnu::visibility("default")]] void tqdevice_make(
    const char* kind, std::unique_ptr<tqplatform::HeardDevice>* made) {
    *made = std::make_unique<tqcubeb::CubebDevice>(kind);
}

extern "C" [[gnu::visibility("default")]] bool tqdevice_list(const char* kind, TQDeviceListing each,
                                                             void* refCon) {
    return tqcubeb::CubebDevice(kind).list(each, refCon);
}

extern "C" [[gnu::visibility("default")]] void tqdevice_watch_sleep(
    std::unique_ptr<tqplatform::SleepWatch>* made) {
    *made = std::make_unique<tqcubeb::LoginManager>();
}
