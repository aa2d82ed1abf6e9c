// Preloaded into the player beside the capture library: listens, and dies without warning in the
// delivery that TQ_TEST_DEADLY names, "mix", "track" or "event".

#include <TQAudioRecord/tq_capture.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace {

void die(void* /*context*/, const tq_block* /*block*/) {
    std::raise(SIGKILL);
}

[[gnu::constructor]] void listen() {
    const char* const where = std::getenv("TQ_TEST_DEADLY");
    static tq_listening* listening = nullptr;
    tq_listener listener{};
    listener.size = sizeof listener;
    if (const std::string name = where == nullptr ? "" : where; name == "event") {
        // Of what goes well. That the hooks stay out is an event too.
        listener.on_event = [](void*, const tq_event* event) {
            if (event->code == 0) {
                std::raise(SIGKILL);
            }
        };
    } else {
        (name == "mix" ? listener.on_mix : listener.on_track) = die;
    }
    if (tq_capture_listen(&listener, &listening) == TQ_OK) {
        tq_capture_settle();
    }
}

}  // namespace
