#include "output/live/PulseSource.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstring>
#include <utility>

namespace tqrecorder {
namespace {

constexpr int kPipeBytes = 1 << 18;

}  // namespace

std::string propertyValue(const std::string& text) {
    // The list of properties is in quotes itself, and marks are taken away once, behind those.
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '"' || c == '\'' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + "'";
}

PulseSource::PulseSource(const LiveHeader& header, std::string pipe, std::string name,
                         std::string description)
    : channels_(header.channels),
      pipeChannels_(std::bit_ceil(header.channels)),
      sampleRate_(header.sampleRate),
      pipePath_(std::move(pipe)),
      name_(std::move(name)),
      description_(std::move(description)),
      pace_(header.sampleRate, std::chrono::steady_clock::now()) {
}

std::string PulseSource::moduleArguments() const {
    return "file=\"" + pipePath_ + "\" source_name=" + name_ +
           " format=float32le rate=" + std::to_string(sampleRate_) +
           " channels=" + std::to_string(pipeChannels_) +
           " source_properties=\"device.description=" + propertyValue(description_) + "\"";
}

bool PulseSource::open() {
    // For reading as well: what is old is taken out again.
    pipe_ = tqcommon::Descriptor(::open(pipePath_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    // Several blocks of many channels at once are more than the usual size. It adds no delay: the
    // server reads as soon as there is something.
    (void)fcntl(pipe_.get(), F_SETPIPE_SZ, kPipeBytes);
    return static_cast<bool>(pipe_);
}

void PulseSource::setRead(bool isRead) {
    if (std::exchange(isRead_, isRead) != isRead) {
        empty();
        pace_ = SilencePace(sampleRate_, std::chrono::steady_clock::now());
    }
}

void PulseSource::write(std::span<const std::byte> sound, SilencePace::Time now) {
    if (!isRead_) {
        return;
    }
    const std::size_t from = channels_ * sizeof(float);
    const std::size_t to = pipeChannels_ * sizeof(float);
    const std::size_t frames = sound.size() / from;
    pace_.sound(static_cast<std::uint32_t>(frames), now);
    if (from == to) {
        put(sound.first(frames * from));
        return;
    }
    wide_.assign(frames * to, std::byte{0});
    for (std::size_t frame = 0; frame < frames; ++frame) {
        std::memcpy(wide_.data() + frame * to, sound.data() + frame * from, from);
    }
    put(wide_);
}

void PulseSource::fill(SilencePace::Time now) {
    if (isRead_) {
        wide_.assign(pace_.due(now) * pipeChannels_ * sizeof(float), std::byte{0});
        put(wide_);
    }
}

void PulseSource::put(std::span<const std::byte> frames) {
    while (!frames.empty()) {
        // So many are written whole or not at all.
        const std::span<const std::byte> piece =
            frames.first(std::min<std::size_t>(frames.size(), PIPE_BUF));
        if (::write(pipe_.get(), piece.data(), piece.size()) < 0) {
            // The server stands still: what waits for it is old when it goes on.
            empty();
        }
        frames = frames.subspan(piece.size());
    }
}

void PulseSource::empty() {
    std::array<std::byte, PIPE_BUF> old{};
    while (::read(pipe_.get(), old.data(), old.size()) > 0) {
    }
}

}  // namespace tqrecorder
