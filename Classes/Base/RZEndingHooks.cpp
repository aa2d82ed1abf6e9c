#include <bus_handler.h>
#include <orderly_endings.h>

#include <vector>

#include "RZHookSet.h"

namespace {

std::span<const TQRebinding> rows() {
    using namespace korva_audio_utils;
    static const auto all = [] {
        std::vector<TQRebinding> records;
        const auto add = [&records](std::span<const ReplacedCall> calls) {
            for (const ReplacedCall& call : calls) {
                records.push_back({call.name, call.replacement, call.saved});
            }
        };
        add(orderlyEndingCalls());
        if (areBusHandlerCallsPlain()) {
            add(busHandlerCalls());
        }
        return records;
    }();
    return all;
}

}  // namespace

// The system log does not hear of it: it has to do with the crash guard alone.
constinit RZHookSet RZEndingHooks({nullptr, rows, nullptr});
