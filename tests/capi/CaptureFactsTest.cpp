#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CapturePathFixture.h"
#include "tq_capture.h"

// Tracks, units and the library's own state through the C interface.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct SeenUnit {
    std::string name;
    std::uint32_t track;
    tq_unit_reason reason;

    friend bool operator==(const SeenUnit&, const SeenUnit&) = default;
    friend void PrintTo(const SeenUnit& unit, std::ostream* out) {
        *out << unit.name << " track " << unit.track << ": " << tq_unit_reason_text(unit.reason);
    }
};

std::vector<SeenUnit> units() {
    std::vector<SeenUnit> seen;
    EXPECT_EQ(tq_capture_units(
                  [](void* context, const tq_unit* unit) {
                      EXPECT_EQ(unit->size, sizeof(tq_unit));
                      static_cast<std::vector<SeenUnit>*>(context)->push_back(
                          {unit->name, unit->track, unit->reason});
                  },
                  &seen),
              TQ_OK);
    return seen;
}

tq_unit_counts counts() {
    tq_unit_counts now{};
    now.size = sizeof now;
    EXPECT_EQ(tq_capture_get_unit_counts(&now), TQ_OK);
    return now;
}

using CaptureFacts = CapturePath;

TEST_F(CaptureFacts, StateTellsHooksSelfTestAndCapture) {
    tq_capture_state state{};
    state.size = sizeof state;
    ASSERT_EQ(tq_capture_get_state(&state), TQ_OK);
    EXPECT_EQ(state.hooks_installed, 1U);
    EXPECT_EQ(state.self_test_passed, 1U);
    EXPECT_EQ(state.is_capturing, 0U);
    ASSERT_TRUE(startCapture());
    ASSERT_EQ(tq_capture_get_state(&state), TQ_OK);
    EXPECT_EQ(state.is_capturing, 1U);
}

TEST(CaptureFactsWithoutHooks, StateSaysSo) {
    tq_capture_state state{};
    state.size = sizeof state;
    ASSERT_EQ(tq_capture_get_state(&state), TQ_OK);
    EXPECT_EQ(state.hooks_installed, 0U);
    EXPECT_EQ(state.self_test_passed, 0U);
}

TEST_F(CaptureFacts, TracksArePresentFromTheFirstStartOn) {
    HostUnit host;
    host.sound.format = stream_formats::floatPlanar(44100, 2);
    HostGraph graph;
    std::map<std::uint32_t, tq_track> tracks;
    const auto ask = [&] {
        tracks.clear();
        ASSERT_EQ(tq_capture_tracks(
                      [](void* context, const tq_track* track) {
                          auto& all = *static_cast<std::map<std::uint32_t, tq_track>*>(context);
                          all[track->track] = *track;
                          EXPECT_EQ(std::string(track->name),
                                    track->track == 1 ? "unit-1" : "graph-2");
                      },
                      &tracks),
                  TQ_OK);
    };
    ask();
    EXPECT_THAT(tracks, IsEmpty());
    host.play();
    graph.play();
    ask();
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[1].size, sizeof(tq_track));
    EXPECT_EQ(tracks[1].type, TQ_HOOK_TRACK_UNIT);
    EXPECT_EQ(tracks[1].unit_kind, TQ_UNIT_PLAIN);
    EXPECT_EQ(tracks[1].format.sample_rate, 44100.0);
    EXPECT_EQ(tracks[1].format.channels, 2U);
    EXPECT_EQ(tracks[1].format.bits_per_channel, 32U);
    EXPECT_EQ(tracks[1].format.is_float, 1U);
    EXPECT_EQ(tracks[1].format.is_interleaved, 0U);
    EXPECT_EQ(tracks[2].type, TQ_HOOK_TRACK_GRAPH_CALLBACK);
    EXPECT_EQ(tracks[2].unit_kind, TQ_UNIT_OF_GRAPH);
    EXPECT_EQ(tracks[2].unit, 2U);
    EXPECT_EQ(tracks[2].format.bits_per_channel, 16U);
    EXPECT_EQ(tracks[2].format.is_interleaved, 1U);
    host.uninitialize();
    ask();
    EXPECT_EQ(tracks.size(), 1U);
}

TEST_F(CaptureFacts, AUnitGoesFromMadeToCapturedAndBack) {
    HostUnit host;
    host.prepare();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit", 1, TQ_UNIT_NOT_STARTED}));
    host.start();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_CAPTURE_OFF}));
    ASSERT_TRUE(startCapture());
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_CAPTURED}));
    host.stop();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_NOT_STARTED}));
    host.uninitialize();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 0, TQ_UNIT_UNINITIALISED}));
}

