#include <cstdlib>
#include <ctime>

#include "inject/Tap.h"

// The orderly end of a program. What the bridges have left then is rendered as fast as the null
// device can: seconds of sound in a few milliseconds, which the recorder takes at its own speed.

namespace tqrecorder {
namespace {

constexpr timespec kPause{0, 1'000'000};

}  // namespace

/// Called behind useBridges(), so that it runs before the bridges play out what they have left.
void Tap::makeRoomAtExit() {
    (void)std::atexit([] {
        if (Tap* const tap = current()) {
            tap->makeRoom();
        }
    });
}

/// Our own thread takes the memory a piece at a time, so as not to be in the program's way. That
/// is over now, and one that played briefly has not got all of it yet.
void Tap::makeRoom() {
    isPatient_.store(true, std::memory_order_relaxed);
    if (!isUnitMade_.load(std::memory_order_relaxed)) {
        return;
    }
    // Our thread may need for its work what the thread that ends the program holds.
    constexpr int kMostPauses = 200;
    std::unique_lock lock(work_, std::try_to_lock);
    for (int pauses = 0; !lock && pauses < kMostPauses; ++pauses) {
        nanosleep(&kPause, nullptr);
        (void)lock.try_lock();
    }
    while (lock && outlet_.load() != nullptr && memory_->populateMore()) {
    }
}

/// What the program itself plays never waits for the recorder. What is left of it may: nobody
/// hears it.
bool Tap::pushSound(const Outlet& outlet, const RecordHeader& header,
                    std::span<const RingWriter::Bytes> parts) noexcept {
    constexpr int kMostPauses = 1000;
    if (isPatient_.load(std::memory_order_relaxed)) {
        // Not for a recorder that has gone, and not again for one that stands still.
        for (int pauses = 0; pauses < kMostPauses && outlet_.load() == &outlet; ++pauses) {
            if (outlet.sound.tryPush(header, parts)) {
                return true;
            }
            nanosleep(&kPause, nullptr);
        }
        isPatient_.store(false, std::memory_order_relaxed);
    }
    return outlet.sound.push(header, parts);
}

}  // namespace tqrecorder
