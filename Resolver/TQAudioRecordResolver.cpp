#include "TQAudioRecordResolver.h"

#include <exception>

#include "hook/rebind/Rebinder.h"

using tqhook::Rebinder;

int tqreplay_rebind_symbols(TQRebinding* rebindings, size_t count) {
    if (count == 0) {
        return 0;
    }
    if (rebindings == nullptr) {
        return -1;
    }
    try {
        return Rebinder::shared().rebind({rebindings, count});
    } catch (const std::exception&) {
        // Out of memory: whatever was redirected up to here works, the rest stays as it was.
        return -1;
    }
}

void tqreplay_rebind_report(TQRebindReport* report) {
    if (report != nullptr) {
        *report = Rebinder::shared().report();
    }
}
