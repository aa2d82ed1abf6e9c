#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "bridges/alsa/AlsaFixture.h"

// What is written is heard from the device's start on: at the threshold, or when the program says.

namespace bridgetests {
namespace {

struct AlsaStart : AlsaCalls {
    void SetUp() override {
        AlsaCalls::SetUp();
        configure(*pcm);
        pcm->threshold = 48000;
    }
    /// The unit is started by another thread when the device is.
    void awaitUnit() {
        for (int i = 0; i < 2000 && tracks().count(firstName()) == 0; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            pump(1);
        }
    }
    void expectNothingHeard() {
        playOn(40);
        EXPECT_EQ(heard().frames(), 0U);
    }
};

TEST_F(AlsaStart, WhatIsStartedLaterIsHeardFromThenOn) {
    write(noise);
    expectNothingHeard();
    EXPECT_EQ(snd_pcm_start(pcm.get()), 0);
    pump(60);
    close();
    expectHeard(noise);
}

TEST_F(AlsaStart, ASignalThatIsRecoveredFromLosesNothing) {
    write(noise);
    EXPECT_EQ(snd_pcm_recover(pcm.get(), -EINTR, 1), 0);
    EXPECT_EQ(snd_pcm_start(pcm.get()), 0);
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaStart, AStartThatIsRefusedIsNone) {
    write(noise);
    pcm->answer = -EPIPE;
    EXPECT_EQ(snd_pcm_start(pcm.get()), -EPIPE);
    pcm->answer = 0;
    expectNothingHeard();
}

TEST_F(AlsaStart, TheWriteThatReachesTheThresholdStartsIt) {
    pcm->threshold = 20000;
    write(noise.part(0, 12000));
    expectNothingHeard();
    write(noise.part(12000, 12000));
    pump(60);
    close();
    expectHeard(noise);
}

TEST_F(AlsaStart, ADrainStartsIt) {
    write(noise);
    expectNothingHeard();
    EXPECT_EQ(snd_pcm_drain(pcm.get()), 0);
    pump(60);
    close();
    expectHeard(noise);
}

TEST_F(AlsaStart, WhatIsDroppedBeforeTheStartIsNotHeard) {
    write(noise);
    expectNothingHeard();
    EXPECT_EQ(snd_pcm_drop(pcm.get()), 0);
    EXPECT_EQ(snd_pcm_prepare(pcm.get()), 0);
    write(other);
    EXPECT_EQ(snd_pcm_start(pcm.get()), 0);
    pump(60);
    close();
    expectHeard(other);
}

TEST_F(AlsaStart, WhatIsDroppedBeforeTheStartIsNotHeardWhereTheDeviceSaysThatItHasNone) {
    pcm->buffer = 48000;
    pcm->threshold = 48000;
    configure(*pcm);
    write(noise);
    EXPECT_EQ(snd_pcm_drop(pcm.get()), 0);
    EXPECT_EQ(snd_pcm_prepare(pcm.get()), 0);
    write(other);
    EXPECT_EQ(snd_pcm_start(pcm.get()), 0);
    pump(60);
    close();
    expectHeard(other);
}

TEST_F(AlsaStart, WhatIsClosedBeforeTheStartIsNotHeard) {
    write(noise);
    expectNothingHeard();
    close();
    EXPECT_EQ(heard().frames(), 0U);
    EXPECT_EQ(reports(firstName()).back().dropped, noise.frames());
}

TEST_F(AlsaStart, ADeviceThatIsNeverStartedHasNoTrack) {
    write(noise);
    awaitReport(firstName());
    pump(20);
    close();
    EXPECT_EQ(tracks().count(firstName()), 0U) << "a track of silence";
    EXPECT_EQ(reports(firstName()).back().dropped, noise.frames());
    EXPECT_EQ(reports(firstName()).back().is_paused, 0U);
}

TEST_F(AlsaStart, WhatIsTakenBackBeforeTheStartIsNotHeard) {
    write(noise.part(0, 12000));
    write(markedNoise({}, 9600, 2));
    EXPECT_EQ(snd_pcm_rewind(pcm.get(), 9600), 9600);
    write(noise.part(12000, 12000));
    expectNothingHeard();
    EXPECT_EQ(snd_pcm_start(pcm.get()), 0);
    pump(60);
    close();
    expectHeard(noise);
}

TEST_F(AlsaStart, WhatPlayedBeforeARestartPlaysOnWhileTheRestWaits) {
    write(noise.part(0, 12000));
    EXPECT_EQ(snd_pcm_start(pcm.get()), 0);
    awaitUnit();
    playOn(10);
    pcm->state = SND_PCM_STATE_XRUN;
    EXPECT_EQ(snd_pcm_recover(pcm.get(), -EPIPE, 1), 0);
    write(noise.part(12000, 12000));
    pump(60);
    expectHeard(noise.part(0, 12000));
    EXPECT_EQ(snd_pcm_start(pcm.get()), 0);
    pump(60);
    close();
    const auto found = differences(noise, heard());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("frames of silence inserted at frame 12000"), std::string::npos)
        << found[0];
}

TEST_F(AlsaStart, AWriteThatStartsItAndWaitsIsHeardWhileItWaits) {
    pcm->buffer = 20000;
    pcm->threshold = 20000;
    configure(*pcm);
    write(noise.part(0, 12000));
    expectNothingHeard();
    pcm->queued = 12000;
    std::vector<std::size_t> before;
    pcm->meanwhile = [&] {
        before.push_back(heard().frames());
        pump(20);
        // The unit is started by another thread.
        for (int i = 0; i < 2000 && before.size() == 2 && heard().frames() == 0; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            pump(1);
        }
    };
    write(noise.part(12000, 12000));
    pcm->meanwhile = nullptr;
    pcm->queued = 0;
    ASSERT_EQ(before.size(), 2U) << "what fills the buffer, and the rest";
    EXPECT_EQ(before[1], 0U);
    EXPECT_GT(heard().frames(), 0U);
    pump(60);
    close();
    expectHeard(noise);
}

TEST_F(AlsaStart, WhatStartsOneStartsAllThatAreLinked) {
    const auto second = make("second");
    configure(*second);
    ASSERT_EQ(snd_pcm_link(pcm.get(), second.get()), 0);
    write(noise);
    expectNothingHeard();
    EXPECT_EQ(snd_pcm_start(second.get()), 0);
    pump(60);
    close();
    expectHeard(noise);
    snd_pcm_close(second.get());
}

TEST_F(AlsaStart, WhatIsNeverStartedAndFreedIsCountedAsThrownAway) {
    write(noise);
    expectNothingHeard();
    EXPECT_EQ(snd_pcm_hw_free(pcm.get()), 0);
    playOut(firstName());
    EXPECT_EQ(heard().frames(), 0U);
    EXPECT_EQ(reports(firstName()).back().dropped, noise.frames());
}

TEST_F(AlsaStart, APcmThatIsNotFreedPlaysOn) {
    pcm->threshold = 1;
    write(noise.part(0, 12000));
    pcm->answer = -EBADFD;
    EXPECT_EQ(snd_pcm_hw_free(pcm.get()), -EBADFD);
    pcm->answer = 0;
    write(noise.part(12000, 12000));
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaStart, ADeviceThatCannotBeOpenedIsNamedWithTheReasonOnceAndAMicrophoneIsNot) {
    snd_pcm_t* none = nullptr;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(snd_pcm_open(&none, "hw:9", SND_PCM_STREAM_PLAYBACK, 0), -ENODEV);
        EXPECT_EQ(snd_pcm_open(&none, "hw:8", SND_PCM_STREAM_CAPTURE, 0), -ENODEV);
    }
    EXPECT_EQ(countReports("hw:9 (No such device)", true), 1U);
    EXPECT_EQ(countReports("hw:8 (No such device)", true), 0U);
    EXPECT_EQ(reports("alsa hw:9 (No such device)").back().fate, TQ_STREAM_NOT_OPENED);
}

}  // namespace
}  // namespace bridgetests
