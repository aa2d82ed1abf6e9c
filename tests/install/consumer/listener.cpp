#include <TQAudioRecord/TQAudioRecord.h>

#include <cstdio>
#include <memory>

struct Listener : RZReplayAudioRecorderListener<Listener> {
    void onAudioReceivePCM(AudioBufferList*, const RZReplayASBDInfo&) override {}
};

int main() {
    auto& manager = RZStreamCollectManager::sharedManager();
    const auto listener = std::make_shared<Listener>();
    const bool isKept =
        manager.startAudioStreamCollect(listener) && manager.stopAudioStreamCollect(listener);
    std::printf("%s %d\n", TQAudioRecordVersionString, isKept);
    return isKept ? 0 : 1;
}
