#include <orderly_endings.h>

#include <vector>

#include "RZHookSet.h"

namespace {

std::span<const TQRebinding> rows() {
    static const auto all = [] {
        std::vector<TQRebinding> records;
        for (const korva_audio_utils::EndingCall& call : korva_audio_utils::orderlyEndingCalls()) {
            records.push_back({call.name, call.replacement, call.saved});
        }
        return records;
    }();
    return all;
}

}  // namespace

// The system log does not hear of it: it has to do with the crash guard alone.
constinit RZHookSet RZEndingHooks({nullptr, rows, nullptr});
