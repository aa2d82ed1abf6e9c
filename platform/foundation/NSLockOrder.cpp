#include <Foundation/NSLock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// A graph of locks: an edge from each lock that a thread held to the one that it took then. Two
// threads can wait for each other for ever only where the graph has a circle.

namespace {

constexpr std::size_t kLocks = 1024;     // at the same time; more go unchecked
constexpr std::size_t kHeldAtOnce = 32;  // by one thread; deeper ones go unchecked

struct Node {
    const void* lock = nullptr;
    const char* name = nullptr;
    std::bitset<kLocks> later;  ///< what was taken while this one was held
};

struct Held {
    const void* lock;
    int depth;
};

/// What the calling thread holds, in the order it took them. Trivial, so that threads need no
/// preparation and their ends no care.
struct HeldLocks {
    std::array<Held, kHeldAtOnce> entries;
    std::size_t count;

    Held* find(const void* lock) {
        Held* const end = entries.data() + count;
        Held* const found =
            std::find_if(entries.data(), end, [&](const Held& held) { return held.lock == lock; });
        return found == end ? nullptr : found;
    }
};
thread_local HeldLocks heldLocks{};

constinit std::array<Node, kLocks> nodes{};
constinit std::atomic_flag isBusy{};

/// Guards the graph: a few loads and stores at most, so it spins.
class GraphLock {
  public:
    GraphLock() {
        while (isBusy.test_and_set(std::memory_order_acquire)) {
        }
    }
    ~GraphLock() { isBusy.clear(std::memory_order_release); }
    GraphLock(const GraphLock&) = delete;
    GraphLock& operator=(const GraphLock&) = delete;
};

constexpr std::size_t kNone = kLocks;

std::size_t find(const void* lock) {
    const auto found = std::find_if(nodes.begin(), nodes.end(),
                                    [&](const Node& node) { return node.lock == lock; });
    return static_cast<std::size_t>(found - nodes.begin());
}

std::size_t findOrAdd(const void* lock) {
    const std::size_t known = find(lock);
    if (known != kNone) {
        return known;
    }
    const std::size_t place = find(nullptr);
    if (place != kNone) {
        nodes[place].lock = lock;
    }
    return place;
}

/// Whether the graph leads from one lock to another.
bool leads(std::size_t from, std::size_t to) {
    std::bitset<kLocks> reached = nodes[from].later;
    std::bitset<kLocks> done;
    while (!reached[to]) {
        const std::bitset<kLocks> fresh = reached & ~done;
        const std::size_t next = fresh._Find_first();
        if (next == kLocks) {
            return false;
        }
        done.set(next);
        reached |= nodes[next].later;
    }
    return true;
}

[[noreturn]] void contradiction(std::size_t taken, std::size_t held) {
    const auto nameOf = [](std::size_t node) {
        return nodes[node].name != nullptr ? nodes[node].name : "lock";
    };
    std::fprintf(stderr, "NSRecursiveLock: %s %p is taken while %s %p is held, against the order\n",
                 nameOf(taken), nodes[taken].lock, nameOf(held), nodes[held].lock);
    std::abort();
}

/// `first` is held, or meant to be, when `second` is taken.
void connect(const void* first, const void* second) {
    const std::size_t from = findOrAdd(first);
    const std::size_t to = findOrAdd(second);
    if (from == kNone || to == kNone || nodes[from].later[to]) {
        return;
    }
    if (leads(to, from)) {
        contradiction(to, from);
    }
    nodes[from].later.set(to);
}

}  // namespace

void NSLockOrder::willLock(const void* lock) noexcept {
    if (heldLocks.count == 0 || heldLocks.find(lock) != nullptr) {
        return;
    }
    const GraphLock guard;
    for (std::size_t i = 0; i < heldLocks.count; ++i) {
        connect(heldLocks.entries[i].lock, lock);
    }
}

void NSLockOrder::didLock(const void* lock) noexcept {
    if (Held* const held = heldLocks.find(lock)) {
        ++held->depth;
    } else if (heldLocks.count < kHeldAtOnce) {
        heldLocks.entries[heldLocks.count++] = {lock, 1};
    }
}

void NSLockOrder::didUnlock(const void* lock) noexcept {
    Held* const held = heldLocks.find(lock);
    if (held != nullptr && --held->depth == 0) {
        std::copy(held + 1, heldLocks.entries.data() + heldLocks.count, held);
        --heldLocks.count;
    }
}

void NSLockOrder::forget(const void* lock) noexcept {
    const GraphLock guard;
    const std::size_t gone = find(lock);
    if (gone == kNone) {
        return;
    }
    nodes[gone] = {};
    for (Node& node : nodes) {
        node.later.reset(gone);
    }
}

void NSLockOrder::setName(const void* lock, const char* name) noexcept {
    const GraphLock guard;
    const std::size_t node = findOrAdd(lock);
    if (node != kNone) {
        nodes[node].name = name;
    }
}

void NSLockOrder::state(const void* first, const void* second) noexcept {
    const GraphLock guard;
    connect(first, second);
}
