#include "device/handover/SleepNews.h"

#include <exception>
#include <optional>
#include <utility>

namespace tqplatform {

void SleepNews::begin() {
    if (watch_ != nullptr || coming_ != nullptr || !make_) {
        return;
    }
    if (connecting_ == nullptr) {
        connecting_ = std::make_unique<HeardThread>();
    }
    if (!connecting_->await({})) {
        return;  // one that nobody waited for any more
    }
    coming_ = std::make_shared<Made>();
    connecting_->begin([coming = coming_, make = make_] {
        try {
            *coming = make();
        } catch (const std::exception&) {
            // No memory: the next who begins tries again.
        }
    });
}

bool SleepNews::take() {
    if (coming_ != nullptr && connecting_->await({})) {
        watch_ = std::move(*coming_);
        coming_.reset();
        connecting_.reset();
    }
    const std::optional<bool> news = watch_ == nullptr ? std::nullopt : watch_->news();
    isAsleep_ = news.value_or(isAsleep_);
    return news.has_value();
}

void SleepNews::end() noexcept {
    isAsleep_ = false;
    watch_.reset();
    coming_.reset();
    if (connecting_ != nullptr && connecting_->await({})) {
        connecting_.reset();
    }
}

void SleepNews::forgetAfterFork() noexcept {
    isAsleep_ = false;
    if (watch_ != nullptr) {
        watch_->forgetAfterFork();
        static_cast<void>(watch_.release());
    }
    // Constructed anew over the old: the thread that has the other half is the parent's.
    std::construct_at(&coming_);
    static_cast<void>(connecting_.release());
}

}  // namespace tqplatform
