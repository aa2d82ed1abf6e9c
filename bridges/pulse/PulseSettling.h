#pragma once

#include <pulse/pulseaudio.h>

#include <cstddef>

#include "bridges/core/GuardScope.h"
#include "bridges/core/NativeStream.h"
#include "bridges/core/WithoutThrowing.h"
#include "bridges/pulse/PulseLibrary.h"
#include "bridges/pulse/PulseStreams.h"

// What all calls of PulseAudio's begin with.

namespace tq::bridges {

inline PulseStreams& streams() {
    return PulseStreams::shared();
}

/// Work of ours alone: no call into libpulse.
template <class Work>
void tryTo(Work work) {
    const GuardScope guard;
    withoutThrowing(work);
}

/// [any thread] The stream's prebuffer in bytes.
[[nodiscard]] std::size_t prebufferOf(const PulseLibrary& pulse, pa_stream* stream);

/// [host thread] The server has answered: from here on the stream's format is what the program
/// writes. Nothing happens before that, and at the second time.
void settle(const PulseLibrary& pulse, pa_stream* stream, PulseStream& record);

/// [any thread] `then` for a stream that is served.
template <class Then>
void with(const pa_stream* stream, Then then) {
    PulseStream* const record = streams().find(stream);
    if (const NativeStream::Use use(record != nullptr ? stream : nullptr); use) {
        then(*record, *use.operator->());
    }
}

}  // namespace tq::bridges
