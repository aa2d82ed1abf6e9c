#include "hook/tq_hook.h"

#include <exception>

#include "hook/rebind/Rebinder.h"

using tqhook::Rebinder;

int tqhook_rebind(const tqhook_rebinding* rebindings, size_t count) {
    if (count == 0) {
        return 0;
    }
    if (rebindings == nullptr) {
        return -1;
    }
    try {
        return Rebinder::shared().rebind({rebindings, count});
    } catch (const std::exception&) {
        return -1;
    }
}

void tqhook_report(tqhook_counts* counts) {
    if (counts != nullptr) {
        *counts = Rebinder::shared().report();
    }
}
