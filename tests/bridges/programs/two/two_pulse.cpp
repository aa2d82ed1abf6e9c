#include <pulse/simple.h>

#include "TwoStreams.h"

namespace {

bool play(const char* name) {
    const pa_sample_spec format{PA_SAMPLE_S16LE, twostreams::kRate, twostreams::kChannels};
    pa_simple* const stream = pa_simple_new(nullptr, "two", PA_STREAM_PLAYBACK, nullptr, name,
                                            &format, nullptr, nullptr, nullptr);
    if (stream == nullptr) {
        return false;
    }
    const std::vector<short> samples = twostreams::wholeStream();
    const bool isPlayed =
        pa_simple_write(stream, samples.data(), samples.size() * sizeof(short), nullptr) == 0 &&
        pa_simple_drain(stream, nullptr) == 0;
    pa_simple_free(stream);
    return isPlayed;
}

}  // namespace

int main() {
    return twostreams::playTwo(play);
}
