#include <TQAudioCaptureBase.h>
#include <TQAudioRecordHookConfig.h>
#include <audio_hook_config.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "Call.h"

// The crash guard.

namespace {

using korva_audio_utils::AudioHookConfig;
using korva_audio_utils::HookTable;
using korva_audio_utils::HookVerdict;

tq_guard_reason reasonOf(HookVerdict verdict) {
    switch (verdict) {
        case HookVerdict::Armed:
            return TQ_GUARD_ARMED;
        case HookVerdict::NeverEnabled:
            return TQ_GUARD_NEVER_ENABLED;
        case HookVerdict::NotWanted:
            return TQ_GUARD_NOT_WANTED;
        case HookVerdict::Forbidden:
            return TQ_GUARD_FORBIDDEN;
        case HookVerdict::UsedUp:
            return TQ_GUARD_USED_UP;
        case HookVerdict::NoFiles:
            break;
    }
    return TQ_GUARD_NO_FILES;
}

tq_result resultOf(int code) {
    switch (code) {
        case 0:
            return TQ_OK;
        case 1:
            return TQ_ERROR_GUARD_NOT_READY;
        case 22:
            return TQ_ERROR_GUARD_FULL;
        default:
            return TQ_ERROR_UNKNOWN;
    }
}

std::uint32_t countOf(const HookTable& table, bool HookTable::Item::*flag) {
    return static_cast<std::uint32_t>(
        std::count_if(table.items.begin(), table.items.end(),
                      [flag](const HookTable::Item& item) { return item.*flag; }));
}

}  // namespace

const char* tq_guard_reason_text(tq_guard_reason reason) {
    switch (reason) {
        case TQ_GUARD_ARMED:
            return "armed";
        case TQ_GUARD_NEVER_ENABLED:
            return "nobody has ever asked for the hooks";
        case TQ_GUARD_NOT_WANTED:
            return "whoever asked for the hooks has taken it back";
        case TQ_GUARD_FORBIDDEN:
            return "the program forbids the hooks";
        case TQ_GUARD_USED_UP:
            return "the program died inside the hooks too often";
        case TQ_GUARD_NO_FILES:
            return "the crash guard's files cannot be used";
    }
    return "unknown";
}

tq_result tq_guard_get_state(tq_guard_state* state) {
    return tqcapi::call([&] {
        AudioHookConfig& config = *AudioHookConfig::getInstance();
        const HookTable table = config.table();
        const auto found = config.getPreLaunchState();
        tq_guard_state now{};
        now.next_launch = reasonOf(table.verdict());
        now.this_launch = reasonOf(config.verdictAtInit());
        now.retries_left = static_cast<std::int32_t>(table.retriesLeft);
        now.retries_at_load = found.retryCount;
        now.threads_inside_at_death = found.enterCount;
        now.ids = static_cast<std::uint32_t>(table.items.size());
        now.ids_wanting = countOf(table, &HookTable::Item::enabled);
        now.ids_forbidding = countOf(table, &HookTable::Item::forceDisabled);
        return tqcapi::answer(state, now);
    });
}

tq_result tq_guard_arm(uint32_t id) {
    return tqcapi::call(
        [&] { return resultOf(TQAudioRecordHookConfig::shared().enableHook(id, YES)); });
}

tq_result tq_guard_disarm(void) {
    return tqcapi::call([] {
        const HookTable table = AudioHookConfig::getInstance()->table();
        if (!table.isReadable) {
            return TQ_ERROR_GUARD_NOT_READY;
        }
        tq_result result = TQ_OK;
        const auto note = [&result](int code) {
            result = result == TQ_OK ? resultOf(code) : result;
        };
        auto& config = TQAudioRecordHookConfig::shared();
        bool isAnyWanted = false;
        for (const HookTable::Item& item : table.items) {
            if (item.enabled) {
                note(config.enableHook(item.id, NO));
                isAnyWanted = true;
            }
        }
        // A store whose retries are used up has forgotten its items, and the change above has
        // written the file without them.
        for (const HookTable::Item& item : table.items) {
            if (isAnyWanted && item.forceDisabled) {
                note(config.forceDisableHook(item.id, YES));
            }
        }
        return result;
    });
}

tq_result tq_guard_folder(char* path, size_t bytes) {
    return tqcapi::call([&] {
        if (path == nullptr) {
            return TQ_ERROR_NULL;
        }
        const std::string folder = RZReplayAudioUnitCapture_hookConfigFolder();
        if (folder.size() >= bytes) {
            return TQ_ERROR_ROOM;
        }
        std::memcpy(path, folder.c_str(), folder.size() + 1);
        return TQ_OK;
    });
}
