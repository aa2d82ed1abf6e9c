#pragma once

#include <spa/param/audio/format-utils.h>
#include <spa/param/audio/raw-utils.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bridges/core/NativeApi.h"
#include "bridges/core/StreamFixture.h"
#include "bridges/pipewire/FakePipeWire.h"
#include "support/sound/Comparison.h"

namespace bridgetests {

using tqtest::differences;
using tqtest::largestDifference;
using tqtest::markedNoise;
using tqtest::Sound;

/// A format that has been settled.
class SettledFormat {
  public:
    explicit SettledFormat(spa_audio_format format, std::uint32_t rate = 48000,
                           std::uint32_t channels = 2) {
        spa_audio_info_raw raw{};
        raw.format = format;
        raw.rate = rate;
        raw.channels = channels;
        raw.flags = SPA_AUDIO_FLAG_UNPOSITIONED;
        spa_pod_builder builder{};
        spa_pod_builder_init(&builder, memory_.data(), kBytes);
        pod_ = spa_format_audio_raw_build(&builder, SPA_PARAM_Format, &raw);
    }
    [[nodiscard]] const spa_pod* pod() const { return pod_; }

  private:
    static constexpr std::uint32_t kBytes = 1024;
    alignas(8) std::array<std::byte, kBytes> memory_{};
    const spa_pod* pod_ = nullptr;
};

/// A sample of the noise as such a stream has it.
inline std::string sampleAs(spa_audio_format format, double value) {
    const auto bytes = [](auto number) {
        return std::string(reinterpret_cast<const char*>(&number), sizeof number);
    };
    switch (format) {
        case SPA_AUDIO_FORMAT_S16:
        case SPA_AUDIO_FORMAT_S16P:
            return bytes(static_cast<std::int16_t>(value * 32768));
        case SPA_AUDIO_FORMAT_S24_32:
        case SPA_AUDIO_FORMAT_S24_32P:
            return bytes(static_cast<std::int32_t>(value * 8388608));
        case SPA_AUDIO_FORMAT_S32:
        case SPA_AUDIO_FORMAT_S32P:
            return bytes(static_cast<std::int32_t>(value * 2147483648));
        default:
            return bytes(static_cast<float>(value));
    }
}

inline bool isPlanar(spa_audio_format format) {
    return format >= SPA_AUDIO_FORMAT_START_Planar;
}

/// The sound as a stream of that format has it, by plane.
inline std::vector<std::string> planesOf(const Sound& sound, spa_audio_format format) {
    std::vector<std::string> planes(isPlanar(format) ? 2 : 1);
    for (std::size_t i = 0; i < 2 * sound.frames(); ++i) {
        planes[i % planes.size()] += sampleAs(format, sound.value(i / 2, i % 2));
    }
    return planes;
}

/// A program with one stream, called after its node.
class StreamCalls : public NativeStreams {
  protected:
    void SetUp() override {
        NativeStreams::SetUp();
        static const auto rows = tq::bridges::pipeWireApi().rebindings;
        ASSERT_EQ(tqhook_rebind(rows.data(), rows.size(), nullptr), 0);
        const spa_dict_item node{PW_KEY_NODE_NAME, "game"};
        pw_properties properties{{0, 1, &node}, 0};
        stream_.reset(pw_stream_new(nullptr, "music", &properties));
        ASSERT_EQ(connect(PW_DIRECTION_OUTPUT), 0);
    }
    void TearDown() override {
        stream_->answer = 0;
        if (!stream_->isDestroyed) {
            pw_stream_destroy(stream_.get());
        }
        for (const char* const name : {kName, "pipewire-2 game"}) {
            // What is left would keep its name and its unit from the next test.
            if (const auto all = reports(name);
                !all.empty() && all.back().fate == TQ_STREAM_RECORDED) {
                playOut(name);
            }
        }
        NativeStreams::TearDown();
    }

    static constexpr const char* kName = "pipewire-1 game";

    int connect(pw_direction direction) {
        return pw_stream_connect(stream_.get(), direction, PW_ID_ANY, PW_STREAM_FLAG_NONE, nullptr,
                                 0);
    }
    void settle(spa_audio_format format) {
        format_ = format;
        const SettledFormat settled(format);
        stream_->buffer.buffer.n_datas = isPlanar(format) ? 2 : 1;
        fake_pw_format(stream_.get(), settled.pod());
    }
    /// The sound as one block, which lies `offset` bytes behind the memory's beginning.
    int queue(const Sound& sound, std::uint32_t offset = 0) {
        pw_buffer* const buffer = pw_stream_dequeue_buffer(stream_.get());
        const auto planes = planesOf(sound, format_);
        for (std::size_t i = 0; i < planes.size(); ++i) {
            std::memcpy(stream_->buffer.memory[i].data() + offset, planes[i].data(),
                        planes[i].size());
            stream_->buffer.chunks[i] = {offset, static_cast<std::uint32_t>(planes[i].size()), 0,
                                         0};
        }
        return pw_stream_queue_buffer(stream_.get(), buffer);
    }
    /// All of the noise, in blocks of many sizes.
    void queueNoise() {
        std::size_t at = 0;
        for (const std::size_t frames : {1U, 480U, 0U, 7U, 8192U, 1023U}) {
            EXPECT_EQ(queue(noise_.part(at, frames)), 0);
            at += frames;
        }
        EXPECT_EQ(queue(noise_.part(at, noise_.frames() - at)), 0);
    }
    void end() {
        awaitReport(kName);
        pump(60);
        pw_stream_destroy(stream_.get());
        playOut(kName);
    }
    [[nodiscard]] Sound recorded(tqtest::Encoding encoding = tqtest::Encoding::S16) const {
        return track(kName, {.encoding = encoding}).trimmed();
    }
    void expectWhole() const {
        EXPECT_LE(largestDifference(noise_, recorded()), kRounding) << recorded().frames();
    }

    const Sound noise_ = markedNoise({}, 24000);
    spa_audio_format format_ = SPA_AUDIO_FORMAT_UNKNOWN;
    std::unique_ptr<pw_stream> stream_;
};

}  // namespace bridgetests
