#include "bus_guard.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <utility>

#include "bus_handler.h"

namespace korva_audio_utils {

namespace {

/// Invariant: a slot whose end is above 0 describes a mapping that its owner has not unmapped.
/// Writers are the owners: begin first, then end with release order, and the end back to 0 before
/// the mapping goes. The reader is the handler, on the thread whose access failed; that thread got
/// the mapping from the owner, so it sees the slot.
struct Slot {
    std::atomic<bool> isTaken{false};
    std::atomic<std::uintptr_t> begin{0};
    std::atomic<std::uintptr_t> end{0};
    std::atomic<bool> isCutOff{false};
};

// Constants of the program as far as the handler is concerned: no constructor runs for them.
constinit std::array<Slot, BusGuard::kMaxMappings> slots{};
static_assert(std::atomic<std::uintptr_t>::is_always_lock_free);

Slot* slotOf(std::uintptr_t address) noexcept {
    for (Slot& slot : slots) {
        const std::uintptr_t end = slot.end.load(std::memory_order_acquire);
        if (address < end && address >= slot.begin.load(std::memory_order_relaxed)) {
            return &slot;
        }
    }
    return nullptr;
}

/// In place of the file; only calls the kernel, as a handler may.
bool replaceByMemory(Slot& slot) noexcept {
    const std::uintptr_t begin = slot.begin.load(std::memory_order_relaxed);
    const std::uintptr_t end = slot.end.load(std::memory_order_relaxed);
    void* const data = reinterpret_cast<void*>(begin);
    slot.isCutOff.store(true, std::memory_order_relaxed);
    return ::mmap(data, end - begin, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

bool mend(const siginfo_t& info) noexcept {
    Slot* const slot =
        info.si_code > 0 ? slotOf(reinterpret_cast<std::uintptr_t>(info.si_addr)) : nullptr;
    return slot != nullptr && replaceByMemory(*slot);
}

}  // namespace

BusGuard::BusGuard(void* data, std::size_t size) noexcept {
    installBusHandler(mend);
    for (std::size_t k = 0; k < slots.size(); ++k) {
        Slot& slot = slots[k];
        if (!slot.isTaken.exchange(true)) {
            const auto begin = reinterpret_cast<std::uintptr_t>(data);
            slot.isCutOff.store(false, std::memory_order_relaxed);
            slot.begin.store(begin, std::memory_order_relaxed);
            slot.end.store(begin + size, std::memory_order_release);
            slot_ = static_cast<int>(k);
            return;
        }
    }
}

BusGuard::~BusGuard() {
    if (slot_ >= 0) {
        Slot& slot = slots[static_cast<std::size_t>(slot_)];
        slot.end.store(0, std::memory_order_release);
        slot.isTaken.store(false, std::memory_order_release);
    }
}

BusGuard::BusGuard(BusGuard&& other) noexcept : slot_(std::exchange(other.slot_, -1)) {
}

BusGuard& BusGuard::operator=(BusGuard&& other) noexcept {
    BusGuard old(std::move(other));
    std::swap(slot_, old.slot_);
    return *this;
}

[[gnu::cold]] void BusGuard::unblock() noexcept {
    isLetThrough = true;
    sigset_t busError;
    sigemptyset(&busError);
    sigaddset(&busError, SIGBUS);
    pthread_sigmask(SIG_UNBLOCK, &busError, nullptr);
}

bool BusGuard::isCutOff() const noexcept {
    return slot_ >= 0 &&
           slots[static_cast<std::size_t>(slot_)].isCutOff.load(std::memory_order_relaxed);
}

}  // namespace korva_audio_utils
