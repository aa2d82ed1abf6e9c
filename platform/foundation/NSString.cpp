#include <Foundation/NSString.h>

NSRef<NSString> NSString::create(std::string_view text) {
    return NSRef<NSString>::adopt(new NSString(text));
}

NSString::NSString(std::string_view text) : text_(text) {
}

NSString::~NSString() = default;

void NSString::retain() noexcept {
    references_.fetch_add(1, std::memory_order_relaxed);
}

void NSString::release() noexcept {
    // Whoever drops the last reference must see all that the others did with the text before.
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

const char* NSString::UTF8String() const noexcept {
    return text_.c_str();
}

std::size_t NSString::length() const noexcept {
    return text_.size();
}
