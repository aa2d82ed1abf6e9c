#pragma once

#include <pulse/pulseaudio.h>

#include <string>
#include <vector>

// A made-up libpulse without a server. A stream is ready when the test says so, takes every write
// and keeps what it was passed.

struct pa_context {
    int references = 1;
    pa_context_state_t state = PA_CONTEXT_READY;
    int answer = 0;  ///< of connecting
    int error = 0;
};

struct pa_stream {
    pa_context* context = nullptr;
    pa_stream_state_t state = PA_STREAM_UNCONNECTED;
    pa_sample_spec spec{};
    pa_buffer_attr attributes{};
    pa_format_info format{};
    int references = 1;
    int answer = 0;                ///< of writes
    std::string taken;             ///< all that was passed
    const void* passed = nullptr;  ///< by the last write
    bool hasRelease = false;       ///< the last write left the memory to the library
    std::vector<char> block;       ///< of begin_write
    bool startsLate = false;       ///< the test says when the server plays, with starts()
    pa_stream_notify_cb_t started = nullptr;
    void* startedContext = nullptr;

    void starts() {
        if (started != nullptr) {
            started(this, startedContext);
        }
    }
    pa_stream_notify_cb_t dry = nullptr;
    void* dryContext = nullptr;

    void runsDry() {
        if (dry != nullptr) {
            dry(this, dryContext);
        }
    }
    bool isBlockOut = false;  ///< only what lies in it may be written now
};
