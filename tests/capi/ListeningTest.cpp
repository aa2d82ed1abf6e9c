#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "CapturePathFixture.h"
#include "tq_capture.h"

// Listening through the C interface, on the device that the test pumps.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What came, copied.
struct Heard {
    struct Block {
        tq_block block;
        std::string name;
        std::vector<std::int16_t> samples;  ///< of the first buffer
        std::vector<tq_buffer> buffers;
    };
    std::vector<Block> mix;
    std::vector<Block> tracks;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> events;
    std::vector<std::string> lines;
    std::vector<std::pair<std::string, tq_unit_reason>> units;
    tq_event lastEvent{};
    std::mutex mutex;  ///< events and lines come on several threads

    static Block copyOf(const tq_block& block) {
        Block copy{block, block.name, {}, {block.buffers, block.buffers + block.buffer_count}};
        copy.samples.resize(block.buffers[0].bytes / 2);
        std::memcpy(copy.samples.data(), block.buffers[0].data, block.buffers[0].bytes);
        return copy;
    }
};

tq_listener listenerOf(Heard& heard) {
    tq_listener listener{};
    listener.size = sizeof listener;
    listener.context = &heard;
    return listener;
}

void hearMix(void* heard, const tq_block* block) {
    static_cast<Heard*>(heard)->mix.push_back(Heard::copyOf(*block));
}
void hearTrack(void* heard, const tq_block* block) {
    static_cast<Heard*>(heard)->tracks.push_back(Heard::copyOf(*block));
}
void hearEvent(void* context, const tq_event* event) {
    auto& heard = *static_cast<Heard*>(context);
    const std::scoped_lock guard(heard.mutex);
    heard.events.emplace_back(event->category, event->code);
    heard.lastEvent = *event;
}
void hearLine(void* context, const tq_log_line* line) {
    auto& heard = *static_cast<Heard*>(context);
    const std::scoped_lock guard(heard.mutex);
    heard.lines.emplace_back(line->message);
}
void hearUnit(void* context, const tq_unit* unit) {
    static_cast<Heard*>(context)->units.emplace_back(unit->name, unit->reason);
}

struct Listening : CapturePath {
    Heard heard;
    tq_listening* handle = nullptr;

    void listen(const tq_listener& wanted) {
        ASSERT_EQ(tq_capture_listen(&wanted, &handle), TQ_OK);
        ASSERT_EQ(tq_capture_settle(), TQ_OK);
    }
    void TearDown() override {
        if (handle != nullptr) {
            tq_capture_stop(handle);
            tq_capture_settle();
        }
        CapturePath::TearDown();
    }
};

TEST_F(Listening, BlocksOfTheMixSayWhatTheyAre) {
    HostUnit host;
    host.play();
    tq_listener wanted = listenerOf(heard);
    wanted.on_mix = hearMix;
    listen(wanted);
    pump(4);
    ASSERT_THAT(heard.mix, testing::SizeIs(4));
    const tq_block& block = heard.mix.back().block;
    EXPECT_EQ(block.size, sizeof(tq_block));
    EXPECT_EQ(block.source, TQ_BLOCK_MIX);
    EXPECT_EQ(heard.mix.back().name, "mix");
    EXPECT_EQ(block.track, 0U);
    EXPECT_EQ(block.unit, 0U);
    EXPECT_EQ(block.unit_kind, TQ_UNIT_NONE);
    EXPECT_EQ(block.frames, 441U);
    EXPECT_EQ(block.format.sample_rate, 44100.0);
    EXPECT_EQ(block.format.channels, 2U);
    EXPECT_EQ(block.format.bits_per_channel, 16U);
    EXPECT_EQ(block.format.is_float, 0U);
    EXPECT_EQ(block.format.is_interleaved, 1U);
    ASSERT_EQ(block.buffer_count, 1U);
    EXPECT_EQ(heard.mix.back().buffers[0].bytes, 441U * 4U);
    EXPECT_EQ(heard.mix.back().buffers[0].channels, 2U);
    EXPECT_EQ(heard.mix[1].block.host_microseconds - heard.mix[0].block.host_microseconds, 10000U);
    EXPECT_THAT(heard.tracks, IsEmpty());
}

