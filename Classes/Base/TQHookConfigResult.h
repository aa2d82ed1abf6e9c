#pragma once

/// The code that hosts see for a result of the hook configuration store.
[[nodiscard]] constexpr int publicHookConfigResult(int internal) {
    switch (internal) {
        case 0:
            return 0;  // success
        case 1:
            return 20;  // a flag file could not be opened or mapped
        case 2:
            return 21;  // the config file holds too many items
        case 3:
            return 1;  // the store is not initialised
        case 4:
            return 22;  // the table is full
        default:
            return 10;
    }
}
