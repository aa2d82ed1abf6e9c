#pragma once

#include <pulse/pulseaudio.h>

#include <cstdint>

#include "bridges/core/LibraryOf.h"

namespace tq::bridges {

/// What is asked of the program's own copy of libpulse. Getters: none of them talks to the server.
struct PulseLibrary {
    decltype(&pa_stream_get_sample_spec) sampleSpec;
    decltype(&pa_stream_get_buffer_attr) bufferAttr;  ///< null while the stream is not ready
    decltype(&pa_stream_get_context) context;
    decltype(&pa_stream_get_format_info) formatInfo;
    decltype(&pa_stream_get_underflow_index) underflowIndex;
    decltype(&pa_proplist_gets) property;
    decltype(&pa_stream_get_channel_map) channelMap;
    decltype(&pa_context_errno) contextError;
    decltype(&pa_strerror) errorText;
    // Redirected as well: our own callbacks go straight through there.
    decltype(&pa_stream_set_started_callback) setStartedCallback;
    decltype(&pa_stream_set_underflow_callback) setUnderflowCallback;

    explicit PulseLibrary(const void* known)
        : sampleSpec(functionBeside<decltype(pa_stream_get_sample_spec)>(
              known, "pa_stream_get_sample_spec")),
          bufferAttr(functionBeside<decltype(pa_stream_get_buffer_attr)>(
              known, "pa_stream_get_buffer_attr")),
          context(functionBeside<decltype(pa_stream_get_context)>(known, "pa_stream_get_context")),
          formatInfo(functionBeside<decltype(pa_stream_get_format_info)>(
              known, "pa_stream_get_format_info")),
          underflowIndex(functionBeside<decltype(pa_stream_get_underflow_index)>(
              known, "pa_stream_get_underflow_index")),
          property(functionBeside<decltype(pa_proplist_gets)>(known, "pa_proplist_gets")),
          channelMap(functionBeside<decltype(pa_stream_get_channel_map)>(
              known, "pa_stream_get_channel_map")),
          contextError(functionBeside<decltype(pa_context_errno)>(known, "pa_context_errno")),
          errorText(functionBeside<decltype(pa_strerror)>(known, "pa_strerror")),
          setStartedCallback(functionBeside<decltype(pa_stream_set_started_callback)>(
              known, "pa_stream_set_started_callback")),
          setUnderflowCallback(functionBeside<decltype(pa_stream_set_underflow_callback)>(
              known, "pa_stream_set_underflow_callback")) {}

    /// -1 before the first one, and where the library does not tell.
    [[nodiscard]] std::int64_t underflow(const pa_stream* stream) const {
        return underflowIndex == nullptr ? -1 : underflowIndex(stream);
    }
    /// Format descriptions and underflows came later than the rest and may be missing.
    [[nodiscard]] bool isComplete() const {
        return sampleSpec != nullptr && bufferAttr != nullptr && context != nullptr &&
               property != nullptr && channelMap != nullptr;
    }
    /// Of the copy that the first call went to.
    static const PulseLibrary& of(const void* known) {
        static const PulseLibrary library(known);
        return library;
    }
};

}  // namespace tq::bridges
