#include <spa/param/audio/format-utils.h>
#include <spa/param/audio/raw-utils.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <ostream>

#include "bridges/core/NativeApi.h"
#include "bridges/core/StreamFixture.h"
#include "bridges/pipewire/FakePipeWire.h"
#include "support/sound/Comparison.h"

// Calls of a program's pw_stream into a made-up libpipewire, with the whole library behind them.

namespace bridgetests {
namespace {

using tqtest::differences;
using tqtest::largestDifference;
using tqtest::markedNoise;
using tqtest::Sound;

/// A format that has been settled.
class Format {
  public:
    explicit Format(spa_audio_format format, std::uint32_t rate = 48000,
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
std::string sampleAs(spa_audio_format format, double value) {
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

bool isPlanar(spa_audio_format format) {
    return format >= SPA_AUDIO_FORMAT_START_Planar;
}

/// The sound as a stream of that format has it, by plane.
std::vector<std::string> planesOf(const Sound& sound, spa_audio_format format) {
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
        const Format settled(format);
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

class StreamFormats : public StreamCalls, public testing::WithParamInterface<spa_audio_format> {
  protected:
    [[nodiscard]] Sound recordedAsItIs() const {
        const std::size_t bytes = sampleAs(GetParam(), 0).size();
        const bool isFloat =
            GetParam() == SPA_AUDIO_FORMAT_F32 || GetParam() == SPA_AUDIO_FORMAT_F32P;
        return recorded(bytes == 4 && !isFloat ? tqtest::Encoding::S32 : tqtest::Encoding::S16);
    }
};

TEST_P(StreamFormats, WhatIsQueuedIsPassedOnAsItIsAndOnTheTrack) {
    settle(GetParam());
    queueNoise();
    const auto planes = planesOf(noise_, GetParam());
    for (std::size_t i = 0; i < planes.size(); ++i) {
        EXPECT_TRUE(stream_->taken[i] == planes[i]) << i;
    }
    end();
    EXPECT_LE(largestDifference(noise_, recordedAsItIs()), kRounding) << recordedAsItIs().frames();
}

TEST_P(StreamFormats, UnderDuckingTheBlockIsChangedInPlaceFromTheFirstOn) {
    duckingBegins(kEndlessAttack);
    settle(GetParam());
    queueNoise();
    end();
    // The track is what is passed on, which is ducked.
    const Sound all = recordedAsItIs();
    ASSERT_EQ(all.frames(), noise_.frames());
    EXPECT_LE(largestDifference(noise_, all, 0.1), kRounding);
    for (std::size_t frame = 0; frame < noise_.frames(); frame += 97) {
        const std::string right = sampleAs(GetParam(), noise_.value(frame, 1) * 0.1);
        const std::size_t planes = isPlanar(GetParam()) ? 2 : 1;
        const std::size_t at = planes == 2 ? frame : 2 * frame + 1;
        const std::string got = stream_->taken[planes - 1].substr(at * right.size(), right.size());
        // Their highest bytes: the lowest ones are rounding.
        EXPECT_NEAR(got[right.size() - 1], right[right.size() - 1], 1) << frame;
    }
}

INSTANTIATE_TEST_SUITE_P(All, StreamFormats,
                         testing::Values(SPA_AUDIO_FORMAT_S16, SPA_AUDIO_FORMAT_S24_32,
                                         SPA_AUDIO_FORMAT_S32, SPA_AUDIO_FORMAT_F32,
                                         SPA_AUDIO_FORMAT_S16P, SPA_AUDIO_FORMAT_S24_32P,
                                         SPA_AUDIO_FORMAT_S32P, SPA_AUDIO_FORMAT_F32P));

TEST_F(StreamCalls, ABlockIsReadWhereItsChunkLies) {
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_.part(0, 12000), 1236), 0);
    EXPECT_EQ(queue(noise_.part(12000, 12000), 64), 0);
    end();
    expectWhole();
}

TEST_F(StreamCalls, OfAChunkThatIsLongerThanItsMemoryThatIsReadWhichIsThere) {
    settle(SPA_AUDIO_FORMAT_S16);
    stream_->buffer.datas[0].maxsize = static_cast<std::uint32_t>(4 * noise_.frames());
    EXPECT_EQ(queue(noise_), 0);
    stream_->buffer.chunks[0].offset = 0xFFFFFFF0;
    EXPECT_EQ(pw_stream_queue_buffer(stream_.get(), &stream_->buffer.handle), 0);
    stream_->buffer.chunks[0] = {4 * 23000, 0xFFFFFFF0, 0, 0};
    EXPECT_EQ(pw_stream_queue_buffer(stream_.get(), &stream_->buffer.handle), 0);
    end();
    const Sound all = recorded();
    ASSERT_EQ(all.frames(), 25000U);
    EXPECT_EQ(differences(noise_, all.part(0, 24000)), kNothing);
    EXPECT_EQ(differences(noise_.part(23000, 1000), all.part(24000, 1000)), kNothing);
}

TEST_F(StreamCalls, APieceOfAFrameIsNone) {
    settle(SPA_AUDIO_FORMAT_S16);
    for (std::size_t at = 0; at < noise_.frames(); at += 6000) {
        EXPECT_EQ(queue(noise_.part(at, 6000)), 0);
        // The next 3 bytes have no fourth.
        stream_->buffer.chunks[0].size = 3;
        EXPECT_EQ(pw_stream_queue_buffer(stream_.get(), &stream_->buffer.handle), 0);
    }
    end();
    expectWhole();
}

TEST_F(StreamCalls, ABlockThatTheLibraryRefusesIsNotOnTheTrack) {
    settle(SPA_AUDIO_FORMAT_F32P);
    EXPECT_EQ(queue(noise_.part(0, 12000)), 0);
    stream_->answer = -EINVAL;
    errno = 0;
    EXPECT_EQ(queue(noise_.part(0, 12000)), -EINVAL);
    EXPECT_EQ(errno, ENXIO) << "the library's";
    stream_->answer = 0;
    EXPECT_EQ(queue(noise_.part(12000, 12000)), 0);
    end();
    expectWhole();
}

TEST_F(StreamCalls, MemoryThatIsNotMappedAndPlanesThatAreMissingArePassedOn) {
    settle(SPA_AUDIO_FORMAT_F32P);
    EXPECT_EQ(queue(noise_), 0);
    stream_->buffer.datas[1].data = nullptr;
    stream_->buffer.chunks[1].size = 0;
    EXPECT_EQ(pw_stream_queue_buffer(stream_.get(), &stream_->buffer.handle), 0);
    stream_->buffer.buffer.n_datas = 1;
    EXPECT_EQ(pw_stream_queue_buffer(stream_.get(), &stream_->buffer.handle), 0);
    stream_->buffer.buffer.n_datas = 0;
    EXPECT_EQ(pw_stream_queue_buffer(stream_.get(), &stream_->buffer.handle), 0);
    end();
    expectWhole();
}

TEST_F(StreamCalls, AStreamThatIsNotActiveIsSilentUntilItIsAgain) {
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_), 0);
    EXPECT_EQ(pw_stream_set_active(stream_.get(), false), 0);
    awaitReport(kName);
    pump(40);
    EXPECT_EQ(recorded().frames(), 0U);
    EXPECT_EQ(pw_stream_set_active(stream_.get(), true), 0);
    end();
    expectWhole();
}

TEST_F(StreamCalls, WhatIsFlushedIsNotOnTheTrackAndWhatIsDrainedIs) {
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_), 0);
    awaitReport(kName);
    pump(20);
    EXPECT_EQ(pw_stream_flush(stream_.get(), false), 0);
    pump(20);
    const std::size_t before = recorded().frames();
    EXPECT_LE(before, 20 * kSlice);
    const Sound more = markedNoise({}, 1000, 2);
    EXPECT_EQ(queue(more), 0);
    EXPECT_EQ(pw_stream_flush(stream_.get(), true), 0);
    pump(10);
    const Sound all = recorded();
    ASSERT_GT(all.frames(), before + more.frames()) << "less than a margin, but it is drained";
    EXPECT_EQ(differences(more, all.part(all.frames() - more.frames(), more.frames())), kNothing);
    EXPECT_EQ(stream_->flushes, (std::vector<bool>{false, true}));
}