TEST_F(CaptureFacts, AnEighthUnitHasNoNumber) {
    HostUnit hosts[8];
    ASSERT_TRUE(startCapture());
    hosts[7].play();
    const auto all = units();
    ASSERT_EQ(all.size(), 8U);
    EXPECT_EQ(all[6], (SeenUnit{"unit", 7, TQ_UNIT_NOT_STARTED}));
    EXPECT_EQ(all[7], (SeenUnit{"unit-1", 0, TQ_UNIT_NO_NUMBER_FREE}));
    EXPECT_EQ(counts().created, 7U);
    EXPECT_EQ(counts().started, 1U);
}

TEST_F(CaptureFacts, AnEighthGraphHasNoNumber) {
    HostUnit hosts[7];
    HostGraph graph;
    graph.play();
    EXPECT_EQ(units().back(), (SeenUnit{"graph-1", 0, TQ_UNIT_NO_NUMBER_FREE}));
    AUGraphStop(graph.graph());
    AUGraphStart(graph.graph());
    EXPECT_EQ(units().back(), (SeenUnit{"graph-1", 0, TQ_UNIT_NO_NUMBER_FREE}));
}

TEST_F(CaptureFacts, ObserversHearThatAnUncapturedUnitPlays) {
    std::vector<std::string> notices;
    tq_listener wanted{};
    wanted.size = sizeof wanted;
    wanted.context = &notices;
    wanted.on_unit = [](void* context, const tq_unit* unit) {
        static_cast<std::vector<std::string>*>(context)->push_back(
            std::string(unit->name) + (unit->is_started != 0 ? " plays: " : " stands: ") +
            tq_unit_reason_text(unit->reason));
    };
    HostUnit others[7];
    HostUnit host;
    host.prepare();
    tq_listening* listening = nullptr;
    ASSERT_EQ(tq_capture_listen(&wanted, &listening), TQ_OK);
    host.start();
    host.stop();
    EXPECT_EQ(tq_capture_stop(listening), TQ_OK);
    const std::string why = tq_unit_reason_text(TQ_UNIT_NO_NUMBER_FREE);
    // Its start asks for a number once more.
    EXPECT_THAT(notices, ElementsAre("unit stands: " + why, "unit-1 plays: " + why,
                                     "unit-1 stands: " + why));
    EXPECT_EQ(counts().started, 1U);
}

/// Blocks of tracks that sounded, by the names of their units.
struct SoundingNames {
    std::set<std::string> names;

    static void onTrack(void* context, const tq_block* block) {
        const auto* const samples = static_cast<const std::int16_t*>(block->buffers[0].data);
        if (samples[0] != 0) {
            static_cast<SoundingNames*>(context)->names.insert(std::string(block->name) + " at " +
                                                               std::to_string(samples[0]));
        }
    }
};

TEST_F(CaptureFacts, AUnitWhoseNumberIsGivenAgainIsNamedAndNeverHeardUnderTheOthersName) {
    SoundingNames heard;
    tq_listener wanted{};
    wanted.size = sizeof wanted;
    wanted.context = &heard;
    wanted.on_track = SoundingNames::onTrack;
    tq_listening* listening = nullptr;
    ASSERT_EQ(tq_capture_listen(&wanted, &listening), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
    HostUnit music;
    music.sound.value = 0.25;
    music.play();
    HostUnit effects;
    {
        // Its release frees the numbers 1 and 2.
        HostUnit voice;
        voice.prepare();
        voice.uninitialize();
    }
    pump(5);
    HostUnit later;
    later.sound.value = 0.5;
    later.play();
    ASSERT_EQ(later.object()->trackId(), 1);
    EXPECT_EQ(units().front(), (SeenUnit{"unit-1", 1, TQ_UNIT_NUMBER_TAKEN}));
    pump(5);
    // What stops does not take the other one's place with it.
    music.stop();
    EXPECT_EQ(later.object()->isCapturing(), YES);
    EXPECT_EQ(units().back(), (SeenUnit{"unit-2", 1, TQ_UNIT_CAPTURED}));
    heard.names.erase("unit-2 at 16384");
    pump(5);
    EXPECT_EQ(tq_capture_stop(listening), TQ_OK);
    EXPECT_THAT(heard.names, ElementsAre("unit-1 at 8192", "unit-2 at 16384"));
    later.dispose();
}

TEST_F(CaptureFacts, AUnitThatRecordsIsLeftAlone) {
    ASSERT_TRUE(startCapture());
    HostUnit host;
    host.enableMicrophone();
    host.play();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_MICROPHONE_ON}));
    EXPECT_EQ(counts().started, 1U);
    EXPECT_EQ(counts().started_with_microphone, 1U);
    host.stop();
    host.start();
    EXPECT_EQ(counts().started_with_microphone, 2U) << "each start counts";
}

