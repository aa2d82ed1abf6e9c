#include "RZUnitNames.h"

#include <memory>

RZUnitNames& RZUnitNames::shared() {
    static auto* const instance = new RZUnitNames;
    return *instance;
}

void RZUnitNames::give(std::uint32_t ordinal, std::string_view name) {
    std::atomic<const Name*>& place = places_[ordinal % kMost];
    if (place.load(std::memory_order_acquire) != nullptr) {
        return;
    }
    auto made = std::make_unique<Name>();
    made->ordinal = ordinal;
    name.substr(0, kLongest).copy(made->text.data(), kLongest);
    const Name* expected = nullptr;
    if (place.compare_exchange_strong(expected, made.get(), std::memory_order_release)) {
        (void)made.release();
    }
}

const char* RZUnitNames::of(std::uint32_t ordinal) const noexcept {
    const Name* const name = places_[ordinal % kMost].load(std::memory_order_acquire);
    return name != nullptr && name->ordinal == ordinal ? name->text.data() : nullptr;
}
