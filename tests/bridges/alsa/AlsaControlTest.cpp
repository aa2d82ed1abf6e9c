#include <cerrno>
#include <chrono>
#include <thread>

#include "bridges/alsa/AlsaFixture.h"

// Calls that decide what is heard of what was written, and when.

namespace bridgetests {
namespace {

using tqtest::silence;

struct AlsaControl : AlsaCalls {
    void SetUp() override {
        AlsaCalls::SetUp();
        configure(*pcm);
    }
    /// The last frames of the track are that sound, the rest is the beginning of the noise.
    void expectHeardAtTheEnd(const Sound& last) const {
        const Sound all = heard();
        ASSERT_GT(all.frames(), last.frames());
        const std::size_t before = all.frames() - last.frames();
        EXPECT_EQ(differences(last, all.part(before, last.frames())), kNothing);
        const Sound first = all.part(0, before).trimmed();
        EXPECT_EQ(differences(noise.part(0, first.frames()), first), kNothing);
    }
};

TEST_F(AlsaControl, WhatIsRewoundIsWrittenAnew) {
    write(noise.part(0, 12000));
    write(other);
    EXPECT_EQ(snd_pcm_rewind(pcm.get(), 9600), 9600);
    pcm->answers = {-EPIPE, 0};
    EXPECT_EQ(snd_pcm_rewind(pcm.get(), 500), -EPIPE);
    EXPECT_EQ(snd_pcm_rewind(pcm.get(), 500), 0);
    write(noise.part(12000, 12000));
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, WhatIsSteppedOverIsSilenceOfItsLength) {
    write(noise.part(0, 12000));
    pcm->answers = {2500};
    EXPECT_EQ(snd_pcm_forward(pcm.get(), 3000), 2500);
    write(noise.part(12000, 12000));
    playOn();
    close();
    Sound wanted = noise.part(0, 12000);
    wanted.bytes += silence({}, 2500).bytes + noise.part(12000, 12000).bytes;
    EXPECT_EQ(heard().bytes, wanted.bytes);
}

TEST_F(AlsaControl, APauseIsSilenceAndLosesNothing) {
    write(noise);
    playOn(20);
    const std::size_t before = heard().frames();
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0);
    pump(40);
    EXPECT_LT(heard().frames(), before + 4 * kSlice);
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 0), 0);
    pump(60);
    close();
    const auto found = differences(noise, heard());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("frames of silence inserted"), std::string::npos) << found[0];
}

TEST_F(AlsaControl, APauseThatTheDeviceRefusesIsNone) {
    pcm->answer = -ENOSYS;
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), -ENOSYS);
    pcm->answer = 0;
    write(noise);
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, APauseEndsWithWhateverStartsThePcmAnew) {
    const auto recover = [](snd_pcm_t* one) { return snd_pcm_recover(one, -ESTRPIPE, 1); };
    for (int (*const call)(snd_pcm_t*) : {&snd_pcm_resume, &snd_pcm_prepare, +recover}) {
        forget();
        pcm->state = SND_PCM_STATE_RUNNING;
        EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0);
        write(noise);
        EXPECT_EQ(call(pcm.get()), 0);
        playOn();
        snd_pcm_hw_free(pcm.get());
        playOut(firstName());
        expectHeard(noise);
        configure(*pcm);
    }
}

TEST_F(AlsaControl, BehindAnXrunThatIsRecoveredTheStreamGoesOn) {
    write(noise.part(0, 12000));
    playOn();
    pcm->answers = {-EPIPE};
    EXPECT_EQ(snd_pcm_writei(pcm.get(), noise.bytes.data(), 1), -EPIPE);
    EXPECT_EQ(snd_pcm_recover(pcm.get(), -EPIPE, 1), 0);
    write(noise.part(12000, 12000));
    pump(60);
    close();
    const auto found = differences(noise, heard());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_NE(found[0].find("frames of silence inserted at frame 12000"), std::string::npos)
        << found[0];
}

TEST_F(AlsaControl, WhatIsDroppedOrResetIsNotOnTheTrack) {
    for (const auto call : {&snd_pcm_drop, &snd_pcm_reset}) {
        forget();
        write(noise);
        snd_pcm_start(pcm.get());
        playOn(20);
        EXPECT_EQ(call(pcm.get()), 0);
        EXPECT_EQ(snd_pcm_prepare(pcm.get()), 0);
        pump(10);
        EXPECT_LT(heard().frames(), 20 * kSlice);
        write(other);
        pump(40);
        snd_pcm_hw_free(pcm.get());
        playOut(firstName());
        expectHeardAtTheEnd(other);
        configure(*pcm);
    }
}

