#include "bridges/core/PortGroup.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <span>
#include <thread>

#include "bridges/core/GuardScope.h"
#include "bridges/core/Planar.h"

namespace tq::bridges {
namespace {

/// Far above the longest block of any server.
constexpr std::size_t kMostFrames = 65536;
/// Of a process thread that is inside: it copies one block. In a forked child there is none.
constexpr std::chrono::seconds kLongestWait{1};

}  // namespace

PortGroup::~PortGroup() {
    stop();
}

OutputPort& PortGroup::add(const void* handle, tq_speaker speaker) {
    ports_.push_back(std::make_unique<OutputPort>(handle, speaker));
    OutputPort& port = *ports_.back();
    try {
        arrange();
    } catch (...) {
        ports_.pop_back();
        throw;
    }
    return port;
}

void PortGroup::remove(const OutputPort& port) {
    const auto found = std::find_if(ports_.begin(), ports_.end(),
                                    [&](const auto& each) { return each.get() == &port; });
    if (found == ports_.end()) {
        return;
    }
    // It lives until nobody reads the layout that has it.
    const std::unique_ptr<OutputPort> gone = std::move(*found);
    ports_.erase(found);
    try {
        arrange();
    } catch (...) {
        // Out of memory: the others are not recorded any more.
        replace(nullptr);
    }
}

void PortGroup::start(double sampleRate, std::string name) {
    name_ = std::move(name);
    sampleRate_ = sampleRate;
    arrange();
}

void PortGroup::stop() {
    sampleRate_ = 0;
    replace(nullptr);
}

/// Makes the ports of the moment the stream.
void PortGroup::arrange() {
    if (sampleRate_ == 0) {
        return;
    }
    if (ports_.empty()) {
        replace(nullptr);
        return;
    }
    auto layout = std::make_unique<Layout>();
    for (const auto& port : ports_) {
        layout->ports.push_back(port.get());
    }
    const Speakers speakers = speakersAt(std::span<OutputPort* const>(layout->ports),
                                         [](const OutputPort* port) { return port->speaker; });
    NativeStream::open(
        layout.get(),
        {NativeSample::kF32, static_cast<unsigned>(ports_.size()), sampleRate_, speakers}, api_,
        name_);
    if (ports_.size() > kMostPorts) {
        // The reason has been told.
        replace(nullptr);
        return;
    }
    layout->patience = static_cast<std::size_t>(sampleRate_);
    layout->interleaved = ReservedMemory(kMostFrames * ports_.size() * sizeof(float));
    replace(std::move(layout));
}

void PortGroup::replace(std::unique_ptr<Layout> layout) noexcept {
    using Clock = std::chrono::steady_clock;
    current_.store(layout.get());
    const auto end = Clock::now() + kLongestWait;
    while (isInside_.load() && Clock::now() < end) {
        std::this_thread::yield();
    }
    if (layout_ != nullptr) {
        NativeStream::close(layout_.get());
        layout_->next = std::move(retired_);
        retired_ = std::move(layout_);
    }
    if (!isInside_.load()) {
        retired_.reset();
    }
    layout_ = std::move(layout);
}

void PortGroup::played(std::size_t frames, Fetch fetch) noexcept {
    isInside_.store(true);
    if (Layout* const layout = current_.load()) {
        Planes planes{};
        for (std::size_t i = 0; i < layout->ports.size(); ++i) {
            OutputPort& port = *layout->ports[i];
            planes[i] = port.fetched.exchange(nullptr, std::memory_order_acquire);
            if (planes[i] == nullptr && fetch != nullptr) {
                planes[i] = fetch(port.handle, frames);
            }
        }
        record(*layout, planes, frames);
    }
    isInside_.store(false, std::memory_order_release);
}

/// Whether the stream has not begun yet: a client whose ports come one after the other while it
/// plays would have a track of silence for each of them. After a second silence is a sound as well.
bool PortGroup::isToWait(Layout& layout, std::size_t frames) noexcept {
    const auto* const samples = reinterpret_cast<const std::uint32_t*>(layout.interleaved.data());
    layout.silentFrames += frames;
    layout.hasBegun = layout.hasBegun || layout.silentFrames > layout.patience ||
                      std::any_of(samples, samples + frames * layout.ports.size(),
                                  [](auto sample) { return sample != 0; });
    return !layout.hasBegun;
}

void PortGroup::record(Layout& layout, const Planes& planes, std::size_t frames) noexcept {
    const NativeStream::Use stream(&layout);
    if (!stream || frames > kMostFrames || layout.interleaved.data() == nullptr) {
        return;
    }
    const GuardScope guard;
    std::array<const void*, kMostPorts> from{};
    std::array<void*, kMostPorts> to{};
    std::copy(planes.begin(), planes.end(), from.begin());
    std::copy(planes.begin(), planes.end(), to.begin());
    const std::size_t count = layout.ports.size();
    interleave({from.data(), count}, sizeof(float), frames, layout.interleaved.data());
    if (!layout.hasBegun && isToWait(layout, frames)) {
        return;
    }
    const void* const passed =
        stream->prepare(layout.interleaved.data(), frames, NativeStream::Memory::kConstant);
    if (passed != layout.interleaved.data()) {
        deinterleave(passed, sizeof(float), frames, {to.data(), count});
    }
    stream->accepted(frames);
}

}  // namespace tq::bridges
