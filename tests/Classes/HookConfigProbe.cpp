// A launch of a host for the tests of the crash guard: it carries out the commands given as
// arguments, one after the other, and prints one line for each that has an answer.

#include <Foundation/Foundation.h>
#include <audio_hook_config.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>

#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamCollectManager.h"
#include "TQAudioCaptureBase.h"
#include "TQAudioRecordHookConfig.h"

namespace {

class Commands {
  public:
    Commands(int count, char** arguments) : count_(count), arguments_(arguments) {}
    [[nodiscard]] bool isEmpty() const { return next_ >= count_; }
    std::string take() { return isEmpty() ? "" : arguments_[next_++]; }
    int takeNumber() { return std::atoi(take().c_str()); }

  private:
    int count_;
    char** arguments_;
    int next_ = 1;
};

/// False for an unknown command.
bool carryOut(const std::string& command, Commands& rest) {
    TQAudioRecordHookConfig& config = TQAudioRecordHookConfig::shared();
    if (command == "enable") {
        const auto id = static_cast<unsigned>(rest.takeNumber());
        std::cout << config.enableHook(id, rest.takeNumber() != 0) << '\n';
    } else if (command == "forbid") {
        const auto id = static_cast<unsigned>(rest.takeNumber());
        std::cout << config.forceDisableHook(id, rest.takeNumber() != 0) << '\n';
    } else if (command == "isEnabled") {
        std::cout << config.isHookEnable() << '\n';
    } else if (command == "isStarted") {
        std::cout << RZReplayAudioUnitCapturer::isHookStarted()
                  << RZReplayAudioUnitGraphCapturer::isHookStarted()
                  << RZStreamCollectManager::sharedManager().isHookStarted()
                  << RZStreamCollectManager::sharedManager().isHookSuccess() << '\n';
    } else if (command == "startUnits") {
        RZReplayAudioUnitCapturer::startHook();
    } else if (command == "startGraphs") {
        RZReplayAudioUnitGraphCapturer::startHook();
    } else if (command == "state") {
        const auto state = config.getPreLaunchState();
        std::cout << state->preEnterCount() << ' ' << state->currentRetryCount() << '\n';
    } else if (command == "init") {
        std::cout << RZReplayAudioUnitCapture_initHookConfig() << '\n';
    } else if (command == "remove") {
        std::filesystem::remove_all(rest.take());
    } else if (command == "die") {
        const korva_audio_utils::AudioHookFunctionGuards inside;
        std::_Exit(9);
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int count, char** arguments) {
    Commands commands(count, arguments);
    while (!commands.isEmpty()) {
        const std::string command = commands.take();
        if (!carryOut(command, commands)) {
            std::cerr << "unknown command " << command << '\n';
            return 2;
        }
        std::cout << std::flush;
    }
    return 0;
}
