#include <gtest/gtest.h>

#include <fstream>
#include <ostream>

#include "bridges/programs/ProgramRun.h"

// Players with six channels: the mix has each of them where the interface says that it is heard.

namespace programruns {
namespace {

constexpr double kLower = 0.7071;  // by 3 dB
constexpr std::array<double, 2> kLeft{1, 0};
constexpr std::array<double, 2> kRight{0, 1};
constexpr std::array<double, 2> kMiddle{kLower, kLower};
constexpr std::array<double, 2> kLow{0, 0};
constexpr std::array<double, 2> kBackLeft{kLower, 0};
constexpr std::array<double, 2> kBackRight{0, kLower};

struct Player {
    std::string name;
    std::unique_ptr<Output> (*makeOutput)();
    std::vector<std::string> command;  ///< the file that it plays comes behind it
    std::array<std::array<double, 2>, 6> gains;
};

void PrintTo(const Player& player, std::ostream* out) {
    *out << player.name;
}

template <typename Kind>
std::unique_ptr<Output> make() {
    return std::make_unique<Kind>();
}

constexpr auto kAlsa = make<FileOutput<tqtest::AlsaFilePcm>>;
constexpr auto kPulse = make<ServerOutput<tqtest::PulseServer>>;
constexpr auto kPipeWire = make<ServerOutput<tqtest::PipeWireServer>>;
constexpr int kRate = 44100;

/// A device that knows one order, which is not ALSA's usual one.
class MappedAlsa : public FileOutput<tqtest::AlsaFilePcm> {
  public:
    MappedAlsa() {
        std::ofstream(folder().file("asound.conf"))
            << "pcm.cap { type null chmap [ \"FL,FR,FC,LFE,RL,RR\" ] }";
    }
};

class SpeakersTest : public testing::TestWithParam<Player> {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
#endif
    }
    std::unique_ptr<Output> output_ = GetParam().makeOutput();
};

TEST_P(SpeakersTest, EachOfSixChannelsIsInTheMixWhereItIsHeard) {
    const tqtest::Sound sound = oneChannelAfterTheOther(kRate);
    std::vector<std::string> command = GetParam().command;
    command.push_back(output_->folder().file("six"));
    if (command.front() == "pw-play") {
        writeWav(sound, command.back());
    } else {
        std::ofstream(command.back(), std::ios::binary) << sound.bytes;
    }
    const ProgramRun run = runRecorded(*output_, command);
    EXPECT_EQ(run.end.code, 0) << run.end.text();
    expectTrackHolds(run, sound);
    expectFolded(run, GetParam().gains);
}

const std::vector<std::string> kAplay{"aplay", "-q", "-t", "raw",   "-f", "S16_LE",
                                      "-c",    "6",  "-r", "44100", "-D", "cap"};

std::vector<std::string> paplay(const std::string& map) {
    return {"paplay",       "--raw",        "--format=s16le",
            "--rate=44100", "--channels=6", "--channel-map=" + map};
}

INSTANTIATE_TEST_SUITE_P(
    Debian, SpeakersTest,
    testing::Values(
        Player{"aplay", kAlsa, kAplay, {kLeft, kRight, kBackLeft, kBackRight, kMiddle, kLow}},
        Player{"aplayWhereTheDeviceSaysIt",
               make<MappedAlsa>,
               kAplay,
               {kLeft, kRight, kMiddle, kLow, kBackLeft, kBackRight}},
        Player{"paplay",
               kPulse,
               paplay("front-left,front-right,front-center,lfe,rear-left,rear-right"),
               {kLeft, kRight, kMiddle, kLow, kBackLeft, kBackRight}},
        Player{"paplayOtherOrder",
               kPulse,
               paplay("front-left,front-center,front-right,side-left,side-right,lfe"),
               {kLeft, kMiddle, kRight, kBackLeft, kBackRight, kLow}},
        Player{"pwPlay",
               kPipeWire,
               {"pw-play", "--channel-map=FL,FR,FC,LFE,SL,SR"},
               {kLeft, kRight, kMiddle, kLow, kBackLeft, kBackRight}}),
    [](const testing::TestParamInfo<Player>& each) { return each.param.name; });

}  // namespace
}  // namespace programruns
