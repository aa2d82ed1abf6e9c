// What a host does on its settings page: wants interception (on), or does not (off), or forbids it
// (forbid) or no longer (allow). Says what the crash guard found at this start. A file named after
// that is emptied first, as another program might.

#include <TQAudioRecord/TQAudioRecord.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
    auto& config = TQAudioRecordHookConfig::shared();
    const auto before = config.getPreLaunchState();
    std::printf("entered=%d\nretries=%d\n", before->preEnterCount(), before->currentRetryCount());
    const char* const wanted = std::getenv("TQ_TEST_HOOK");
    const unsigned id = wanted != nullptr ? static_cast<unsigned>(std::stoul(wanted)) : 1;
    const std::string what = argc > 1 ? argv[1] : "";
    if (argc > 2 && truncate(argv[2], 0) != 0) {
        std::perror(argv[2]);
    }
    int result = 0;
    if (what == "on" || what == "off") {
        result = config.enableHook(id, what == "on");
    } else if (what == "forbid" || what == "allow") {
        result = config.forceDisableHook(id, what == "forbid");
    }
    std::printf("result=%d\nenabled=%d\n", result, config.isHookEnable() ? 1 : 0);
    return 0;
}
