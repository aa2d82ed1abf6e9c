#include "inject/Guard.h"

#include <Foundation/Foundation.h>
#include <TQAudioRecord/TQAudioRecord.h>

#include <array>
#include <cstring>
#include <fstream>
#include <string>

#include "ipc/TapSettings.h"

namespace tqrecorder {
namespace {

constexpr std::size_t kMostIds = 20;

/// The flag file: number of ids and retries left, then per id its number and what it says.
struct FlagFile {
    struct Id {
        std::uint32_t number = 0;
        std::uint8_t wanted = 0;
        std::uint8_t forbidden = 0;
        std::array<std::uint8_t, 2> unused{};
    };
    std::uint32_t ids = 0;
    std::uint32_t retries = 0;
    std::array<Id, kMostIds> list{};
};
static_assert(sizeof(FlagFile) == 8 + kMostIds * 8);

/// The library tells whether hooks may come, but not why not; the file does.
bool readFlagFile(FlagFile& flags) {
    const std::vector<std::string> caches =
        NSSearchPathForDirectoriesInDomains(NSCachesDirectory, NSUserDomainMask, YES);
    if (caches.empty()) {
        return false;
    }
    std::ifstream file(caches.front() + "/korva_audio_utils/korva_audio_hook_config.flag",
                       std::ios::binary);
    std::array<char, sizeof(FlagFile)> bytes{};
    file.read(bytes.data(), 8);
    if (!file) {
        return false;
    }
    // Shorter is the rest of a file that holds fewer ids.
    file.read(bytes.data() + 8, sizeof(FlagFile) - 8);
    std::memcpy(&flags, bytes.data(), sizeof flags);
    return flags.ids <= kMostIds;
}

}  // namespace

GuardStatus guardStatus() {
    FlagFile flags;
    if (!readFlagFile(flags)) {
        return {GuardState::kUnreadable, 0};
    }
    const int retries = static_cast<int>(flags.retries);
    bool wanted = false;
    for (std::size_t i = 0; i < flags.ids; ++i) {
        if (flags.list[i].forbidden != 0) {
            return {GuardState::kForbidden, retries};
        }
        wanted = wanted || flags.list[i].wanted != 0;
    }
    if (flags.ids == 0) {
        return {GuardState::kNeverEnabled, retries};
    }
    if (!wanted) {
        return {GuardState::kNotWanted, retries};
    }
    return {retries > 0 ? GuardState::kArmed : GuardState::kUsedUp, retries};
}

int armGuard() {
    return TQAudioRecordHookConfig::shared().enableHook(kGuardHookId, YES);
}

int disarmGuard() {
    FlagFile flags;
    if (!readFlagFile(flags)) {
        return TQAudioRecordHookConfig::shared().enableHook(kGuardHookId, NO);
    }
    int result = 0;
    for (std::size_t i = 0; i < flags.ids; ++i) {
        const FlagFile::Id& id = flags.list[i];
        if (id.wanted != 0) {
            const int done = TQAudioRecordHookConfig::shared().enableHook(id.number, NO);
            result = result == 0 ? done : result;
        }
    }
    return result;
}

}  // namespace tqrecorder
