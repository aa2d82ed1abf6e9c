#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "bridges/core/StreamFixture.h"
#include "support/ProgramRunner.h"
#include "support/sound/Comparison.h"

/// The child of the fork test makes threads; the thread sanitizer forbids it unless asked.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0";
}

// Streams of a process with many threads, which forks and ends.

namespace bridgetests {
namespace {

using tq::bridges::NativeStream;
using tqtest::differences;
using tqtest::Encoding;
using tqtest::markedNoise;
using tqtest::Sound;
using tqtest::SoundFormat;

struct StreamProcess : NativeStreams {};

TEST_F(StreamProcess, AWriterThatWaitsInTheInterfaceHoldsNobodyUp) {
    MadeUpPcm waiting({}, "waits");
    waiting.write(markedNoise({}, 4800));
    awaitReport("madeup-1 waits");
    {
        const auto stream = waiting.use();
        (void)stream->prepare(markedNoise({}, 480).bytes.data(), 480, MadeUpPcm::Memory::kConstant);
        waiting.close();
        playOut("madeup-1 waits");
        MadeUpPcm other({}, "other");
        other.write(markedNoise({}, 4800));
        awaitReport("madeup-2 other");
        // What the interface took in the end belongs to nobody any more.
        stream->accepted(480);
    }
    MadeUpPcm next({}, "next");
    next.write(markedNoise({}, 480));
}

TEST_F(StreamProcess, AtTheEndOfTheProcessWhatIsThereIsPlayed) {
    const Sound sound = markedNoise({}, 9600);
    MadeUpPcm pcm({}, "");
    pcm.write(sound);
    awaitReport("madeup-1");
    pump(4);
    std::atomic<bool> isOver{false};
    std::thread device([&] {
        while (!isOver) {
            pump();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    NativeStream::finish();
    isOver = true;
    device.join();
    EXPECT_EQ(reports("madeup-1").back().is_closed, 1U);
    pump(10);
    EXPECT_EQ(differences(sound, track("madeup-1").trimmed()), kNothing);
    pcm.open("late");
    EXPECT_FALSE(pcm.use()) << "a stream was opened behind the end";
}

TEST_F(StreamProcess, AForkLeavesTheParentsStreamsAloneAndTheChildGoesOnWithItsOwn) {
    const Sound sound = markedNoise({}, 24000);
    MadeUpPcm pcm({}, "");
    pcm.write(sound.part(0, 9600));
    awaitReport("madeup-1");
    pump(10);
    pcm.use()->takesAtOnce(5000);
    const pid_t child = fork();
    if (child == 0) {
        // What the parent has opened and written is not in the child's account of it.
        pcm.write(sound.part(9600, 4800));
        const bool isOwn = pcm.use() && pcm.use()->waiting() == 4800 && pcm.use()->atOnce() == 5000;
        pcm.open("child's");
        const bool isKnown = static_cast<bool>(pcm.use());
        pcm.write(sound.part(0, 4800));
        pcm.close();
        _exit(isOwn && isKnown ? 0 : 1);
    }
    pcm.write(sound.part(9600, 14400));
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    pcm.close();
    playOut("madeup-1");
    EXPECT_EQ(differences(sound, track("madeup-1").trimmed()), kNothing);
}

TEST_F(StreamProcess, ManyThreadsOpenWriteAndCloseAtOnce) {
    std::atomic<int> running{8};
    std::vector<std::thread> programs;
    const Sound sound = markedNoise({}, 4800);
    std::vector<std::unique_ptr<MadeUpPcm>> shared(4);
    for (auto& pcm : shared) {
        pcm = std::make_unique<MadeUpPcm>(SoundFormat{}, "shared");
    }
    for (unsigned i = 0; i < 8; ++i) {
        programs.emplace_back([&, i] {
            for (int round = 0; round < 30; ++round) {
                const SoundFormat format{
                    .channels = 1 + round % 2,
                    .encoding = round % 3 == 0 ? Encoding::F32 : Encoding::S16};
                MadeUpPcm pcm(format, "");
                const Sound own = markedNoise(format, 2000, i + 1);
                pcm.write(own);
                pcm.write(own, 700);
                if (auto stream = pcm.use()) {
                    stream->flushed();
                    stream->takenBack(100);
                    stream->frozen(round % 2 == 0);
                    stream->started();
                }
                // Others close and open what is written here.
                MadeUpPcm& one = *shared[(i + static_cast<unsigned>(round)) % 4];
                if (i < 4) {
                    shared[i]->write(sound);
                } else {
                    round % 2 == 0 ? one.close() : one.open("shared");
                }
            }
            --running;
        });
    }
    while (running > 0) {
        pump();
    }
    for (std::thread& program : programs) {
        program.join();
    }
    shared.clear();
    MadeUpPcm last({}, "last");
    last.write(sound);
    EXPECT_TRUE(tqtest::eventually([&] {
        pump();
        return countReports(" last", false) > 0;
    }));
}

}  // namespace
}  // namespace bridgetests
