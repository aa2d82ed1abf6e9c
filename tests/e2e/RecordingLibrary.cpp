// Preloaded into a host of hosts/ beside the capture library: arms the guard for it, or records it
// from before its first call to behind its last. What was recorded goes to the folder that
// TQ_TEST_RECORDED names, one file of 16-bit samples per track (its first channel) and one for the
// mix's left side, and one for the events.

#include <TQAudioRecord/TQAudioRecord.h>
#include <TQAudioRecord/tq_capture.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "MixCollector.h"

namespace {

std::shared_ptr<MixCollector>& collector() {
    static const auto instance =
        std::make_unique<std::shared_ptr<MixCollector>>(std::make_shared<MixCollector>(3));
    return *instance;
}

template <class Condition>
void waitUntil(const char* what, Condition condition) {
    using namespace std::chrono_literals;
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            std::fprintf(stderr, "recording: waited in vain: %s\n", what);
            std::_Exit(4);
        }
        std::this_thread::sleep_for(1ms);
    }
}

template <class Sample>
void write(const std::string& path, const std::vector<Sample>& samples) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(Sample)));
}

}  // namespace

extern "C" [[gnu::visibility("default")]] int tqTestArm() {
    return TQAudioRecordHookConfig::shared().enableHook(1, YES);
}

extern "C" [[gnu::visibility("default")]] int tqTestStartRecording() {
    auto& manager = RZStreamCollectManager::sharedManager();
    if (!manager.isHookSuccess()) {
        std::fprintf(stderr, "recording: the hooks are not installed\n");
        std::_Exit(4);
    }
    manager.startAudioStreamCollect(collector());
    waitUntil("start", [] { return collector()->hasEvent(0, 0); });
    return 0;
}

/// Stops, or starts again what was stopped; nothing before the first start.
extern "C" [[gnu::visibility("default")]] int tqTestToggleRecording() {
    auto& manager = RZStreamCollectManager::sharedManager();
    if (!collector()->hasEvent(0, 0)) {
        return 0;
    }
    const BOOL wasOn = manager.stopAudioStreamCollect(collector());
    if (!wasOn) {
        manager.startAudioStreamCollect(collector());
    }
    tq_capture_settle();
    tq_capture_state state{};
    state.size = sizeof state;
    if (tq_capture_get_state(&state) != TQ_OK || (state.is_capturing != 0) == wasOn) {
        std::fprintf(stderr, "recording: it does not %s\n", wasOn ? "end" : "start again");
        std::_Exit(4);
    }
    return 0;
}

extern "C" [[gnu::visibility("default")]] int tqTestStopRecording() {
    auto& manager = RZStreamCollectManager::sharedManager();
    manager.stopAudioStreamCollect(collector());
    waitUntil("stop", [&] { return !manager.audioRecorder()->isRecording(); });
    const char* const folder = std::getenv("TQ_TEST_RECORDED");
    if (folder == nullptr) {
        return 0;
    }
    const std::string path = std::string(folder) + "/";
    for (const auto& [track, recorded] : collector()->tracks()) {
        if (!recorded.planes.empty()) {
            write(path + "track" + std::to_string(track), recorded.planes.front());
        }
    }
    std::vector<std::int16_t> mix;
    for (const double sample : collector()->mix()[0]) {
        mix.push_back(static_cast<std::int16_t>(sample * 32768));
    }
    write(path + "mix", mix);
    std::ofstream events(path + "events");
    for (const auto& [category, code, message] : collector()->events()) {
        events << category << ' ' << code << ' ' << message << '\n';
    }
    return 0;
}
