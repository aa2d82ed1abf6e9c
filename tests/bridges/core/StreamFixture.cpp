#include "bridges/core/StreamFixture.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace bridgetests {

using tq::bridges::NativeFormat;
using tq::bridges::NativeSample;
using tq::bridges::NativeStream;
using tqtest::Encoding;
using tqtest::Sound;
using tqtest::SoundFormat;

namespace {

std::string said(const std::vector<std::pair<std::string, tq_stream>>& reports) {
    std::string all;
    for (const auto& [name, report] : reports) {
        all += name + ": " + tq_stream_fate_text(report.fate) +
               (report.is_closed != 0 ? " (closed)" : "") + "; ";
    }
    return all;
}

}  // namespace

NativeFormat nativeFormat(const SoundFormat& format) {
    constexpr std::array all{NativeSample::kU8, NativeSample::kS16, NativeSample::kS24In3,
                             NativeSample::kS32, NativeSample::kF32};
    return {all.at(static_cast<std::size_t>(format.encoding)),
            static_cast<unsigned>(format.channels), static_cast<double>(format.rate)};
}

MadeUpPcm::MadeUpPcm(const SoundFormat& format, const std::string& name)
    : format_(format), passed_{format, {}} {
    open(name);
}

void MadeUpPcm::open(const std::string& name) {
    NativeStream::open(this, nativeFormat(format_), "madeup", name);
}

void MadeUpPcm::close() {
    NativeStream::close(this);
}

void MadeUpPcm::write(const Sound& sound, std::size_t taken, Memory memory) {
    const NativeStream::Use stream(this);
    std::string own = sound.bytes;
    const void* const passed =
        stream ? stream->prepare(own.data(), sound.frames(), memory) : own.data();
    passed_.bytes.append(static_cast<const char*>(passed), taken * format_.bytesPerFrame());
    if (memory == Memory::kConstant) {
        EXPECT_EQ(own, sound.bytes) << "the program's own memory was changed";
    } else {
        EXPECT_EQ(passed, own.data()) << "another pointer than the program's";
    }
    if (stream) {
        stream->accepted(taken);
    }
}

void NativeStreams::SetUp() {
    CapturePath::SetUp();
    tq_listener all{};
    all.size = sizeof all;
    all.context = this;
    all.on_mix = hear;
    all.on_track = hear;
    all.on_stream = learn;
    ASSERT_EQ(tq_capture_listen(&all, &listening_), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
}

void NativeStreams::TearDown() {
    duckingEnds();
    EXPECT_EQ(tq_capture_stop(listening_), TQ_OK);
    EXPECT_EQ(tq_capture_settle(), TQ_OK);
    CapturePath::TearDown();
}

void NativeStreams::hear(void* fixture, const tq_block* block) {
    auto& self = *static_cast<NativeStreams*>(fixture);
    const std::scoped_lock guard(self.lock_);
    HeardTrack& track = self.tracks_[block->name];
    if (std::memcmp(&track.format, &block->format, sizeof track.format) != 0) {
        // The end of a stream that had the same name.
        track.bytes.clear();
    }
    track.format = block->format;
    const tq_buffer& buffer = block->buffers[0];
    if (buffer.data == nullptr) {
        track.bytes.append(buffer.bytes, '\0');
    } else {
        track.bytes.append(static_cast<const char*>(buffer.data), buffer.bytes);
    }
}

void NativeStreams::learn(void* fixture, const tq_stream* stream) {
    auto& self = *static_cast<NativeStreams*>(fixture);
    const std::scoped_lock guard(self.lock_);
    self.reports_.emplace_back(stream->name, *stream);
}

std::vector<tq_stream> NativeStreams::reports(const std::string& name) const {
    const std::scoped_lock guard(lock_);
    std::vector<tq_stream> found;
    for (const auto& [of, report] : reports_) {
        if (of == name) {
            found.push_back(report);
        }
    }
    return found;
}

void NativeStreams::awaitReport(const std::string& name, tq_stream_fate fate, bool isClosed) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < end) {
        const auto all = reports(name);
        if (!all.empty() && all.back().fate == fate && (all.back().is_closed != 0) == isClosed) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error(name + " is not " + tq_stream_fate_text(fate) + "; said were " +
                             said(reports_));
}

