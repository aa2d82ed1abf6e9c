// Preloaded into a program that plays natively, beside the capture library: has its streams
// recorded, listens, and dies without warning where TQ_TEST_DEADLY says:
//   write    in the bridge's part of the program's call that writes
//   stream   in the listener that is told of the stream
//   track    in the delivery of the stream's blocks

#include <TQAudioRecord/tq_capture.h>
#include <TQAudioRecord/tq_source.h>
#include <dlfcn.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

namespace {

void dieAt(std::string_view where) {
    static const char* const wanted = std::getenv("TQ_TEST_DEADLY");
    if (wanted != nullptr && where == wanted) {
        std::raise(SIGKILL);
    }
}

[[gnu::constructor]] void listen() {
    tq_bridges bridges{};
    bridges.size = sizeof bridges;
    static tq_listening* listening = nullptr;
    tq_listener listener{};
    listener.size = sizeof listener;
    listener.on_track = [](void*, const tq_block*) { dieAt("track"); };
    listener.on_stream = [](void*, const tq_stream*) { dieAt("stream"); };
    if (tq_capture_use_bridges(&bridges) == TQ_OK &&
        tq_capture_listen(&listener, &listening) == TQ_OK) {
        tq_capture_settle();
    }
}

}  // namespace

/// Stands before the library's function of that name, which a bridge asks at each write.
extern "C" [[gnu::visibility("default")]] int tq_source_gain_is_on(const tq_source* source) {
    dieAt("write");
    static const auto next =
        reinterpret_cast<int (*)(const tq_source*)>(dlsym(RTLD_NEXT, "tq_source_gain_is_on"));
    return next(source);
}