TEST_F(CaptureFacts, AUnitThatIsInitialisedAgainIsTheSameUnit) {
    ASSERT_TRUE(startCapture());
    HostUnit host;
    host.enableMicrophone();
    host.play();
    host.uninitialize();
    ASSERT_EQ(host.initialize(), 0);
    ASSERT_EQ(host.start(), 0);
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_MICROPHONE_ON}));
    HostUnit other;
    other.play();
    EXPECT_EQ(units().back(), (SeenUnit{"unit-2", 2, TQ_UNIT_CAPTURED}));
}

TEST_F(CaptureFacts, AVoiceEnginesUnitIsLeftAlone) {
    std::thread([] {
        NSThread::setCurrentThreadName("VeqDeviceThread");
        HostUnit host;
        EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit", 0, TQ_UNIT_VOICE_ENGINES}));
        host.play();
        EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 0, TQ_UNIT_VOICE_ENGINES}));
    }).join();
    EXPECT_EQ(counts().created, 1U);
    EXPECT_EQ(counts().started, 1U);
    EXPECT_EQ(counts().started_with_microphone, 0U);
}

TEST_F(CaptureFacts, AUnitThatAnotherLibraryRegistersIsItsOwn) {
    ASSERT_TRUE(startCapture());
    HostUnit host;
    host.play();
    resolver().registerNonGameUsedAudioUnit(host.unit());
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_ANOTHERS}));
    resolver().unregisterNonGameUsedAudioUnit(host.unit());
}

TEST_F(CaptureFacts, AGraphThatAnotherLibraryRegistersIsItsOwn) {
    HostGraph graph;
    resolver().registerNonGameUsedAuGraph(graph.graph());
    graph.play();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"graph-1", 0, TQ_UNIT_ANOTHERS}));
    resolver().unregisterNonGameUsedAuGraph(graph.graph());
    graph.dispose();
    EXPECT_THAT(units(), IsEmpty());
}

TEST_F(CaptureFacts, AGraphMayBeRegisteredWhenItHasItsNodesAlready) {
    HostGraph graph;
    graph.addOutput();
    resolver().registerNonGameUsedAuGraph(graph.graph());
    ASSERT_EQ(AUGraphOpen(graph.graph()), 0);
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"graph", 0, TQ_UNIT_ANOTHERS}));
    resolver().unregisterNonGameUsedAuGraph(graph.graph());
}

TEST_F(CaptureFacts, TheLibrarysOwnUnitsAreNotAmongThem) {
    ASSERT_TRUE(startCapture());
    EXPECT_THAT(units(), IsEmpty());
}

TEST_F(CaptureFacts, AUnitThatTheMixRefusesIsNotCaptured) {
    ASSERT_TRUE(startCapture());
    platform.fail("AUGraphSetNodeInputCallback", -1);
    HostUnit host;
    host.play();
    platform.heal();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_MIX_REFUSED}));
}

TEST_F(CaptureFacts, AUnitThatTheMixTakesAtALaterStartIsCaptured) {
    ASSERT_TRUE(startCapture());
    platform.fail(
        "AudioUnitSetProperty", -1,
        PlatformCalls::property(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 1));
    HostUnit host;
    host.play();
    platform.heal();
    ASSERT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_MIX_REFUSED}));
    ASSERT_EQ(tq_capture_restart(), TQ_OK);
    ASSERT_EQ(tq_capture_settle(), TQ_OK);
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"unit-1", 1, TQ_UNIT_CAPTURED}));
}

TEST_F(CaptureFacts, AGraphKeepsItsNumberUntilItIsDisposedOf) {
    {
        HostGraph graph;
        graph.play();
        EXPECT_THAT(units(), ElementsAre(SeenUnit{"graph-1", 1, TQ_UNIT_CAPTURE_OFF}));
        AUGraphStop(graph.graph());
        AUGraphStart(graph.graph());
        EXPECT_THAT(units(), ElementsAre(SeenUnit{"graph-1", 1, TQ_UNIT_CAPTURE_OFF}));
        graph.dispose();
    }
    EXPECT_THAT(units(), IsEmpty());
    HostGraph second;
    second.play();
    EXPECT_THAT(units(), ElementsAre(SeenUnit{"graph-2", 1, TQ_UNIT_CAPTURE_OFF}));
}

TEST_F(CaptureFacts, OnlyTheLatestOfTheGoneUnitsAreKept) {
    HostUnit lasting;
    lasting.play();
    for (int i = 0; i < 100; ++i) {
        HostUnit passing;
        passing.play();
    }
    const auto all = units();
    EXPECT_EQ(all.size(), 64U);
    EXPECT_EQ(all.front(), (SeenUnit{"unit-1", 1, TQ_UNIT_CAPTURE_OFF}));
    EXPECT_EQ(all.back().name, "unit-101");
    EXPECT_EQ(counts().created, 101U);
    EXPECT_EQ(counts().started, 101U);
}

