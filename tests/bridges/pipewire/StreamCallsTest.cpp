#include <cerrno>
#include <functional>

#include "bridges/pipewire/StreamFixture.h"

// Calls of a program's pw_stream into a made-up libpipewire, with the whole library behind them.

namespace bridgetests {
namespace {

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
    pump(20);
    const Sound all = recorded();
    ASSERT_GT(all.frames(), before + more.frames());
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
