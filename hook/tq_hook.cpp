#include "hook/tq_hook.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "hook/rebind/Rebinder.h"

using tqhook::Rebinder;

int tqhook_rebind(const tqhook_rebinding* rebindings, size_t count, const tqhook_options* options) {
    if (count == 0) {
        return 0;
    }
    if (rebindings == nullptr) {
        return -1;
    }
    try {
        tqhook_options known{};
        if (options != nullptr) {
            // A caller may know fewer fields than this library, or more.
            std::memcpy(&known, options, std::min(options->size, sizeof known));
        }
        const char* const* const patterns = known.exemptPatterns;
        if (known.exemptPatternCount > 0 &&
            (patterns == nullptr ||
             std::any_of(patterns, patterns + known.exemptPatternCount,
                         [](const char* each) { return each == nullptr; }))) {
            return -1;
        }
        return Rebinder::shared().rebind({rebindings, count}, known);
    } catch (const std::exception&) {
        return -1;
    }
}

int tqhook_exempt_images(const char* pattern) {
    if (pattern == nullptr || pattern[0] == '\0') {
        return -1;
    }
    try {
        Rebinder::shared().exempt(pattern);
        return 0;
    } catch (const std::exception&) {
        return -1;
    }
}

int tqhook_front_images(const char* symbol) {
    if (symbol == nullptr || symbol[0] == '\0') {
        return -1;
    }
    try {
        Rebinder::shared().addFront(symbol);
        return 0;
    } catch (const std::exception&) {
        return -1;
    }
}

void tqhook_report(tqhook_counts* counts) {
    if (counts != nullptr) {
        *counts = Rebinder::shared().report();
    }
}