TEST_F(CaptureFacts, BadInputIsRefused) {
    EXPECT_EQ(tq_capture_units(nullptr, nullptr), TQ_ERROR_NULL);
    EXPECT_EQ(tq_capture_tracks(nullptr, nullptr), TQ_ERROR_NULL);
    EXPECT_EQ(tq_capture_get_state(nullptr), TQ_ERROR_NULL);
    EXPECT_EQ(tq_capture_get_unit_counts(nullptr), TQ_ERROR_NULL);
    tq_capture_state state{};
    EXPECT_EQ(tq_capture_get_state(&state), TQ_ERROR_SIZE);
    tq_unit_counts none{};
    EXPECT_EQ(tq_capture_get_unit_counts(&none), TQ_ERROR_SIZE);
}

TEST(CaptureText, EachResultAndReasonHasAText) {
    std::set<std::string> texts;
    for (int reason = TQ_UNIT_CAPTURED; reason <= TQ_UNIT_NOT_SEEN_MADE; ++reason) {
        EXPECT_TRUE(texts.insert(tq_unit_reason_text(static_cast<tq_unit_reason>(reason))).second);
    }
    for (const tq_result result :
         {TQ_OK, TQ_ERROR_NULL, TQ_ERROR_SIZE, TQ_ERROR_HANDLE, TQ_ERROR_VALUE,
          TQ_ERROR_INSIDE_CALLBACK, TQ_ERROR_NO_MEMORY, TQ_ERROR_ROOM, TQ_ERROR_GUARD_NOT_READY,
          TQ_ERROR_UNKNOWN, TQ_ERROR_NOT_ON, TQ_ERROR_OWNED_BY_ANOTHER, TQ_ERROR_GUARD_FULL,
          TQ_ERROR_HOOKS_NOT_WORKING}) {
        EXPECT_TRUE(texts.insert(tq_result_text(result)).second) << result;
    }
    EXPECT_STREQ(tq_capture_version(), "1.0.0");
}

TEST_F(CaptureFacts, FramesOfATrackAreDeliveredOrLostForAReason) {
    HostUnit host;
    host.sound.format = stream_formats::int16Interleaved(48000, 2);
    host.play();
    pump(2);
    ASSERT_TRUE(startCapture());
    pump(5);
    host.stop();
    pump(3);
    tq_frames frames{};
    frames.size = sizeof frames;
    ASSERT_EQ(tq_capture_get_frames(1, &frames), TQ_OK);
    EXPECT_EQ(frames.rendered, 7U * kFrames);
    for (const tq_frame_side* const side : {&frames.mix, &frames.track}) {
        EXPECT_EQ(frames.rendered, side->delivered + side->waiting +
                                       std::accumulate(std::begin(side->lost), std::end(side->lost),
                                                       std::uint64_t{0}));
        EXPECT_EQ(side->lost[TQ_FRAMES_NOT_CAPTURING], 2U * kFrames);
    }
    EXPECT_EQ(frames.mix.delivered, 5U * kFrames);
    EXPECT_GT(frames.track.lost[TQ_FRAMES_DISCARDED_AT_START], 0U);

    tq_frames all{};
    all.size = sizeof all;
    ASSERT_EQ(tq_capture_get_frames(0, &all), TQ_OK);
    EXPECT_EQ(all.rendered, frames.rendered);
    EXPECT_EQ(tq_capture_get_frames(8, &all), TQ_ERROR_VALUE);
    EXPECT_EQ(tq_capture_get_frames(1, nullptr), TQ_ERROR_NULL);
    all.size = sizeof all - 1;
    EXPECT_EQ(tq_capture_get_frames(1, &all), TQ_ERROR_SIZE);
}

bool isAnyStarted() {
    bool isAny = false;
    (void)tq_capture_units(
        [](void* context, const tq_unit* unit) {
            *static_cast<bool*>(context) |= unit->is_started != 0;
        },
        &isAny);
    return isAny;
}

TEST_F(CaptureFacts, InTheChildOfAForkNoUnitOfTheParentsPlays) {
    HostUnit host;
    host.play();
    ASSERT_TRUE(startCapture());
    pump(3);
    const pid_t child = fork();
    if (child == 0) {
        _exit(isAnyStarted() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(isAnyStarted()) << "in the parent";
    host.stop();
}

TEST(FrameLosses, HaveATextEach) {
    std::set<std::string> texts;
    for (int loss = 0; loss <= TQ_FRAME_LOSSES; ++loss) {
        texts.insert(tq_frame_loss_text(static_cast<tq_frame_loss>(loss)));
    }
    EXPECT_EQ(texts.size(), TQ_FRAMES_FORMAT_CHANGED + 2U);
}

}  // namespace