TEST_F(Listening, AListenerOfBothTellsTheMixFromTrackOne) {
    HostUnit host;
    host.sound.format = stream_formats::int16Interleaved(44100, 2);
    host.play();
    tq_listener wanted = listenerOf(heard);
    // One function for both: the block alone says what it is.
    wanted.on_mix = hearTrack;
    wanted.on_track = hearTrack;
    listen(wanted);
    pump(4);
    std::map<tq_block_source, std::set<std::uint32_t>> tracks;
    for (const auto& one : heard.tracks) {
        tracks[one.block.source].insert(one.block.track);
    }
    EXPECT_EQ(tracks[TQ_BLOCK_MIX], std::set<std::uint32_t>{0});
    EXPECT_EQ(tracks[TQ_BLOCK_TRACK], std::set<std::uint32_t>{1});
}

TEST_F(Listening, BlocksOfATrackBearTheNameOfItsUnit) {
    HostUnit host;
    host.sound.format = stream_formats::floatPlanar(48000, 2);
    host.play();
    tq_listener wanted = listenerOf(heard);
    wanted.on_track = hearTrack;
    listen(wanted);
    pump(4);
    ASSERT_THAT(heard.tracks, testing::Not(IsEmpty()));
    const tq_block& block = heard.tracks.back().block;
    EXPECT_EQ(block.source, TQ_BLOCK_TRACK);
    EXPECT_EQ(block.track, 1U);
    EXPECT_EQ(heard.tracks.back().name, "unit-1");
    EXPECT_EQ(block.unit, 1U);
    EXPECT_EQ(block.unit_kind, TQ_UNIT_PLAIN);
    EXPECT_EQ(block.frames, kFrames);
    EXPECT_EQ(block.format.sample_rate, 48000.0);
    EXPECT_EQ(block.format.bits_per_channel, 16U) << "floats come as integers";
    EXPECT_EQ(block.format.is_float, 0U);
    EXPECT_EQ(block.format.is_interleaved, 0U);
    EXPECT_EQ(block.buffer_count, 2U);
    EXPECT_EQ(heard.tracks.back().samples.at(100), static_cast<std::int16_t>(0.25F * 32767.0F));
    EXPECT_THAT(heard.mix, IsEmpty());
}

TEST_F(Listening, BlocksOfATrackSayHowItsSamplesAreToBeRead) {
    struct Reading {
        AudioStreamBasicDescription format;
        AudioFormatFlags flags;
        std::uint32_t bigEndian;
        std::uint32_t isUnsigned;
        std::uint32_t fractionBits;
    };
    constexpr AudioFormatFlags kSigned = kAudioFormatFlagIsSignedInteger;
    const auto words = stream_formats::int16Interleaved(48000, 2);
    const auto wide = stream_formats::int32Interleaved(48000, 2);
    for (const Reading& one :
         {Reading{words, kSigned, 0, 0, 0}, Reading{words, 0, 0, 1, 0},
          Reading{words, kSigned | kAudioFormatFlagIsBigEndian, 1, 0, 0},
          Reading{wide, kSigned | 24U << kLinearPCMFormatFlagsSampleFractionShift, 0, 0, 24}}) {
        heard.tracks.clear();
        HostUnit host;
        host.sound.format = one.format;
        host.sound.format.mFormatFlags = kAudioFormatFlagIsPacked | one.flags;
        host.play();
        tq_listener wanted = listenerOf(heard);
        wanted.on_track = hearTrack;
        listen(wanted);
        pump(4);
        ASSERT_THAT(heard.tracks, testing::Not(IsEmpty()));
        const tq_block& block = heard.tracks.back().block;
        EXPECT_EQ(block.is_big_endian, one.bigEndian);
        EXPECT_EQ(block.is_unsigned, one.isUnsigned);
        EXPECT_EQ(block.fraction_bits, one.fractionBits);
        ASSERT_EQ(tq_capture_stop(handle), TQ_OK);
        ASSERT_EQ(tq_capture_settle(), TQ_OK);
        handle = nullptr;
    }
}

TEST_F(Listening, NamesOfUnitsAndGraphsStayTheirOwn) {
    HostUnit first;
    HostUnit second;
    HostGraph graph;
    second.play();
    graph.play();
    first.play();
    tq_listener wanted = listenerOf(heard);
    wanted.on_track = hearTrack;
    listen(wanted);
    pump(3);
    std::map<std::uint32_t, std::string> names;
    for (const auto& block : heard.tracks) {
        names[block.block.track] = block.name;
    }
    EXPECT_EQ(names,
              (std::map<std::uint32_t, std::string>{{1, "unit-3"}, {2, "unit-1"}, {3, "graph-2"}}));
    heard.tracks.clear();
    first.stop();
    first.start();
    pump(3);
    EXPECT_THAT(heard.tracks, Contains(testing::Field(&Heard::Block::name, "unit-3")));
}

