#include "component/HandleTable.h"

#include <sys/mman.h>

#include <new>

namespace tqplatform {

namespace {

// Initial-exec: reading it on a render thread for the first time must not allocate.
constinit thread_local HandleVisit* innermost __attribute__((tls_model("initial-exec"))) = nullptr;

}  // namespace

bool HandleSlot::tryEnter(std::uint32_t generation) noexcept {
    std::uint64_t state = state_.load(std::memory_order_relaxed);
    do {
        if ((state >> kGenerationShift) != generation || (state & kClosing) != 0) {
            return false;
        }
    } while (!state_.compare_exchange_weak(state, state + 1, std::memory_order_acq_rel,
                                           std::memory_order_relaxed));
    return true;
}

bool HandleSlot::leave() noexcept {
    const std::uint64_t before = state_.fetch_sub(1, std::memory_order_acq_rel);
    if ((before & kClosing) != 0) {
        if ((before & kAbandoned) != 0) {
            return (before & kCountMask) == 1;
        }
        state_.notify_all();
    }
    return false;
}

bool HandleSlot::close(std::uint32_t generation) noexcept {
    std::uint64_t state = state_.load(std::memory_order_relaxed);
    do {
        if ((state >> kGenerationShift) != generation || (state & kClosing) != 0) {
            return false;
        }
    } while (!state_.compare_exchange_weak(state, state | kClosing, std::memory_order_acq_rel,
                                           std::memory_order_relaxed));
    return true;
}

void HandleSlot::waitUntilEmpty() const noexcept {
    std::uint64_t state = state_.load(std::memory_order_acquire);
    while ((state & kCountMask) != 0) {
        state_.wait(state, std::memory_order_acquire);
        state = state_.load(std::memory_order_acquire);
    }
}

bool HandleSlot::abandon() noexcept {
    return (state_.fetch_or(kAbandoned, std::memory_order_acq_rel) & kCountMask) == 0;
}

std::uint32_t HandleSlot::nextGeneration() const noexcept {
    const std::uint64_t last = state_.load(std::memory_order_relaxed) >> kGenerationShift;
    return (static_cast<std::uint32_t>(last) + 1) % HandleRegion::kGenerations;
}

void HandleSlot::open(std::uint32_t generation) noexcept {
    state_.store(static_cast<std::uint64_t>(generation) << kGenerationShift,
                 std::memory_order_release);
}

std::uint64_t HandleVisit::depth(const HandleSlot& slot) noexcept {
    std::uint64_t visits = 0;
    for (const HandleVisit* visit = innermost; visit != nullptr; visit = visit->outer_) {
        visits += visit->slot_ == &slot ? 1U : 0U;
    }
    return visits;
}

void HandleVisit::note(HandleSlot& slot) noexcept {
    slot_ = &slot;
    outer_ = innermost;
    innermost = this;
}

void HandleVisit::forget() noexcept {
    innermost = outer_;
}

HandleRegion::HandleRegion() {
    void* const memory = mmap(nullptr, kSlots * kGenerations * kSpacing, PROT_NONE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    base_ = static_cast<char*>(memory);
}

void* HandleRegion::address(Place place) const noexcept {
    return base_ + (place.generation * kSlots + place.slot) * kSpacing;
}

bool HandleRegion::find(const void* address, Place& place) const noexcept {
    const auto begin = reinterpret_cast<std::uintptr_t>(base_);
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    if (wanted < begin) {
        return false;
    }
    const std::size_t offset = wanted - begin;
    if (offset >= kSlots * kGenerations * kSpacing || offset % kSpacing != 0) {
        return false;
    }
    const std::size_t index = offset / kSpacing;
    place = {index % kSlots, static_cast<std::uint32_t>(index / kSlots)};
    return true;
}

}  // namespace tqplatform
