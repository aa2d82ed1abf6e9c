#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "device/DeviceClient.h"
#include "device/SliceBuffers.h"

namespace tqplatform {

/// The clients of one device and the walk through them that is a slice. Host threads and the slice
/// share one lock that is only ever held for a few loads and stores: never while a client renders,
/// never while memory is allocated, never while a thread waits.
class ClientList {
  public:
    /// [any thread] Adds behind the others; adding twice changes nothing. From the next slice on
    /// the client is rendered. True when the client was not in the list before.
    bool add(DeviceClient& client);
    /// [any thread] Takes the client out and waits until its render() has returned; inside a
    /// slice, on its thread, it does not wait. A client that another thread took out at the same
    /// time is waited for just the same.
    void remove(DeviceClient& client);
    /// [any thread]
    [[nodiscard]] bool empty() const;
    /// [any thread] [real-time safe] What those in the list want together.
    [[nodiscard]] ClientWants wants() const noexcept {
        return ClientWants::of(wants_.load(std::memory_order_relaxed));
    }

    /// [render thread] [real-time safe] One slice: every client that was in the list at its
    /// beginning and still is when its turn comes. One thread at a time, not nested. False when
    /// the list is empty at the end.
    bool render(SliceBuffers& buffers) noexcept;
    /// [any thread] True inside render() above.
    [[nodiscard]] bool isSliceThread() const noexcept;

    /// [any thread] No client renders from here to resume(), except on the calling thread: whoever
    /// would begin one waits. False, with nothing changed, when one that was under way has not
    /// returned within that time. Nests.
    [[nodiscard]] bool pause(std::chrono::nanoseconds longest);
    /// [any thread]
    void resume();

    /// Only in the child of a fork: forgets clients, waiters and locks, whose owners are threads
    /// that the child does not have. A slice on the forking thread itself ends after its client.
    void resetAfterFork() noexcept;

  private:
    struct Entry {
        DeviceClient* client;
        ClientWants wants;
        std::uint64_t order;  ///< rises in the order of adding, so the entries are sorted by it
    };
    /// Everything that the lock guards, and the lock: one piece, to be renewed after a fork.
    struct Guarded {
        std::mutex mutex;
        std::condition_variable returned;  ///< a client's render() returned
        std::condition_variable resumed;   ///< `pauses` came down to 0
        std::vector<Entry> entries;
        std::uint64_t nextOrder = 1;
        const DeviceClient* rendering = nullptr;
        std::uint64_t renders = 0;  ///< tells one render() of a client from its next
        unsigned pauses = 0;        ///< renders begin while it is 0
    };

    [[nodiscard]] bool contains(const DeviceClient& client) const;
    /// With the lock held, behind every change of the entries.
    void countWants() noexcept;

    mutable Guarded guarded_;
    std::atomic<unsigned> wants_{0};  ///< ClientWants of all entries; written with the lock held
    std::atomic<std::thread::id> sliceThread_{};
};

}  // namespace tqplatform