TEST_F(StreamCalls, WhatTheGraphHasTakenIsHeardInAPauseAndBehindAFlush) {
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_), 0);
    awaitReport(kName);
    pump(20);
    stream_->queued = 0;
    EXPECT_EQ(pw_stream_set_active(stream_.get(), false), 0);
    EXPECT_EQ(pw_stream_flush(stream_.get(), false), 0);
    pump(60);
    EXPECT_EQ(differences(noise_, recorded()), kNothing);
    EXPECT_EQ(pw_stream_set_active(stream_.get(), true), 0);
    EXPECT_EQ(queue(noise_), 0);
    end();
    const Sound all = recorded();
    EXPECT_EQ(differences(noise_, all.part(all.frames() - 24000, 24000)), kNothing);
}

TEST_F(StreamCalls, AnotherFormatIsAnotherStreamAndTheSameFormatIsNot) {
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_.part(0, 12000)), 0);
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_.part(12000, 12000)), 0);
    awaitReport(kName);
    pump(60);
    settle(SPA_AUDIO_FORMAT_F32P);
    EXPECT_EQ(queue(noise_), 0);
    playOut(kName);
    const Sound first = recorded();
    EXPECT_EQ(differences(noise_, first), kNothing);
    pump(60);
    EXPECT_LE(largestDifference(noise_, track("pipewire-2 game").trimmed()), kRounding);
}

