#include "TQAudioRecordVersion.h"

extern "C" {
const char TQAudioRecordVersionString[] = TQ_VERSION_STRING;
const double TQAudioRecordVersionNumber = TQ_VERSION_NUMBER;
}
