#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <string>

#include "foundation/CFObject.h"

namespace tqplatform {
namespace {

constexpr bool isContinuation(unsigned char byte) {
    return (byte & 0xC0U) == 0x80U;
}

/// Bytes of the character at the start of `text`, 0 when it is not well-formed: a stray or missing
/// continuation, a longer form than needed, half of a surrogate pair, or beyond the last plane.
std::size_t characterSize(std::string_view text) {
    const auto byte = [text](std::size_t index) -> unsigned char {
        return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
    };
    const unsigned char first = byte(0);
    const unsigned char second = byte(1);
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC2 || first > 0xF4 || !isContinuation(second)) {
        return 0;
    }
    if (first < 0xE0) {
        return 2;
    }
    if (!isContinuation(byte(2))) {
        return 0;
    }
    if (first < 0xF0) {
        const bool tooLong = first == 0xE0 && second < 0xA0;
        const bool surrogate = first == 0xED && second >= 0xA0;
        return tooLong || surrogate ? 0 : 3;
    }
    const bool tooLong = first == 0xF0 && second < 0x90;
    const bool beyond = first == 0xF4 && second >= 0x90;
    return tooLong || beyond || !isContinuation(byte(3)) ? 0 : 4;
}

/// Length in UTF-16 units, nothing when the text is not well-formed UTF-8.
std::optional<CFIndex> lengthInUnits(std::string_view utf8) {
    CFIndex units = 0;
    while (!utf8.empty()) {
        const std::size_t size = characterSize(utf8);
        if (size == 0) {
            return std::nullopt;
        }
        units += size == 4 ? 2 : 1;
        utf8.remove_prefix(size);
    }
    return units;
}

class CFString : public CFObject {
  public:
    static constexpr CFKind kKind = CFKind::string;

    CFString(std::string_view utf8, CFIndex units)
        : CFObject(kKind),
          utf8_(utf8),
          units_(units),
          isASCII_(static_cast<std::size_t>(units) == utf8.size()) {}

    [[nodiscard]] CFIndex units() const { return units_; }
    [[nodiscard]] const std::string* text(CFStringEncoding encoding) const {
        const bool sayable =
            encoding == kCFStringEncodingUTF8 || (encoding == kCFStringEncodingASCII && isASCII_);
        return sayable ? &utf8_ : nullptr;
    }

  private:
    const std::string utf8_;
    const CFIndex units_;
    const bool isASCII_;  // every other character has more bytes than units
};

const std::string* textOf(CFStringRef string, CFStringEncoding encoding) {
    const CFString* const found = findObject<CFString>(string);
    return found != nullptr ? found->text(encoding) : nullptr;
}

}  // namespace

CFStringRef makeCFString(std::string_view utf8) noexcept {
    const std::optional<CFIndex> units = lengthInUnits(utf8);
    if (!units) {
        return nullptr;
    }
    try {
        return static_cast<CFStringRef>(handOut(std::make_unique<CFString>(utf8, *units)));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace tqplatform

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding encoding) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::string_view view = text;
    if (encoding == kCFStringEncodingASCII) {
        const bool isASCII = std::all_of(view.begin(), view.end(), [](char character) {
            return static_cast<unsigned char>(character) < 0x80;
        });
        return isASCII ? tqplatform::makeCFString(view) : nullptr;
    }
    return encoding == kCFStringEncodingUTF8 ? tqplatform::makeCFString(view) : nullptr;
}

CFStringRef CFStringCreateWithCStringNoCopy(CFAllocatorRef allocator, const char* text,
                                            CFStringEncoding encoding,
                                            CFAllocatorRef contentsDeallocator) {
    const CFStringRef made = CFStringCreateWithCString(allocator, text, encoding);
    if (made != nullptr && contentsDeallocator != kCFAllocatorNull) {
        std::free(const_cast<char*>(text));
    }
    return made;
}

CFStringEncoding CFStringGetSystemEncoding() {
    return kCFStringEncodingUTF8;
}

CFIndex CFStringGetLength(CFStringRef string) {
    const auto* const found = tqplatform::findObject<tqplatform::CFString>(string);
    return found != nullptr ? found->units() : 0;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
    // A unit is at most three bytes; a pair of them, four.
    const CFIndex bytesPerUnit = encoding == kCFStringEncodingUTF8    ? 3
                                 : encoding == kCFStringEncodingASCII ? 1
                                                                      : 0;
    if (bytesPerUnit == 0 || length < 0 ||
        length > std::numeric_limits<CFIndex>::max() / bytesPerUnit) {
        return -1;
    }
    return length * bytesPerUnit;
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding) {
    const std::string* const text = tqplatform::textOf(string, encoding);
    if (text == nullptr || buffer == nullptr || bufferSize <= 0 ||
        text->size() >= static_cast<std::size_t>(bufferSize)) {
        return 0;
    }
    std::memcpy(buffer, text->c_str(), text->size() + 1);
    return 1;
}

const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding) {
    const std::string* const text = tqplatform::textOf(string, encoding);
    return text != nullptr ? text->c_str() : nullptr;
}