TEST_F(AlsaControl, WhatWasHeardBeforeADropIsOnTheTrack) {
    for (const auto state : {SND_PCM_STATE_XRUN, SND_PCM_STATE_SETUP}) {
        forget();
        write(noise);
        snd_pcm_start(pcm.get());
        playOn(20);
        // It has run dry, or was drained: the unit is a little behind.
        pcm->state = state;
        EXPECT_EQ(snd_pcm_drop(pcm.get()), 0);
        pump(60);
        snd_pcm_hw_free(pcm.get());
        playOut(firstName());
        expectHeard(noise);
        configure(*pcm);
    }
}

TEST_F(AlsaControl, WhatTheDeviceHasTakenIsHeardThoughItIsDropped) {
    // As on a device that is not paced: all but the newest is played long before the unit plays it.
    pcm->buffer = 4800;
    pcm->queued = 2000;
    for (const auto call : {&snd_pcm_drop, &snd_pcm_reset}) {
        forget();
        write(noise);
        snd_pcm_start(pcm.get());
        playOn(5);
        errno = EDOM;
        EXPECT_EQ(call(pcm.get()), 0);
        pump(60);
        snd_pcm_hw_free(pcm.get());
        playOut(firstName());
        expectHeard(noise.part(0, noise.frames() - 2000));
        configure(*pcm);
    }
}

TEST_F(AlsaControl, AWriteLongerThanTheBufferIsHandedOnInParts) {
    pcm->buffer = 5000;
    configure(*pcm);
    pcm->answers = {5000, 5000, 1234};
    EXPECT_EQ(snd_pcm_writei(pcm.get(), noise.bytes.data(), noise.frames()), 11234);
    pcm->answers = {5000, -EAGAIN};
    EXPECT_EQ(snd_pcm_writei(pcm.get(), noise.part(11234, 12766).bytes.data(), 12766), 5000);
    pcm->answers = {-EAGAIN};
    EXPECT_EQ(snd_pcm_writei(pcm.get(), noise.part(16234, 7766).bytes.data(), 7766), -EAGAIN);
    write(noise.part(16234, 7766));
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, TheSameFormatSetAnewIsTheSameTrack) {
    write(noise.part(0, 8000));
    configure(*pcm);
    write(noise.part(8000, 8000));
    snd_pcm_hw_free(pcm.get());
    configure(*pcm);
    write(noise.part(16000, 8000));
    awaitReport(firstName());
    snd_pcm_close(pcm.get());
    for (int i = 0; i < 2000 && countReports(firstName(), true) < 3; ++i) {
        pump();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const Sound all = heard();
    for (std::size_t from = 0; from < noise.frames(); from += 8000) {
        const Sound part = noise.part(from, 8000);
        const std::size_t at = tqtest::beginningOf(part, all);
        ASSERT_LT(at, all.frames()) << from;
        EXPECT_EQ(differences(part, all.part(at, 8000)), kNothing) << from;
    }
    EXPECT_TRUE(reports("alsa-2 default").empty());
}

TEST_F(AlsaControl, WhatWasNeverStartedIsGoneWhenThePcmIsPreparedAnew) {
    pcm->threshold = 24000;
    write(other.part(0, 2000));
    EXPECT_EQ(snd_pcm_prepare(pcm.get()), 0);
    write(noise);
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, ADrainPlaysWhatIsThereAlsoOutOfAPause) {
    write(noise.part(0, 1000));
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0);
    awaitReport(firstName());
    pump(20);
    EXPECT_EQ(heard().frames(), 0U);
    // As long as the library drains, the device plays.
    pcm->meanwhile = [&] {
        awaitGoingOn(firstName());
        pump(20);
        EXPECT_EQ(heard().frames(), 1000U) << "before the drain is over";
    };
    EXPECT_EQ(snd_pcm_drain(pcm.get()), 0);
    pcm->meanwhile = nullptr;
    close();
    expectHeard(noise.part(0, 1000));
}

TEST_F(AlsaControl, AFormatThatIsSetAnewIsAnotherStreamAndBothAreWhole) {
    write(noise);
    const SoundFormat format{44100, 1, tqtest::Encoding::S32};
    configure(*pcm, {.format = SND_PCM_FORMAT_S32, .channels = 1, .rate = 44100});
    const Sound mono = markedNoise(format, 10000);
    ASSERT_EQ(snd_pcm_writei(pcm.get(), mono.bytes.data(), 10000), 10000);
    awaitReport("alsa-2 default");
    close();
    playOut("alsa-2 default");
    EXPECT_EQ(pcm->taken, noise.bytes + mono.bytes);
    expectHeard(noise);
    EXPECT_EQ(differences(mono, track("alsa-2 default", format).trimmed()), kNothing);
}