void NativeStreams::awaitGoingOn(const std::string& name) const {
    for (int i = 0; i < 2000; ++i) {
        const auto all = reports(name);
        if (!all.empty() && all.back().fate == TQ_STREAM_RECORDED && all.back().is_paused == 0) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error(name + " does not go on; said were " + said(reports_));
}

std::size_t NativeStreams::countReports(const std::string& ending, bool areClosed) const {
    const std::scoped_lock guard(lock_);
    return static_cast<std::size_t>(
        std::count_if(reports_.begin(), reports_.end(), [&](const auto& report) {
            return report.first.ends_with(ending) && (report.second.is_closed != 0) == areClosed;
        }));
}

void NativeStreams::awaitReports(const std::string& ending, bool areClosed,
                                 std::size_t count) const {
    for (int i = 0; i < 2000; ++i) {
        if (countReports(ending, areClosed) >= count) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error("streams called" + ending + " neither begin nor end");
}

void NativeStreams::playOut(const std::string& name) {
    for (int i = 0; i < 5000; ++i) {
        const auto all = reports(name);
        if (!all.empty() && all.back().is_closed != 0) {
            return;
        }
        pump();
        // The stream's end is seen by a thread that looks every 50 ms.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error(name + " does not end");
}

std::string NativeStreams::playing() const {
    const std::scoped_lock guard(lock_);
    std::map<std::string, bool> isOpen;
    for (const auto& [name, report] : reports_) {
        // The others have nothing to play and are never closed.
        const bool canPlay =
            report.fate == TQ_STREAM_RECORDED || report.fate == TQ_STREAM_NO_UNIT_FREE;
        isOpen[name] = canPlay && report.is_closed == 0;
    }
    std::string names;
    for (const auto& [name, is] : isOpen) {
        names += is ? name + "; " : "";
    }
    return names;
}

void NativeStreams::playOutAll(const std::string& api) {
    // A stream that cannot be served is named at once, and with the first number that is free.
    const std::string wanted = api + "-1 what is free";
    for (int i = 0; i < 5000; ++i) {
        const std::size_t before = reports(wanted).size();
        NativeStream::open(this, {}, api, "what is free");
        if (playing().empty() && reports(wanted).size() != before) {
            return;
        }
        pump();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error("streams of " + api + " do not end: " + playing());
}

Sound NativeStreams::track(const std::string& name, const SoundFormat& format) const {
    const std::scoped_lock guard(lock_);
    const auto found = tracks_.find(name);
    return {format, found == tracks_.end() ? std::string() : found->second.bytes};
}

Sound NativeStreams::mix() const {
    return track("mix", {.rate = 44100});
}

void NativeStreams::forget() {
    const std::scoped_lock guard(lock_);
    tracks_.clear();
    reports_.clear();
}

void NativeStreams::duckingBegins(float attackSeconds) {
    tq_ducking ducking{};
    ducking.size = sizeof ducking;
    ASSERT_EQ(tq_volume_open(&volume_), TQ_OK);
    ASSERT_EQ(tq_ducking_defaults(&ducking), TQ_OK);
    ducking.attack_seconds = attackSeconds;
    ASSERT_EQ(tq_volume_set_ducking(volume_, &ducking), TQ_OK);
    duckingLevel(0);
}

void NativeStreams::duckingLevel(float level) {
    ASSERT_EQ(tq_volume_set_ducking_level(volume_, level), TQ_OK);
}

void NativeStreams::duckingEnds() {
    if (volume_ != nullptr) {
        EXPECT_EQ(tq_volume_close(volume_), TQ_OK);
        volume_ = nullptr;
    }
}

}  // namespace bridgetests
