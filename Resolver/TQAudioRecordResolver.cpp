#include "TQAudioRecordResolver.h"

#include <exception>
#include <vector>

#include "hook/tq_hook.h"

int tqreplay_rebind_symbols(TQRebinding* rebindings, size_t count) {
    if (count == 0) {
        return 0;
    }
    if (rebindings == nullptr) {
        return -1;
    }
    try {
        std::vector<tqhook_rebinding> records;
        records.reserve(count);
        for (size_t i = 0; i < count; ++i) {
            records.push_back(
                {rebindings[i].symbol, rebindings[i].replacement, rebindings[i].saved});
        }
        return tqhook_rebind(records.data(), records.size(), nullptr);
    } catch (const std::exception&) {
        return -1;
    }
}

void tqreplay_rebind_report(TQRebindReport* report) {
    if (report == nullptr) {
        return;
    }
    tqhook_counts counts{};
    tqhook_report(&counts);
    *report = {counts.images,       counts.callSlots,     counts.pointerSlots,
               counts.dataPointers, counts.refusedImages, counts.restoredSlots};
}