TEST_F(Listening, EventsComeWithTheirTime) {
    tq_listener wanted = listenerOf(heard);
    wanted.on_event = hearEvent;
    listen(wanted);
    EXPECT_THAT(heard.events, Contains(std::pair<std::uint64_t, std::uint64_t>(
                                  TQ_EVENT_CAPTURE_START, TQ_EVENT_DONE)));
    EXPECT_GT(heard.lastEvent.host_microseconds, 0U);
    EXPECT_EQ(heard.lastEvent.size, sizeof(tq_event));
    EXPECT_THAT(heard.mix, IsEmpty());
}

TEST_F(Listening, LogLinesAndUnitsAloneDoNotStartCapture) {
    tq_listener wanted = listenerOf(heard);
    wanted.on_log = hearLine;
    wanted.on_unit = hearUnit;
    listen(wanted);
    EXPECT_FALSE(manager().isCapturing());
    const HostUnit host;
    EXPECT_THAT(heard.lines, Contains(HasSubstr("[mix] newAudioUnitObj, key: ")));
    EXPECT_THAT(heard.units, ElementsAre(std::pair(std::string("unit"), TQ_UNIT_NOT_STARTED)));
}

TEST_F(Listening, UnitsTellTheirLife) {
    tq_listener wanted = listenerOf(heard);
    wanted.on_unit = hearUnit;
    wanted.on_mix = hearMix;
    listen(wanted);
    HostUnit host;
    host.play();
    host.stop();
    host.uninitialize();
    EXPECT_THAT(heard.units, ElementsAre(std::pair(std::string("unit"), TQ_UNIT_NOT_STARTED),
                                         std::pair(std::string("unit-1"), TQ_UNIT_CAPTURED),
                                         std::pair(std::string("unit-1"), TQ_UNIT_NOT_STARTED),
                                         std::pair(std::string("unit-1"), TQ_UNIT_UNINITIALISED)));
}

