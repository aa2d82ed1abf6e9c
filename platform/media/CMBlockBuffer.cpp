#include <CoreMedia/CMBlockBuffer.h>

#include <cstring>

#include "media/BlockBuffer.h"

using tqplatform::BlockBuffer;
using tqplatform::findObject;

size_t CMBlockBufferGetDataLength(CMBlockBufferRef buffer) {
    const auto* const found = findObject<BlockBuffer>(buffer);
    return found != nullptr ? found->length() : 0;
}

OSStatus CMBlockBufferCopyDataBytes(CMBlockBufferRef buffer, size_t offsetToData, size_t dataLength,
                                    void* destination) {
    const auto* const found = findObject<BlockBuffer>(buffer);
    if (found == nullptr || destination == nullptr) {
        return kCMBlockBufferBadPointerParameterErr;
    }
    if (offsetToData > found->length()) {
        return kCMBlockBufferBadOffsetParameterErr;
    }
    if (dataLength > found->length() - offsetToData) {
        return kCMBlockBufferBadLengthParameterErr;
    }
    std::memcpy(destination, found->data() + offsetToData, dataLength);
    return kCMBlockBufferNoErr;
}

OSStatus CMBlockBufferGetDataPointer(CMBlockBufferRef buffer, size_t offset,
                                     size_t* lengthAtOffsetOut, size_t* totalLengthOut,
                                     char** dataPointerOut) {
    const auto* const found = findObject<BlockBuffer>(buffer);
    if (found == nullptr) {
        return kCMBlockBufferBadPointerParameterErr;
    }
    if (offset >= found->length()) {
        return kCMBlockBufferBadOffsetParameterErr;
    }
    if (lengthAtOffsetOut != nullptr) {
        *lengthAtOffsetOut = found->length() - offset;
    }
    if (totalLengthOut != nullptr) {
        *totalLengthOut = found->length();
    }
    if (dataPointerOut != nullptr) {
        *dataPointerOut = reinterpret_cast<char*>(found->data() + offset);
    }
    return kCMBlockBufferNoErr;
}
