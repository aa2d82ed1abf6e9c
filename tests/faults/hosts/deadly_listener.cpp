// Preloaded into the player beside the capture library: listens, and dies without warning in the
// delivery that TQ_TEST_DEADLY names, "mix" or "track".

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
    (where != nullptr && std::string(where) == "mix" ? listener.on_mix : listener.on_track) = die;
    if (tq_capture_listen(&listener, &listening) == TQ_OK) {
        tq_capture_settle();
    }
}

}  // namespace
