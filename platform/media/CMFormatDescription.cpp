#include "media/FormatDescription.h"

#include <CoreMedia/CMFormatDescription.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace {

using tqplatform::findObject;
using tqplatform::FormatDescription;

/// True when the layout and all the descriptions that it announces lie within `size` bytes.
bool isWholeLayout(const AudioChannelLayout* layout, size_t size) {
    constexpr size_t kHeadSize = offsetof(AudioChannelLayout, mChannelDescriptions);
    if (size < kHeadSize) {
        return false;
    }
    const std::uint64_t count = layout->mNumberChannelDescriptions;
    return count * sizeof(AudioChannelDescription) <= size - kHeadSize;
}

std::vector<std::byte> copyOf(const void* data, size_t size) {
    std::vector<std::byte> copy(size);
    if (size > 0) {
        std::memcpy(copy.data(), data, size);
    }
    return copy;
}

const void* piece(const std::vector<std::byte>* bytes, size_t* sizeOut) {
    if (sizeOut != nullptr) {
        *sizeOut = bytes != nullptr ? bytes->size() : 0;
    }
    return bytes != nullptr && !bytes->empty() ? bytes->data() : nullptr;
}

}  // namespace

OSStatus CMAudioFormatDescriptionCreate(CFAllocatorRef, const AudioStreamBasicDescription* asbd,
                                        size_t layoutSize, const AudioChannelLayout* layout,
                                        size_t magicCookieSize, const void* magicCookie,
                                        CFDictionaryRef,
                                        CMAudioFormatDescriptionRef* formatDescriptionOut) {
    if (formatDescriptionOut == nullptr) {
        return kCMFormatDescriptionError_InvalidParameter;
    }
    *formatDescriptionOut = nullptr;
    if (asbd == nullptr || (layout == nullptr) != (layoutSize == 0) ||
        (magicCookie == nullptr) != (magicCookieSize == 0) ||
        (layout != nullptr && !isWholeLayout(layout, layoutSize))) {
        return kCMFormatDescriptionError_InvalidParameter;
    }
    try {
        *formatDescriptionOut = static_cast<CMAudioFormatDescriptionRef>(
            tqplatform::handOut(std::make_unique<FormatDescription>(
                *asbd, copyOf(layout, layoutSize), copyOf(magicCookie, magicCookieSize))));
    } catch (const std::exception&) {
        // No memory, or a size that no vector can have.
        return kCMFormatDescriptionError_AllocationFailed;
    }
    return noErr;
}

CMMediaType CMFormatDescriptionGetMediaType(CMFormatDescriptionRef desc) {
    return findObject<FormatDescription>(desc) != nullptr ? CMMediaType{kCMMediaType_Audio} : 0;
}

const AudioStreamBasicDescription* CMAudioFormatDescriptionGetStreamBasicDescription(
    CMAudioFormatDescriptionRef desc) {
    const auto* const found = findObject<FormatDescription>(desc);
    return found != nullptr ? &found->stream() : nullptr;
}

const AudioChannelLayout* CMAudioFormatDescriptionGetChannelLayout(CMAudioFormatDescriptionRef desc,
                                                                   size_t* sizeOut) {
    const auto* const found = findObject<FormatDescription>(desc);
    return static_cast<const AudioChannelLayout*>(
        piece(found != nullptr ? &found->layout() : nullptr, sizeOut));
}

const void* CMAudioFormatDescriptionGetMagicCookie(CMAudioFormatDescriptionRef desc,
                                                   size_t* sizeOut) {
    const auto* const found = findObject<FormatDescription>(desc);
    return piece(found != nullptr ? &found->cookie() : nullptr, sizeOut);
}