TEST_F(StreamCalls, AStreamWithoutAFormatIsNoneUntilItHasOneAgain) {
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_.part(0, 12000)), 0);
    awaitReport(kName);
    pump(40);
    fake_pw_format(stream_.get(), nullptr);
    EXPECT_EQ(queue(noise_), 0);
    playOut(kName);
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_.part(12000, 12000)), 0);
    end();
    const Sound all = track(kName).trimmed();
    EXPECT_EQ(differences(noise_.part(0, 12000), all.part(0, 12000)), kNothing);
    EXPECT_EQ(differences(noise_.part(12000, 12000), all.part(all.frames() - 12000, 12000)),
              kNothing);
}

TEST_F(StreamCalls, ItMayBeDisconnectedAndDestroyedInsideProcess) {
    settle(SPA_AUDIO_FORMAT_S16);
    std::function<void()> process = [&] {
        EXPECT_EQ(queue(noise_), 0);
        EXPECT_EQ(pw_stream_disconnect(stream_.get()), 0);
        EXPECT_EQ(queue(noise_), 0) << "goes through, nobody plays it";
        pw_stream_destroy(stream_.get());
    };
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.process = [](void* data) { (*static_cast<std::function<void()>*>(data))(); };
    spa_hook hook{};
    pw_stream_add_listener(stream_.get(), &hook, &events, &process);
    fake_pw_process(stream_.get());
    EXPECT_TRUE(stream_->isDestroyed);
    awaitReport(kName);
    playOut(kName);
    expectWhole();
}

TEST_F(StreamCalls, AStreamThatIsConnectedAgainIsRecordedAgain) {
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_), 0);
    awaitReport(kName);
    pump(60);
    EXPECT_EQ(pw_stream_disconnect(stream_.get()), 0);
    playOut(kName);
    forget();
    ASSERT_EQ(connect(PW_DIRECTION_OUTPUT), 0);
    EXPECT_EQ(stream_->listeners.size(), 1U) << "ours, once";
    settle(SPA_AUDIO_FORMAT_S16);
    EXPECT_EQ(queue(noise_), 0);
    end();
    expectWhole();
}

TEST_F(StreamCalls, RecordingsAndStreamsThatAreNotKnownGoStraightThrough) {
    const std::unique_ptr<pw_stream> other(pw_stream_new(nullptr, "microphone", nullptr));
    ASSERT_EQ(pw_stream_connect(other.get(), PW_DIRECTION_INPUT, PW_ID_ANY, PW_STREAM_FLAG_NONE,
                                nullptr, 0),
              0);
    EXPECT_TRUE(other->listeners.empty());
    other->answer = -4;
    EXPECT_EQ(pw_stream_queue_buffer(other.get(), &other->buffer.handle), -4);
    EXPECT_EQ(pw_stream_set_active(other.get(), false), -4);
    EXPECT_EQ(pw_stream_flush(other.get(), true), -4);
    EXPECT_EQ(pw_stream_disconnect(other.get()), -4);
    pw_stream_destroy(other.get());
    EXPECT_TRUE(other->isDestroyed);
    EXPECT_TRUE(tracks().empty());
}

TEST_F(StreamCalls, CodedSoundIsReportedAndPassedOn) {
    alignas(8) std::array<std::byte, 256> memory{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), 256);
    const auto* const format = static_cast<const spa_pod*>(
        spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_Format,
                                   SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_audio),
                                   SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_iec958)));
    fake_pw_format(stream_.get(), format);
    awaitReport(kName, TQ_STREAM_NOT_PCM);
    format_ = SPA_AUDIO_FORMAT_S16;
    EXPECT_EQ(queue(noise_), 0);
    EXPECT_TRUE(stream_->taken[0] == noise_.bytes);
}

TEST_F(StreamCalls, AServerThatIsNotReachedIsNamedWithTheReason) {
    EXPECT_EQ(pw_context_connect(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(errno, EHOSTDOWN);
    awaitReport("pipewire server (Host is down)", TQ_STREAM_NOT_OPENED, true);
}

}  // namespace
}  // namespace bridgetests