TEST_F(Listening, NothingComesAfterTheStop) {
    HostUnit host;
    host.play();
    tq_listener wanted = listenerOf(heard);
    wanted.on_mix = hearMix;
    wanted.on_track = hearTrack;
    wanted.on_event = hearEvent;
    wanted.on_log = hearLine;
    wanted.on_unit = hearUnit;
    listen(wanted);
    pump(2);
    ASSERT_EQ(tq_capture_stop(handle), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
    EXPECT_FALSE(manager().isCapturing());
    const std::size_t lines = heard.lines.size();
    const std::size_t events = heard.events.size();
    const std::size_t blocks = heard.mix.size() + heard.tracks.size();
    heard.units.clear();
    host.stop();
    pump(2);
    EXPECT_EQ(heard.lines.size(), lines);
    EXPECT_EQ(heard.events.size(), events);
    EXPECT_EQ(heard.mix.size() + heard.tracks.size(), blocks);
    EXPECT_THAT(heard.units, IsEmpty());
    EXPECT_EQ(tq_capture_stop(handle), TQ_ERROR_HANDLE) << "it has ended";
    handle = nullptr;
}

TEST_F(Listening, OneOfTwoListenersMayLeave) {
    Heard other;
    tq_listener wanted = listenerOf(other);
    wanted.on_log = hearLine;
    wanted.on_mix = hearMix;
    tq_listening* second = nullptr;
    ASSERT_EQ(tq_capture_listen(&wanted, &second), TQ_OK);
    wanted.context = &heard;
    listen(wanted);
    ASSERT_EQ(tq_capture_stop(second), TQ_OK);
    const std::size_t gone = other.lines.size();
    pump(2);
    const HostUnit host;
    EXPECT_EQ(other.lines.size(), gone);
    EXPECT_THAT(heard.lines, Contains(HasSubstr("[mix] newAudioUnitObj, key: ")));
    EXPECT_THAT(heard.mix, testing::SizeIs(2));
}

TEST_F(Listening, CaptureCanBeStartedAnew) {
    tq_listener wanted = listenerOf(heard);
    wanted.on_event = hearEvent;
    listen(wanted);
    heard.events.clear();
    ASSERT_EQ(tq_capture_restart(), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
    EXPECT_THAT(heard.events, ElementsAre(std::pair<std::uint64_t, std::uint64_t>(
                                  TQ_EVENT_CAPTURE_START, TQ_EVENT_DONE)));
}

TEST_F(Listening, ARestartStartsNothingThatNobodyWants) {
    ASSERT_EQ(tq_capture_restart(), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
    EXPECT_FALSE(manager().isCapturing());
    tq_listener wanted = listenerOf(heard);
    wanted.on_log = hearLine;
    listen(wanted);
    ASSERT_EQ(tq_capture_restart(), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
    EXPECT_FALSE(manager().isCapturing());
}

TEST_F(Listening, AListenerThatThrowsTakesNothingFromTheOthers) {
    tq_listener rude{};
    rude.size = sizeof rude;
    rude.on_log = [](void* /*context*/, const tq_log_line* /*line*/) { throw 1; };
    rude.on_unit = [](void* /*context*/, const tq_unit* /*unit*/) { throw 1; };
    tq_listening* first = nullptr;
    ASSERT_EQ(tq_capture_listen(&rude, &first), TQ_OK);
    tq_listener wanted = listenerOf(heard);
    wanted.on_log = hearLine;
    wanted.on_unit = hearUnit;
    listen(wanted);
    const HostUnit host;
    EXPECT_THAT(heard.lines, Contains(HasSubstr("[mix] newAudioUnitObj, key: ")));
    EXPECT_THAT(heard.units, testing::SizeIs(1));
    EXPECT_EQ(tq_capture_stop(first), TQ_OK) << "the thread is inside no callback any more";
}

TEST_F(Listening, CallsFromInsideACallbackAreRefused) {
    static std::vector<tq_result> results;
    static tq_listening* own = nullptr;
    tq_listener wanted = listenerOf(heard);
    wanted.on_unit = [](void* /*context*/, const tq_unit* /*unit*/) {
        const auto visit = [](void*, const tq_unit*) {};
        tq_volume* volume = nullptr;
        results = {tq_capture_stop(own), tq_capture_settle(), tq_capture_units(visit, nullptr),
                   tq_volume_open(&volume), tq_guard_disarm()};
        tq_unit_counts counts{};
        counts.size = sizeof counts;
        results.push_back(tq_capture_get_unit_counts(&counts));
    };
    listen(wanted);
    own = handle;
    const HostUnit host;
    EXPECT_THAT(results, ElementsAre(TQ_ERROR_INSIDE_CALLBACK, TQ_ERROR_INSIDE_CALLBACK,
                                     TQ_ERROR_INSIDE_CALLBACK, TQ_ERROR_INSIDE_CALLBACK,
                                     TQ_ERROR_INSIDE_CALLBACK, TQ_OK));
}

TEST_F(Listening, BadInputIsRefused) {
    tq_listener wanted = listenerOf(heard);
    EXPECT_EQ(tq_capture_listen(nullptr, &handle), TQ_ERROR_NULL);
    EXPECT_EQ(tq_capture_listen(&wanted, nullptr), TQ_ERROR_NULL);
    EXPECT_EQ(tq_capture_listen(&wanted, &handle), TQ_ERROR_VALUE) << "it wants nothing";
    wanted.on_mix = hearMix;
    wanted.size = sizeof wanted - 1;
    EXPECT_EQ(tq_capture_listen(&wanted, &handle), TQ_ERROR_SIZE);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(tq_capture_stop(nullptr), TQ_ERROR_HANDLE);
    int something = 0;
    EXPECT_EQ(tq_capture_stop(reinterpret_cast<tq_listening*>(&something)), TQ_ERROR_HANDLE);
}

TEST_F(Listening, AHandleOfAnotherKindIsRefused) {
    tq_listener wanted = listenerOf(heard);
    wanted.on_log = hearLine;
    listen(wanted);
    // Whoever calls through void pointers has no compiler to tell the two kinds apart.
    for (int i = 0; i < 100; ++i) {
        tq_volume* volume = nullptr;
        ASSERT_EQ(tq_volume_open(&volume), TQ_OK);
        ASSERT_NE(static_cast<void*>(volume), static_cast<void*>(handle));
        EXPECT_EQ(tq_capture_stop(reinterpret_cast<tq_listening*>(volume)), TQ_ERROR_HANDLE);
        EXPECT_EQ(tq_volume_close(volume), TQ_OK);
    }
    EXPECT_EQ(tq_volume_close(reinterpret_cast<tq_volume*>(handle)), TQ_ERROR_HANDLE);
}

}  // namespace
