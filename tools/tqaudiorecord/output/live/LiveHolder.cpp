#include "output/live/LiveHolder.h"

#include <csignal>
#include <string_view>

namespace tqrecorder {

void LiveHolder::outliveSignals() {
    for (const int number : {SIGINT, SIGHUP, SIGTERM, SIGPIPE}) {
        std::signal(number, SIG_IGN);
    }
}

bool LiveHolder::takePackets() {
    while (true) {
        switch (receiver_.next(kLiveSocket)) {
            case LiveReceiver::Got::kNothing:
                return true;
            case LiveReceiver::Got::kEnd:
                return false;
            case LiveReceiver::Got::kPacket:
                break;
        }
        const LiveHeader& header = receiver_.header();
        const std::span<const std::byte> payload = receiver_.payload();
        if (header.kind == LiveKind::kOpen) {
            // Two texts, each ended by a zero.
            const std::string_view texts(reinterpret_cast<const char*>(payload.data()),
                                         payload.size());
            const std::string name(texts.substr(0, texts.find('\0')));
            open(header, name, std::string(texts.substr(name.size() + 1).data()));
        } else if (header.kind == LiveKind::kClose) {
            close(header.source);
        } else {
            sound(header.source, payload);
        }
    }
}

void LiveHolder::say(LiveKind kind, const std::string& text, std::uint32_t source) {
    (void)sendLive(kLiveSocket, {kind, source}, std::as_bytes(std::span(text)));
}

}  // namespace tqrecorder
