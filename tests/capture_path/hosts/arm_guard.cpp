// What a host does on its settings page: wants interception (on), or does not (off), or forbids it
// (forbid) or no longer (allow). Says what the crash guard found at this start.

#include <TQAudioRecord/TQAudioRecord.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    auto& config = TQAudioRecordHookConfig::shared();
    const auto before = config.getPreLaunchState();
    std::printf("entered=%d\nretries=%d\n", before->preEnterCount(), before->currentRetryCount());
    const std::string what = argc > 1 ? argv[1] : "";
    int result = 0;
    if (what == "on" || what == "off") {
        result = config.enableHook(1, what == "on");
    } else if (what == "forbid" || what == "allow") {
        result = config.forceDisableHook(1, what == "forbid");
    }
    std::printf("result=%d\nenabled=%d\n", result, config.isHookEnable() ? 1 : 0);
    return 0;
}
