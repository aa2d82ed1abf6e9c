#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "bridges/alsa/AlsaFixture.h"

// Every road by which ALSA takes sound, with the answers that it may give.

namespace bridgetests {
namespace {

using tqtest::silence;

constexpr std::size_t kFrameBytes = 4;
using Frames = snd_pcm_sframes_t;

struct AlsaWrites : AlsaCalls {
    /// A program that offers again what was not taken. Returns the answers.
    template <class Write>
    std::vector<Frames> offerUntilTaken(const Sound& sound, std::size_t piece, Write write) {
        std::vector<Frames> answers;
        for (std::size_t at = 0; at < sound.frames();) {
            const std::string own = sound.part(at, piece).bytes;
            const std::string before = own;
            answers.push_back(write(own));
            EXPECT_EQ(own, before) << "the program's own memory was changed";
            at += answers.back() > 0 ? static_cast<std::size_t>(answers.back()) : 0;
        }
        return answers;
    }
    std::vector<Frames> offerUntilTaken(const Sound& sound, std::size_t piece) {
        return offerUntilTaken(sound, piece, [&](const std::string& own) {
            return snd_pcm_writei(pcm.get(), own.data(), own.size() / kFrameBytes);
        });
    }
    /// Through the pcm's own memory, which is filled and then committed.
    Frames commit(std::string_view frames) {
        const snd_pcm_channel_area_t* areas = nullptr;
        snd_pcm_uframes_t offset = 0;
        snd_pcm_uframes_t room = frames.size() / kFrameBytes;
        EXPECT_EQ(snd_pcm_mmap_begin(pcm.get(), &areas, &offset, &room), 0);
        each(room, [&](std::size_t i, unsigned channel) {
            std::memcpy(place(areas, offset, i, channel), frames.data() + 2 * (2 * i + channel), 2);
        });
        const Frames taken = snd_pcm_mmap_commit(pcm.get(), offset, room);
        // What was not taken is as the program left it.
        each(room, [&](std::size_t i, unsigned channel) {
            if (static_cast<Frames>(i) >= taken) {
                EXPECT_EQ(std::memcmp(place(areas, offset, i, channel),
                                      frames.data() + 2 * (2 * i + channel), 2),
                          0)
                    << "frame " << i;
            }
        });
        return taken;
    }
    template <class Work>
    static void each(std::size_t frames, Work work) {
        for (std::size_t i = 0; i < frames; ++i) {
            work(i, 0);
            work(i, 1);
        }
    }
    static char* place(const snd_pcm_channel_area_t* areas, std::size_t offset, std::size_t frame,
                       unsigned channel) {
        const auto& area = areas[channel];
        return static_cast<char*>(area.addr) + (area.first + area.step * (offset + frame)) / 8;
    }
};

TEST_F(AlsaWrites, WhatIsWrittenIsPassedOnAsItIsAndOnTheTrack) {
    configure(*pcm);
    write(noise);
    EXPECT_EQ(pcm->passed, noise.bytes.data());
    playOn();
    close();
    EXPECT_EQ(pcm->taken, noise.bytes);
    expectHeard(noise);
}

TEST_F(AlsaWrites, ShortWritesAndErrorsAreTheProgramsAndNothingIsLostOrTwice) {
    configure(*pcm);
    const std::vector<Frames> wanted{1, -EAGAIN, 999, -EPIPE, -EINTR, -ESTRPIPE, 7, 6000};
    pcm->answers = {wanted.begin(), wanted.end()};
    std::vector<Frames> answers = offerUntilTaken(noise, 6000);
    answers.resize(wanted.size());
    EXPECT_EQ(answers, wanted);
    playOn();
    close();
    EXPECT_EQ(pcm->taken, noise.bytes);
    expectHeard(noise);
}

TEST_F(AlsaWrites, UnderDuckingNothingIsDuckedTwiceHoweverItIsTaken) {
    duckingBegins();
    configure(*pcm);
    pcm->answers = {5, -EAGAIN, 300, -EPIPE, 2};
    (void)offerUntilTaken(noise, 5000);
    playOn();
    close();
    const Sound passed{noise.format, pcm->taken};
    ASSERT_EQ(passed.frames(), noise.frames());
    for (const std::size_t frame : {480U, 4999U, 5000U, 5300U, 23999U}) {
        EXPECT_NEAR(passed.value(frame, 0), noise.value(frame, 0) / 10, 0.001) << frame;
    }
    expectHeard(passed);
}

TEST_F(AlsaWrites, DuckingBeginsWithTheFirstFrame) {
    duckingBegins(kEndlessAttack);
    configure(*pcm);
    write(noise);
    const Sound passed{noise.format, pcm->taken};
    EXPECT_LE(largestDifference(noise, passed, 0.1), kRounding);
    EXPECT_NE(pcm->passed, noise.bytes.data());
}

TEST_F(AlsaWrites, PiecesOfOneFrameAndOfFourSecondsAreOnTheTrack) {
    const Sound sound = markedNoise({}, 4 * 48000 + 500);
    configure(*pcm);
    for (std::size_t i = 0; i < 500; ++i) {
        write(sound.part(i, 1));
    }
    write(sound.part(500, sound.frames() - 500));
    playOn(420);
    close();
    expectHeard(sound);
}

TEST_F(AlsaWrites, PlanesAreOneTrack) {
    configure(*pcm, {.access = SND_PCM_ACCESS_RW_NONINTERLEAVED});
    for (const auto function : {&snd_pcm_writen, &snd_pcm_mmap_writen}) {
        for (const bool isDucked : {false, true}) {
            pcm->answers = {100, -EAGAIN, 1};
            const std::size_t before = pcm->taken.size();
            if (isDucked) {
                duckingBegins();
            }
            (void)offerUntilTaken(noise.part(0, 6000), 1500, [&](const std::string& own) {
                std::array<std::string, 2> planes;
                for (std::size_t i = 0; i < own.size() / 2; ++i) {
                    planes[i % 2] += own.substr(2 * i, 2);
                }
                std::array<void*, 2> at{planes[0].data(), planes[1].data()};
                const auto as = planes;
                const Frames taken = function(pcm.get(), at.data(), own.size() / kFrameBytes);
                EXPECT_EQ(planes, as) << "the program's own memory was changed";
                return taken;
            });
            EXPECT_EQ(pcm->taken.substr(before) == noise.part(0, 6000).bytes, !isDucked);
            duckingEnds();
        }
    }
    playOn();
    close();
    expectHeard({noise.format, pcm->taken});
}

TEST_F(AlsaWrites, APlaneThatIsNotThereIsSilence) {
    configure(*pcm, {.access = SND_PCM_ACCESS_RW_NONINTERLEAVED});
    Sound wanted = noise;
    std::string left;
    for (std::size_t frame = 0; frame < noise.frames(); ++frame) {
        left += noise.frame(frame).substr(0, 2);
        wanted.bytes.replace(frame * kFrameBytes + 2, 2, 2, '\0');
    }
    std::array<void*, 2> planes{left.data(), nullptr};
    ASSERT_EQ(snd_pcm_writen(pcm.get(), planes.data(), noise.frames()),
              static_cast<Frames>(noise.frames()));
    EXPECT_EQ(pcm->taken, wanted.bytes);
    playOn();
    close();
    EXPECT_EQ(heard().bytes, wanted.bytes);
}

TEST_F(AlsaWrites, WhatIsCommittedIsOnTheTrackInterleavedAndInPlanes) {
    for (const auto access :
         {SND_PCM_ACCESS_MMAP_INTERLEAVED, SND_PCM_ACCESS_MMAP_NONINTERLEAVED}) {
        forget();
        configure(*pcm, {.access = access});
        pcm->taken.clear();
        pcm->answers = {250, -EAGAIN, 1, -EPIPE};
        (void)offerUntilTaken(noise, 700, [&](const std::string& own) { return commit(own); });
        EXPECT_EQ(pcm->taken, noise.bytes);
        playOn();
        snd_pcm_hw_free(pcm.get());
        playOut(firstName());
        expectHeard(noise);
    }
}

TEST_F(AlsaWrites, UnderDuckingWhatIsCommittedIsLowerAndTheRestAsItWas) {
    duckingBegins();
    configure(*pcm, {.access = SND_PCM_ACCESS_MMAP_INTERLEAVED});
    pcm->answers = {250, -EAGAIN, 1, -EPIPE, 3};
    (void)offerUntilTaken(noise, 700, [&](const std::string& own) { return commit(own); });
    playOn();
    close();
    const Sound passed{noise.format, pcm->taken};
    EXPECT_NEAR(passed.value(20000, 1), noise.value(20000, 1) / 10, 0.001);
    expectHeard(passed);
}

TEST_F(AlsaWrites, ACommitThatNothingWasBegunForIsPassedOn) {
    configure(*pcm);
    EXPECT_EQ(snd_pcm_mmap_commit(pcm.get(), 0, 10), 10);
    EXPECT_EQ(pcm->taken, silence({}, 10).bytes);
}

TEST_F(AlsaWrites, NothingAndNoMemoryArePassedOn) {
    configure(*pcm);
    EXPECT_EQ(snd_pcm_writei(pcm.get(), noise.bytes.data(), 0), 0);
    pcm->answers = {-EFAULT, -EFAULT};
    EXPECT_EQ(snd_pcm_writei(pcm.get(), nullptr, 10), -EFAULT);
    EXPECT_EQ(pcm->passed, nullptr);
    EXPECT_EQ(snd_pcm_writen(pcm.get(), nullptr, 10), -EFAULT);
    write(noise);
    playOn();
    close();
    expectHeard(noise);
}

TEST_F(AlsaWrites, CallsOnHandlesThatAreNotKnownGoStraightThrough) {
    const auto unknown = make("unknown");
    EXPECT_EQ(snd_pcm_writei(unknown.get(), noise.bytes.data(), 100), 100);
    EXPECT_EQ(unknown->passed, noise.bytes.data());
    EXPECT_EQ(unknown->taken, noise.part(0, 100).bytes);
    unknown->answer = -EBADFD;
    EXPECT_EQ(snd_pcm_pause(unknown.get(), 1), -EBADFD);
    EXPECT_EQ(snd_pcm_drop(unknown.get()), -EBADFD);
    EXPECT_EQ(snd_pcm_drain(unknown.get()), -EBADFD);
    EXPECT_EQ(snd_pcm_close(unknown.get()), -EBADFD);
}

TEST_F(AlsaWrites, WhatIsWrittenInsideOfAWriteIsTheOuterOnes) {
    configure(*pcm);
    const auto below = make("hw:0");
    configure(*below);
    pcm->meanwhile = [&] {
        EXPECT_EQ(snd_pcm_writei(below.get(), pcm->passed, 2000), 2000);
        EXPECT_EQ(snd_pcm_pause(pcm.get(), 1), 0) << "not the program's";
    };
    for (std::size_t i = 0; i < 12; ++i) {
        write(noise.part(2000 * i, 2000));
    }
    pcm->meanwhile = nullptr;
    playOn();
    close();
    EXPECT_EQ(below->taken, noise.bytes);
    expectHeard(noise);
    EXPECT_TRUE(reports("alsa-2 hw:0").empty());
    snd_pcm_close(below.get());
}

TEST_F(AlsaWrites, ErrnoIsTheLibrarys) {
    const auto isKept = [](auto call) {
        errno = 0;
        (void)call();
        return errno == ENOTTY;
    };
    duckingBegins();
    EXPECT_TRUE(isKept([&] { configure(*pcm, {.channels = 6}); }));
    EXPECT_TRUE(isKept([&] { return snd_pcm_writei(pcm.get(), noise.bytes.data(), 2000); }));
    EXPECT_TRUE(isKept([&] { return commit(noise.part(0, 100).bytes); }));
    EXPECT_TRUE(isKept([&] { return snd_pcm_rewind(pcm.get(), 10); }));
    EXPECT_TRUE(isKept([&] { return snd_pcm_pause(pcm.get(), 1); }));
    EXPECT_TRUE(isKept([&] { return snd_pcm_drop(pcm.get()); }));
    EXPECT_TRUE(isKept([&] { return snd_pcm_prepare(pcm.get()); }));
    EXPECT_TRUE(isKept([&] { return snd_pcm_drain(pcm.get()); }));
    EXPECT_TRUE(isKept([&] { return snd_pcm_close(pcm.get()); }));
}

TEST_F(AlsaWrites, ACommitOfMoreThanAStreamHoldsIsDuckedFromItsFirstFrameToItsLast) {
    const Sound longer = markedNoise({}, std::size_t{11} * 48000);
    duckingBegins(kEndlessAttack);
    pcm->ringFrames = longer.frames();
    configure(*pcm, {.access = SND_PCM_ACCESS_MMAP_INTERLEAVED});
    const snd_pcm_channel_area_t* areas = nullptr;
    snd_pcm_uframes_t offset = 0;
    snd_pcm_uframes_t room = longer.frames();
    ASSERT_EQ(snd_pcm_mmap_begin(pcm.get(), &areas, &offset, &room), 0);
    std::memcpy(areas[0].addr, longer.bytes.data(), longer.bytes.size());
    EXPECT_EQ(snd_pcm_mmap_commit(pcm.get(), offset, room), static_cast<Frames>(longer.frames()));
    EXPECT_LE(largestDifference(longer, {longer.format, pcm->taken}, 0.1), kRounding);
}

}  // namespace
}  // namespace bridgetests
