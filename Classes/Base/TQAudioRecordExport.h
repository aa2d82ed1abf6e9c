#pragma once

/// Marks what libTQAudioRecord offers to hosts; everything else in it is hidden.
#define TQ_RECORD_EXPORT __attribute__((visibility("default")))
