// PulseAudio: what the program writes, and at which rate.

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <cmath>

#include "bridges/core/CallDepth.h"
#include "bridges/core/NativeApi.h"
#include "bridges/pulse/PulseSettling.h"
#include "hook/Hook.h"

namespace tq::bridges {
namespace {

using Memory = NativeStream::Memory;

/// The program plays its stream faster or slower from here on. Changes of a small part follow
/// another clock: they are drift, which the pacing takes, and no other format.
void changeRate(pa_stream* stream, PulseStream& record, std::uint32_t rate) {
    constexpr double kAdjustment = 0.01;
    NativeFormat format;
    {
        const NativeStream::Use use(stream);
        if (!use || std::abs(rate / use->format().sampleRate - 1) < kAdjustment) {
            return;
        }
        format = use->format();
    }
    format.sampleRate = rate;
    NativeStream::open(stream, format, "pulse", record.name);
    if (const NativeStream::Use use(stream); use) {
        record.goesOn(*use.operator->());
    }
}

/// What a write hands on.
struct Passed {
    const void* samples;
    std::size_t bytes;
    std::int64_t offset;
    pa_seek_mode_t seek;
    /// Not all of the program's memory: that is not the library's to keep, and is released by the
    /// caller.
    bool isCopy;
};

/// One write of the program, in parts where it is longer than a stream holds.
template <class Pass>
int write(const PulseLibrary& pulse, pa_stream* stream, const void* samples, std::size_t bytes,
          std::int64_t offset, pa_seek_mode_t seek, Pass pass) {
    const CallDepth depth;
    PulseStream* const record = depth.isOutermost() ? streams().find(stream) : nullptr;
    if (record == nullptr) {
        return pass(Passed{samples, bytes, offset, seek, false});
    }
    settle(pulse, stream, *record);
    const NativeStream::Use use(stream);
    if (!use) {
        return pass(Passed{samples, bytes, offset, seek, false});
    }
    const std::size_t frameBytes = use->format().bytesPerFrame();
    // Only what begin_write has handed out may be passed on after it.
    const bool isBlock = record->block.holds(samples);
    const Memory memory = isBlock ? Memory::kChangeable : Memory::kConstant;
    const std::size_t most = isBlock ? bytes : use->atOnce() * frameBytes;
    const auto* from = static_cast<const std::byte*>(samples);
    std::size_t left = bytes;
    while (true) {
        const std::size_t part = std::min(left, most);
        const void* const passed = use->prepare(from, part / frameBytes, memory);
        const int result = pass(Passed{passed, part, offset, seek, passed != from || most < bytes});
        if (result < 0) {
            return result;
        }
        record->block = {};
        record->written(*use.operator->(), part / frameBytes, offset, seek,
                        prebufferOf(pulse, stream), pulse.underflow(stream));
        from += part;
        left -= part;
        if (left == 0) {
            return result;
        }
        offset = 0;
        seek = PA_SEEK_RELATIVE;
    }
}

constexpr tqhook::HookTable kSoundHooks{
    tqhook::hook<&pa_stream_begin_write>(
        [](auto* original, pa_stream* stream, void** block, std::size_t* bytes) {
            const int result = original(stream, block, bytes);
            PulseStream* const record = streams().find(stream);
            if (result >= 0 && record != nullptr) {
                record->block = {static_cast<const std::byte*>(*block), *bytes};
            }
            return result;
        }),
    tqhook::hook<&pa_stream_cancel_write>([](auto* original, pa_stream* stream) {
        const int result = original(stream);
        PulseStream* const record = streams().find(stream);
        if (result >= 0 && record != nullptr) {
            record->block = {};
        }
        return result;
    }),
    tqhook::hook<&pa_stream_write>([](auto* original, pa_stream* stream, const void* samples,
                                      std::size_t bytes, pa_free_cb_t release, std::int64_t offset,
                                      pa_seek_mode_t seek) {
        bool isReleased = false;
        const int result = write(libraryOf<PulseLibrary>(original), stream, samples, bytes, offset,
                                 seek, [&](const Passed& passed) {
                                     isReleased = passed.isCopy && release != nullptr;
                                     return original(stream, passed.samples, passed.bytes,
                                                     passed.isCopy ? nullptr : release,
                                                     passed.offset, passed.seek);
                                 });
        if (isReleased && result >= 0) {
            release(const_cast<void*>(samples));
        }
        return result;
    }),
    tqhook::hook<&pa_stream_write_ext_free>(
        [](auto* original, pa_stream* stream, const void* samples, std::size_t bytes,
           pa_free_cb_t release, void* released, std::int64_t offset, pa_seek_mode_t seek) {
            bool isReleased = false;
            const int result = write(libraryOf<PulseLibrary>(original), stream, samples, bytes,
                                     offset, seek, [&](const Passed& passed) {
                                         isReleased = passed.isCopy && release != nullptr;
                                         return original(stream, passed.samples, passed.bytes,
                                                         passed.isCopy ? nullptr : release,
                                                         passed.isCopy ? nullptr : released,
                                                         passed.offset, passed.seek);
                                     });
            if (isReleased && result >= 0) {
                release(released);
            }
            return result;
        }),

    tqhook::hook<&pa_stream_update_sample_rate>([](auto* original, pa_stream* stream,
                                                   std::uint32_t rate,
                                                   pa_stream_success_cb_t callback, void* context) {
        pa_operation* const operation = original(stream, rate, callback, context);
        PulseStream* const record = streams().find(stream);
        if (operation != nullptr && record != nullptr && record->isSettled) {
            changeRate(stream, *record, rate);
        }
        return operation;
    }),
};

}  // namespace

NativeApi pulseSoundApi() {
    static const auto rows = kSoundHooks.rows();
    return {"pulse", rows};
}

}  // namespace tq::bridges
