#include "device/ClientList.h"

#include <algorithm>
#include <memory>

namespace tqplatform {

namespace {

constexpr std::size_t kFirstCapacity = 8;

}  // namespace

bool ClientList::contains(const DeviceClient& client) const {
    const auto& entries = guarded_.entries;
    return std::any_of(entries.begin(), entries.end(),
                       [&](const Entry& entry) { return entry.client == &client; });
}

bool ClientList::add(DeviceClient& client) {
    std::vector<Entry> spare;  // declared first: freed when the lock is gone
    std::unique_lock lock(guarded_.mutex);
    auto& entries = guarded_.entries;
    while (!contains(client) && entries.size() == entries.capacity()) {
        const std::size_t wanted = std::max(kFirstCapacity, 2 * entries.capacity());
        lock.unlock();
        spare.clear();
        spare.reserve(wanted);
        lock.lock();
        if (entries.capacity() < spare.capacity()) {
            spare.assign(entries.begin(), entries.end());
            entries.swap(spare);
        }
    }
    if (contains(client)) {
        return false;
    }
    entries.push_back({&client, client.wants(), guarded_.nextOrder++});
    countWants();
    return true;
}

void ClientList::remove(DeviceClient& client) {
    std::unique_lock lock(guarded_.mutex);
    std::erase_if(guarded_.entries, [&](const Entry& entry) { return entry.client == &client; });
    countWants();
    if (guarded_.rendering != &client || isSliceThread()) {
        return;
    }
    const std::uint64_t current = guarded_.renders;
    guarded_.returned.wait(
        lock, [&] { return guarded_.rendering != &client || guarded_.renders != current; });
}

bool ClientList::empty() const {
    const std::lock_guard lock(guarded_.mutex);
    return guarded_.entries.empty();
}

void ClientList::countWants() noexcept {
    unsigned all = 0;
    for (const Entry& entry : guarded_.entries) {
        all |= entry.wants.bits();
    }
    wants_.store(all, std::memory_order_relaxed);
}

bool ClientList::render(SliceBuffers& buffers) noexcept {
    sliceThread_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    std::unique_lock lock(guarded_.mutex);
    const std::uint64_t end = guarded_.nextOrder;
    std::uint64_t done = 0;
    while (true) {
        const auto& entries = guarded_.entries;
        const auto next = std::find_if(entries.begin(), entries.end(),
                                       [&](const Entry& entry) { return entry.order > done; });
        if (next == entries.end() || next->order >= end) {
            break;
        }
        if (guarded_.pauses != 0) [[unlikely]] {
            guarded_.resumed.wait(lock, [&] { return guarded_.pauses == 0; });
            continue;
        }
        DeviceClient& client = *next->client;
        const bool isHeard = next->wants.heard;
        done = next->order;
        guarded_.rendering = &client;
        ++guarded_.renders;
        lock.unlock();

        client.render(buffers.next());
        lock = std::unique_lock(guarded_.mutex);
        guarded_.rendering = nullptr;
        lock.unlock();
        guarded_.returned.notify_all();
        if (isHeard) {
            buffers.mix();
        }

        lock.lock();
    }
    const bool isUsed = !guarded_.entries.empty();
    lock.unlock();
    sliceThread_.store(std::thread::id(), std::memory_order_relaxed);
    return isUsed;
}

bool ClientList::isSliceThread() const noexcept {
    return sliceThread_.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

bool ClientList::pause(std::chrono::nanoseconds longest) {
    std::unique_lock lock(guarded_.mutex);
    ++guarded_.pauses;
    const bool isQuiet = isSliceThread() || guarded_.returned.wait_for(lock, longest, [&] {
        return guarded_.rendering == nullptr;
    });
    lock.unlock();
    if (!isQuiet) {
        resume();
    }
    return isQuiet;
}

void ClientList::resume() {
    {
        const std::lock_guard lock(guarded_.mutex);
        if (guarded_.pauses == 0 || --guarded_.pauses != 0) {
            return;
        }
    }
    guarded_.resumed.notify_all();
}

void ClientList::resetAfterFork() noexcept {
    // Constructed anew over the old: destroying a lock that a vanished thread holds, or a
    // vector that one was changing, is not possible. What the old one owned is left behind.
    std::construct_at(&guarded_);
    wants_.store(0, std::memory_order_relaxed);
    if (!isSliceThread()) {
        sliceThread_.store(std::thread::id(), std::memory_order_relaxed);
    }
}

}  // namespace tqplatform