TEST_F(AlsaControl, AFormatThatTheLibraryRefusesLeavesTheStreamAsItIs) {
    write(noise.part(0, 12000));
    pcm->answer = -EINVAL;
    _snd_pcm_hw_params wanted{.channels = 6};
    EXPECT_EQ(snd_pcm_hw_params(pcm.get(), &wanted), -EINVAL);
    pcm->answer = 0;
    write(noise.part(12000, 12000));
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, AFormatThatIsSetTwiceBeforeTheFirstFrameIsTheFirstStreamStill) {
    configure(*pcm, {.rate = 44100});
    configure(*pcm);
    write(noise);
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, WhatTheDeviceHasNotPlayedAtItsCloseIsNotOnTheTrack) {
    pcm->buffer = 24000;
    write(noise);
    snd_pcm_start(pcm.get());
    playOn(5);
    pcm->queued = 20000;
    close();
    expectHeard(noise.part(0, noise.frames() - 20000));
}

TEST_F(AlsaControl, WhatWasDrainedBeforeTheCloseIsWholeOnTheTrack) {
    pcm->buffer = 24000;
    write(noise);
    playOn(5);
    pcm->state = SND_PCM_STATE_SETUP;
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, AStreamWhoseDeviceHoldsNothingBackIsPlayedOutWhenItIsClosed) {
    // As a device that writes a file: what it takes is played at once.
    pcm->buffer = 4800;
    write(noise);
    snd_pcm_start(pcm.get());
    awaitReport(firstName());
    pump(10);
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, AStreamWhoseDeviceDoesNotSayWhatItHoldsIsPlayedOutWhenItIsClosed) {
    write(noise);
    awaitReport(firstName());
    pump(10);
    close();
    expectHeard(noise);
}

TEST_F(AlsaControl, ARecordingPcmIsNoStream) {
    const auto recording = make("default");
    recording->stream = SND_PCM_STREAM_CAPTURE;
    configure(*recording);
    EXPECT_EQ(snd_pcm_writei(recording.get(), noise.bytes.data(), 100), 100);
    write(noise);
    playOn();
    EXPECT_TRUE(reports("alsa-2 default").empty());
    snd_pcm_close(recording.get());
}

/// Two pcms that are linked.
struct AlsaLinked : AlsaControl {
    void SetUp() override {
        AlsaControl::SetUp();
        configure(*second);
        ASSERT_EQ(snd_pcm_link(pcm.get(), second.get()), 0);
    }
    void TearDown() override {
        snd_pcm_close(second.get());
        AlsaControl::TearDown();
    }
    void writeBoth() {
        write(noise);
        ASSERT_EQ(snd_pcm_writei(second.get(), other.bytes.data(), other.frames()),
                  static_cast<snd_pcm_sframes_t>(other.frames()));
        awaitReport(firstName());
        awaitReports(kSecond, false, 1);
    }
    /// Whatever its number.
    [[nodiscard]] std::size_t heardOfSecond() const {
        std::size_t frames = 0;
        for (const auto& [name, sound] : tracks()) {
            frames += name.ends_with(kSecond) ? track(name).trimmed().frames() : 0;
        }
        return frames;
    }

    static constexpr const char* kSecond = " second";
    const std::unique_ptr<snd_pcm_t> second = make("second");
};

TEST_F(AlsaLinked, WhatPausesOnePausesAll) {
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0);
    writeBoth();
    pump(40);
    EXPECT_EQ(heardOfSecond(), 0U);
    EXPECT_EQ(snd_pcm_pause(second.get(), 0), 0);
    awaitGoingOn(firstName());
    awaitGoingOn(std::string("alsa-2") + kSecond);
    pump(60);
    EXPECT_EQ(heardOfSecond(), other.frames());
    expectHeard(noise);
}

TEST_F(AlsaLinked, WhatDropsOneDropsAll) {
    writeBoth();
    snd_pcm_start(pcm.get());
    EXPECT_EQ(snd_pcm_drop(pcm.get()), 0);
    pump(60);
    EXPECT_EQ(heard().frames(), 0U);
    EXPECT_EQ(heardOfSecond(), 0U);
}

TEST_F(AlsaLinked, OneThatIsUnlinkedGoesItsOwnWay) {
    EXPECT_EQ(snd_pcm_unlink(second.get()), 0);
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0);
    writeBoth();
    pump(60);
    EXPECT_EQ(heardOfSecond(), other.frames());
    EXPECT_EQ(heard().frames(), 0U);
}

TEST_F(AlsaLinked, AHandleThatComesBackIsLinkedNoMore) {
    EXPECT_EQ(snd_pcm_close(second.get()), 0);
    configure(*second);
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0);
    writeBoth();
    pump(60);
    EXPECT_EQ(heardOfSecond(), other.frames());
}

TEST_F(AlsaLinked, ALinkThatIsRefusedIsNone) {
    EXPECT_EQ(snd_pcm_unlink(second.get()), 0);
    pcm->answer = -ENOSYS;
    EXPECT_EQ(snd_pcm_link(pcm.get(), second.get()), -ENOSYS);
    pcm->answer = 0;
    EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0);
    writeBoth();
    pump(60);
    EXPECT_EQ(heardOfSecond(), other.frames());
}

}  // namespace
}  // namespace bridgetests
