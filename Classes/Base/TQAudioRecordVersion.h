#pragma once

#include "TQAudioRecordExport.h"

/// The library's version as text ("1.0.0"), terminated, and as a number.
extern "C" TQ_RECORD_EXPORT const char TQAudioRecordVersionString[];
extern "C" TQ_RECORD_EXPORT const double TQAudioRecordVersionNumber;
