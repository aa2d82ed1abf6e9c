// A program that lies to the recorder that started it: `hostile_host WAY [ARGUMENT]`. It connects
// as the recorder's own library does in an honest program, and says what that one never would.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "common/Descriptor.h"
#include "ipc/SharedMemory.h"
#include "ipc/TapSettings.h"

namespace {

using namespace tqrecorder;
using tqcommon::Descriptor;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30U;
constexpr int kFailed = 3;

std::uint64_t now() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

void rest(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds{milliseconds});
}

Descriptor dial(const std::string& socketName) {
    Descriptor dialled(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, socketName.data(), socketName.size());
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + socketName.size());
    return connect(dialled.get(), reinterpret_cast<const sockaddr*>(&address), length) == 0
               ? std::move(dialled)
               : Descriptor();
}

bool introduce(const Descriptor& line, const std::string& name, int memory) {
    Hello hello;
    hello.isRecording = 1;
    hello.usesPlatform = 1;
    hello.guard = static_cast<std::uint32_t>(GuardState::kArmed);
    std::strncpy(hello.name.data(), name.c_str(), hello.name.size() - 1);
    iovec part{&hello, sizeof hello};
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (memory >= 0) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* const head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(head), &memory, sizeof memory);
    }
    return sendmsg(line.get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof hello);
}

/// A connection with memory of the usual layout.
struct Tapped {
    Descriptor line;
    SharedMapping memory;

    [[nodiscard]] RingWriter ring(RingId id) const { return memory.writer(id); }
    /// A block of the mix or of a track, 16-bit stereo at 44100 Hz.
    bool play(std::uint64_t stamp, std::uint32_t frames, std::uint32_t track = 0,
              std::uint32_t unit = 0) const {
        RecordHeader header;
        header.kind = track == 0 ? RecordKind::kMix : RecordKind::kTrack;
        header.track = track;
        header.channels = 2;
        header.bitsPerChannel = 16;
        header.buffers = 1;
        header.microseconds = stamp;
        header.sampleRate = 44100;
        const std::vector<std::byte> payload(std::size_t{frames} * 4, std::byte{0x11});
        const std::string name = track == 0 ? "" : "unit-" + std::to_string(unit);
        header.nameBytes = static_cast<std::uint32_t>(name.size());
        const std::array<RingWriter::Bytes, 2> parts{payload, std::as_bytes(std::span(name))};
        return ring(RingId::kSound).push(header, parts);
    }
    bool say(RecordKind kind, const std::string& text) const {
        RecordHeader header;
        header.kind = kind;
        header.code = 2;
        const RingWriter::Bytes part(std::as_bytes(std::span(text)));
        return ring(kind == RecordKind::kLog ? RingId::kLog : RingId::kEvents)
            .push(header, std::span(&part, 1));
    }
};

std::unique_ptr<Tapped> tap(const TapSettings& settings, const std::string& name) {
    auto tapped = std::make_unique<Tapped>();
    tapped->line = dial(settings.socket);
    int memory = -1;
    auto made = SharedMapping::make(settings.soundBytes, memory);
    const Descriptor owned(memory);
    if (!tapped->line || !made || !introduce(tapped->line, name, memory)) {
        return nullptr;
    }
    tapped->memory = std::move(*made);
    return tapped;
}

/// Blocks of 10 ms in real time.
void playOn(const Tapped& tapped, int milliseconds) {
    for (int done = 0; done < milliseconds; done += 10) {
        (void)tapped.play(now(), 441);
        rest(10);
    }
}

/// Memory of 8 GiB with nothing in it but the head of one record of 4 GiB.
int claimMemory(const TapSettings& settings, std::uint64_t total, std::uint32_t record,
                double rate) {
    const Descriptor line = dial(settings.socket);
    const Descriptor memory(memfd_create("hostile", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!line || ftruncate(memory.get(), static_cast<off_t>(total)) != 0) {
        return kFailed;
    }
    void* const base =
        mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, memory.get(), 0);
    if (base == MAP_FAILED) {
        return kFailed;
    }
    auto* const page = std::construct_at(static_cast<SharedPage*>(base));
    page->totalBytes = total;
    const std::uint64_t quarter = total / 4 / 4096 * 4096;
    for (std::size_t ring = 0; ring < kRings; ++ring) {
        page->ringOffset[ring] = ring == 0 ? 2 * quarter : ring * 65536;
        page->ringBytes[ring] = ring == 0 ? 2 * quarter : 65536;
    }
    RecordHeader header;
    header.bytes = record;
    header.kind = RecordKind::kMix;
    header.payloadBytes = record - static_cast<std::uint32_t>(sizeof header);
    header.channels = 2;
    header.bitsPerChannel = 16;
    header.buffers = 1;
    header.sampleRate = rate;
    header.microseconds = now();
    std::memcpy(static_cast<std::byte*>(base) + 2 * quarter, &header, sizeof header);
    page->rings[0].written = record;
    fcntl(memory.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW);
    if (!introduce(line, "hostile", memory.get())) {
        return kFailed;
    }
    rest(3000);
    return 0;
}

