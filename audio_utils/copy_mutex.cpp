#include "copy_mutex.h"

#include <chrono>
#include <thread>

namespace korva_audio_utils {
namespace {

/// Waits for a copy of another thread: a microsecond, unless that thread has lost its core. A
/// thread of real-time priority must sleep then, or the other would never get the core back.
class ShortWait {
  public:
    void Wait() noexcept {
        constexpr int kYields = 100;
        if (++waits_ < kYields) {
            std::this_thread::yield();
        } else {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    }

  private:
    int waits_ = 0;
};

}  // namespace

void CopyMutex::WaitToCopy() noexcept {
    ShortWait wait;
    do {
        if (isHeldLong_.load(std::memory_order_acquire)) {
            const std::lock_guard sleepUntilFree(mutex_);
        } else {
            wait.Wait();
        }
    } while (!TryToCopy());
}

CopyMutex::ForLong::ForLong(CopyMutex& mutex) : mutex_(mutex), lock_(mutex.mutex_) {
    mutex_.isHeldLong_.store(true, std::memory_order_seq_cst);
    ShortWait wait;
    while (mutex_.isCopying_.load(std::memory_order_seq_cst)) {
        wait.Wait();
    }
}

}  // namespace korva_audio_utils
