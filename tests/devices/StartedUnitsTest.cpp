// Units that are started and stopped again and again, and beside one another.

#include "devices/ServerRun.h"
#include "support/sound/Comparison.h"

namespace {

using namespace tqtest;

/// What 16 bits and their rounding on the way change.
constexpr double kRounding = 2.0 / 32768;

/// What keeps `heard` from being the tone, from its first frame to some later one, and the noise
/// added to it from some frame of the tone on. Empty when nothing does.
std::string sumFault(const Sound& heard, const Sound& tone, const Sound& noise) {
    const std::size_t first = heard.silenceAtStart() - 1;  // a tone begins with a zero
    const auto at = [](const Sound& sound, std::size_t frame) {
        return frame < sound.frames() ? sound.value(frame, 0) : 0;
    };
    const auto besides = [&](std::size_t frame) {
        return at(heard, first + frame) - at(tone, frame);
    };
    std::size_t second = 0;
    while (second < tone.frames() && std::abs(besides(second)) < kRounding) {
        ++second;
    }
    // Of the tone up to where it was stopped, of nothing behind it.
    bool isStopped = false;
    for (std::size_t frame = 0; frame < noise.frames(); ++frame) {
        const double rest = at(heard, first + second + frame) - at(noise, frame);
        isStopped = isStopped || std::abs(rest - at(tone, second + frame)) > kRounding;
        if (isStopped && std::abs(rest) > kRounding) {
            return "frame " + std::to_string(frame) + " of the noise, which began with frame " +
                   std::to_string(second) + " of the tone";
        }
    }
    const bool isMore = heard.frames() - heard.silenceAtEnd() > first + second + noise.frames();
    return second < 4800 || second == tone.frames() || !isStopped || isMore
               ? "begun at " + std::to_string(second) + " of the tone"
               : "";
}

template <typename Server>
class StartedUnits : public ServerRun<Server> {};

TYPED_TEST_SUITE(StartedUnits, SoundServers, SoundServerNames);

TYPED_TEST(StartedUnits, AreOneStreamOfTheirSumWhileBothPlay) {
    const Sound noise = devicePlayerNoise();
    const Sound playedTone = tone(devicePlayerFormat(), noise.frames(), 440);
    std::string fault = "not tried";
    std::size_t streams = 0;
    // On a machine with more to do than it can the server leaves holes: not every time.
    for (int attempt = 0; attempt < 6 && !fault.empty(); ++attempt) {
        const std::string seen = this->file("seen" + std::to_string(attempt));
        const auto recording = this->server_.record();
        this->run({"duration:0.08", "start2", "sleep:0.5", "start", "sleep:0.3", "say", "stop2",
                   "end", "await:" + seen, "stop"});
        ASSERT_TRUE(this->says("descriptors=")) << this->program_->text();
        streams = this->streams();
        std::ofstream(seen) << "seen";
        const ProgramEnd end = this->finish();
        ASSERT_EQ(end["done"], "1") << end.text();
        fault = sumFault(recording->finish(), playedTone, noise);
    }
    EXPECT_EQ(fault, "");
    EXPECT_EQ(streams, 1U);
}

TYPED_TEST(StartedUnits, LeaveNothingBehindAfterTwoHundredTimes) {
    this->run({"cycles:1", "sleep:0.5", "say", "await:" + this->file("begins"), "cycles:200",
               "sleep:0.5", "say", "await:" + this->file("ends")});
    ASSERT_TRUE(this->says("descriptors=")) << this->program_->text();
    const auto clients = [&] {
        return this->timesIn(this->pactl({"list", "short", "clients"}), "\n");
    };
    const std::size_t before = clients();
    this->go("begins");
    ASSERT_TRUE(this->says("descriptors=", 2)) << this->program_->text();
    EXPECT_TRUE(eventually([&] { return this->streams() == 0; }));
    EXPECT_EQ(clients(), before);
    this->go("ends");
    const ProgramEnd end = this->finish();
    ASSERT_EQ(end["done"], "1") << end.text();
    const auto threads = this->valuesOf(end.output, "threads");
    EXPECT_LE(threads.at(1), threads.at(0) + 1) << "the clock's is kept";
    const auto descriptors = this->valuesOf(end.output, "descriptors");
    EXPECT_EQ(descriptors.at(1), descriptors.at(0));
}

}  // namespace
