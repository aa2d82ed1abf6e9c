#pragma once

#include <TQAudioRecord/tq_capture.h>

#include <stdexcept>

/// A listener of tracks, or of what becomes of streams, for as long as it lives.
class TrackListening {
  public:
    /// Returns when the capture has started. Throws std::runtime_error.
    TrackListening(void* context, void (*onTrack)(void*, const tq_block*),
                   void (*onStream)(void*, const tq_stream*) = nullptr) {
        tq_listener all{};
        all.size = sizeof all;
        all.context = context;
        all.on_track = onTrack;
        all.on_stream = onStream;
        if (tq_capture_listen(&all, &listening_) != TQ_OK || tq_capture_settle() != TQ_OK) {
            throw std::runtime_error("capture does not start");
        }
    }
    ~TrackListening() {
        (void)tq_capture_stop(listening_);
        (void)tq_capture_settle();
    }
    TrackListening(const TrackListening&) = delete;
    TrackListening& operator=(const TrackListening&) = delete;

  private:
    tq_listening* listening_ = nullptr;
};
