#include "bridges/pulse/PulseSettling.h"

#include "bridges/pulse/PulseFormat.h"

namespace tq::bridges {
namespace {

NativeFormat formatOf(const PulseLibrary& pulse, pa_stream* stream) {
    const pa_format_info* const format =
        pulse.formatInfo == nullptr ? nullptr : pulse.formatInfo(stream);
    const pa_sample_spec* const spec = pulse.sampleSpec(stream);
    if (spec == nullptr || (format != nullptr && format->encoding != PA_ENCODING_PCM)) {
        return {};
    }
    const pa_channel_map* const map = pulse.channelMap(stream);
    return {pulseSample(spec->format), spec->channels, static_cast<double>(spec->rate),
            map == nullptr ? Speakers{} : pulseSpeakers(*map)};
}

}  // namespace

std::size_t prebufferOf(const PulseLibrary& pulse, pa_stream* stream) {
    const pa_buffer_attr* const attributes = pulse.bufferAttr(stream);
    // A server that does not say has its own default, which a program fills at once.
    return attributes == nullptr || attributes->prebuf > attributes->maxlength ? 0
                                                                               : attributes->prebuf;
}

void settle(const PulseLibrary& pulse, pa_stream* stream, PulseStream& record) {
    if (record.kind != PulseStream::Kind::kPlayback || record.isSettled || !pulse.isComplete() ||
        pulse.bufferAttr(stream) == nullptr) {
        return;
    }
    const NativeFormat format = formatOf(pulse, stream);
    const std::size_t prebuffer = prebufferOf(pulse, stream);
    NativeStream::open(stream, format, "pulse", record.name);
    record.isSettled = true;
    if (const NativeStream::Use use(stream); use) {
        record.settled(*use.operator->(), prebuffer);
    }
}

}  // namespace tq::bridges