/// Sound in honest blocks, and one that is stamped so many seconds ahead.
int jumpAhead(const TapSettings& settings, std::uint64_t seconds) {
    const auto tapped = tap(settings, "hostile");
    if (tapped == nullptr) {
        return kFailed;
    }
    playOn(*tapped, 500);
    (void)tapped->play(now() + seconds * 1'000'000, 441);
    (void)tapped->play(now() + seconds * 1'000'000, 441, 1, 2);
    playOn(*tapped, 1500);
    return 0;
}

/// Sound in real time, and log lines as fast as they can be written: many before the first sound,
/// so that a talker who gets no processor later has said enough.
int talk(const TapSettings& settings, int milliseconds) {
    const auto tapped = tap(settings, "hostile");
    if (tapped == nullptr) {
        return kFailed;
    }
    const auto say = [&tapped] {
        const bool isSaid = tapped->say(RecordKind::kLog, std::string(100, 'l'));
        std::this_thread::yield();
        return isSaid;
    };
    for (int said = 0; said < 3000;) {
        said += say() ? 1 : 0;
    }
    std::thread talker([&say, milliseconds] {
        const std::uint64_t end = now() + static_cast<std::uint64_t>(milliseconds) * 1000;
        while (now() < end) {
            (void)say();
        }
    });
    playOn(*tapped, milliseconds);
    talker.join();
    return 0;
}

/// Connections that say nothing, and then an honest one.
int hide(const TapSettings& settings, std::size_t count) {
    std::vector<Descriptor> silent;
    while (silent.size() < count) {
        silent.push_back(dial(settings.socket));
    }
    const auto tapped = tap(settings, "honest");
    if (tapped == nullptr) {
        return kFailed;
    }
    playOn(*tapped, 500);
    return 0;
}

/// Says again and again that there was no memory to share.
int complain(const TapSettings& settings, int milliseconds) {
    const std::uint64_t end = now() + static_cast<std::uint64_t>(milliseconds) * 1000;
    for (int number = 0; now() < end; ++number) {
        const Descriptor line = dial(settings.socket);
        (void)introduce(line, "hostile" + std::to_string(number % 2000), -1);
    }
    return 0;
}

/// One track whose unit is another one with every block.
int alternate(const TapSettings& settings, std::uint32_t blocks) {
    const auto tapped = tap(settings, "hostile");
    if (tapped == nullptr) {
        return kFailed;
    }
    for (std::uint32_t block = 0; block < blocks;) {
        if (tapped->play(now(), 64, 1, block << 1U)) {
            ++block;
        } else {
            rest(1);
        }
    }
    return 0;
}

/// A name, events and log lines that would steer a terminal and look like lines of the recorder.
int forge(const TapSettings& settings, const std::string& text) {
    const auto tapped = tap(settings, text);
    if (tapped == nullptr) {
        return kFailed;
    }
    (void)tapped->say(RecordKind::kLog, text);
    (void)tapped->say(RecordKind::kEvent, text);
    playOn(*tapped, 500);
    return 0;
}

/// One event as long as the ring of events takes.
int sayMuch(const TapSettings& settings, std::size_t bytes) {
    const auto tapped = tap(settings, "hostile");
    if (tapped == nullptr) {
        return kFailed;
    }
    const bool isSaid = tapped->say(RecordKind::kEvent, std::string(bytes, 'e'));
    playOn(*tapped, 500);
    return isSaid ? 0 : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    const char* const text = std::getenv(kSettingsVariable);
    const auto settings = text == nullptr ? std::nullopt : settingsFromText(text);
    if (argc < 2 || !settings) {
        return kFailed;
    }
    const std::string argument = argc > 2 ? argv[2] : "0";
    const int number = std::atoi(argument.c_str());
    const auto count = static_cast<std::uint32_t>(number);
    const std::map<std::string, std::function<int()>> ways{
        {"huge-memory", [&] { return claimMemory(*settings, 8 * kGiB, 0xFFFFFF00U, 44100); }},
        {"huge-record", [&] { return claimMemory(*settings, kGiB / 4, 128U << 20U, 44100); }},
        {"jump", [&] { return jumpAhead(*settings, count); }},
        {"talk", [&] { return talk(*settings, number); }},
        {"hide", [&] { return hide(*settings, count); }},
        {"complain", [&] { return complain(*settings, number); }},
        {"alternate", [&] { return alternate(*settings, count); }},
        {"forge", [&] { return forge(*settings, argument); }},
        {"say-much", [&] { return sayMuch(*settings, count); }},
    };
    const auto way = ways.find(argv[1]);
    return way == ways.end() ? kFailed : way->second();
}
