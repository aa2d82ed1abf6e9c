// The second look at lazily bound call slots, and what a fork needs.

#include <pthread.h>
#include <sys/single_threaded.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "common/SignalsBlocked.h"
#include "hook/rebind/Rebinder.h"

namespace tqhook {

namespace {

// A thread that was inside lazy binding when a slot was changed stores the real function over our
// value once it is done; it does so once per slot, within microseconds unless it loses its core.
constexpr std::chrono::milliseconds kVerifyDelay{50};

void* runVerifier(void* /*unused*/) {
    pthread_setname_np(pthread_self(), "TQRebindVerify");
    do {
        std::this_thread::sleep_for(kVerifyDelay);
        Rebinder::shared().verify();
    } while (Rebinder::shared().mustVerifyAgain());
    return nullptr;
}

/// Before the constructors of the libraries above, whose locks are taken before this one's.
[[gnu::constructor]] void watchForks() {
    tqcommon::ForkLock::watch();
}

}  // namespace

Rebinder::Rebinder() {
    // A sound server's client inside the library that a program plays through: what it sends there
    // has been seen once, where the program handed it over.
    auto exempt = std::make_shared<Exemptions>();
    exempt->addPattern("libasound_module_*");
    exempt_ = std::move(exempt);
}

Rebinder& Rebinder::shared() {
    static Rebinder* const instance = new Rebinder;
    return *instance;
}

void Rebinder::noteLazySlots(ImageRecord& record, std::span<const SlotWrite> writes) {
    if (__libc_single_threaded != 0) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    for (const SlotWrite& write : writes) {
        if (write.wasUnbound) {
            record.lazySlots.push_back({write.address, write.entry->name, now});
        }
    }
}

void Rebinder::restoreLost(ImageRecord& record) {
    const SymbolTable& table = *table_.load(std::memory_order_acquire);
    for (const LazySlot& slot : record.lazySlots) {
        const SymbolEntry* entry = table.find(slot.symbol);
        const void* value = slotValue(slot.address);
        void* target = entry != nullptr ? entry->newestFor(record.name, record.base) : nullptr;
        if (target != nullptr && value != target && entry->leadsHere(value)) {
            storeSlot(slot.address, target);
            ++report_.restoredSlots;
        }
    }
}

void Rebinder::verify() {
    const LoaderCalls& calls = *loaderCalls();
    const LoadedImages loaded = loadedImages();
    std::vector<bool> isWanted(loaded.images.size(), false);
    {
        const std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < loaded.images.size(); ++i) {
            const ImageRecord* record = recordOf(loaded.images[i]);
            isWanted[i] = record != nullptr && !record->lazySlots.empty();
        }
    }
    const HeldImages held(calls, loaded, startupCount(loaded),
                          [&](std::size_t i) { return isWanted[i]; });
    const std::lock_guard lock(mutex_);
    forgetGone(loaded);
    const auto settled = std::chrono::steady_clock::now() - kVerifyDelay;
    for (const ImageLayout* image : held.images()) {
        if (ImageRecord* record = recordOf(*image)) {
            restoreLost(*record);
            std::erase_if(record->lazySlots,
                          [settled](const LazySlot& slot) { return slot.changed <= settled; });
        }
    }
}

bool Rebinder::hasLazySlots() const {
    return std::any_of(records_.begin(), records_.end(),
                       [](const auto& record) { return !record.second.lazySlots.empty(); });
}

bool Rebinder::mustVerifyAgain() {
    const std::lock_guard lock(mutex_);
    isVerifierRunning_ = hasLazySlots();
    return isVerifierRunning_;
}

void Rebinder::startVerifier() {
    {
        const std::lock_guard lock(mutex_);
        if (isVerifierRunning_ || !hasLazySlots()) {
            return;
        }
        isVerifierRunning_ = true;
    }
    const tqcommon::SignalsBlocked blocked;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    if (pthread_create(&thread, &attributes, runVerifier, nullptr) != 0) {
        // The next look at the images does it.
        const std::lock_guard lock(mutex_);
        isVerifierRunning_ = false;
    }
    pthread_attr_destroy(&attributes);
}

}  // namespace tqhook
