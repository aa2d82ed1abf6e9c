// Servers other than PulseAudio that die or stand still while a program plays, and come back.

#include <chrono>

#include "devices/ServerRun.h"
#include "support/servers/FileOutputs.h"
#include "support/servers/JackServer.h"

namespace {

using namespace tqtest;

struct DyingJack : JackServer {
    static constexpr const char* kDevice = "cubeb:jack";
    static constexpr const char* kNotices = "interruption=1 interruption=0";
};

/// The plug-in for PulseAudio, whose server dies.
class DyingAlsa {
  public:
    static constexpr const char* kDevice = "cubeb:alsa";
    // It does not have the rate that the program prefers.
    static constexpr const char* kNotices = "route=8 interruption=1 interruption=0";

    [[nodiscard]] Environment environment() const {
        Environment environment = output_.environment();
        // ALSA's settings are read by each open of libcubeb and given back by none.
        environment["ASAN_OPTIONS"] = "detect_leaks=0";
        // And the plug-in's server library is built without the thread sanitizer.
        environment["TSAN_OPTIONS"] = "report_bugs=0";
        return environment;
    }
    [[nodiscard]] std::unique_ptr<Recording> record() const { return server_.record(); }
    void kill() { server_.kill(); }
    void start() { server_.start(); }

  private:
    PulseServer server_{devicePlayerFormat()};
    AlsaFilePcm output_{server_};
};

struct DyingNames {
    template <typename Server>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Server, DyingJack> ? "Jack" : "AlsaOverPulseAudio";
    }
};

template <typename Server>
class DyingServer : public ServerRun<Server> {
  protected:
    [[nodiscard]] bool isHeard() const {
        const auto recording = this->server_.record();
        return eventually([&] { return longestCount(recording->soFar()) >= this->kHeard; });
    }
};

using DyingServers = testing::Types<DyingJack, DyingAlsa>;
TYPED_TEST_SUITE(DyingServer, DyingServers, DyingNames);

TYPED_TEST(DyingServer, IsAnInterruptionInWhichUnitsKeepTheirCallbacks) {
    this->run({"rate:48000", "duration:0.08", "start3", "await:" + this->file("killed"),
               "more:24000", "say", "await:" + this->file("ends"), "stop3"},
              {}, TypeParam::kDevice);
    ASSERT_TRUE(this->isHeard()) << this->program_->text();
    const auto killed = std::chrono::steady_clock::now();
    this->server_.kill();
    ASSERT_TRUE(this->says("interruption=1")) << this->program_->text();
    const auto noticed = std::chrono::steady_clock::now() - killed;
    EXPECT_LT(noticed, std::chrono::seconds(9)) << "by its silence, then";
    this->go("killed");
    EXPECT_TRUE(this->says("descriptors=")) << "the clock goes on: " << this->program_->text();
    this->server_.start();
    ASSERT_TRUE(this->says("interruption=0")) << this->program_->text();
    EXPECT_TRUE(this->isHeard()) << this->program_->text();
    this->go("ends");
    const ProgramEnd end = this->finish();
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(this->noticesIn(end.output), TypeParam::kNotices);
}

using ListeningOnJack = ServerRun<JackServer>;

TEST_F(ListeningOnJack, WhoListensAloneIsToldOnceThatTheServerHasGoneAndOnceThatItIsBack) {
    run({"alone", "listen", "sleep:1", "say", "await:" + file("gone"), "say",
         "await:" + file("back"), "say", "heard:/dev/null"},
        {}, "cubeb:jack");
    ASSERT_TRUE(says("hearing=1")) << program_->text();
    server_.kill();
    EXPECT_TRUE(says("route=2")) << program_->text();
    go("gone");
    EXPECT_TRUE(says("hearing=0")) << program_->text();
    server_.start();
    EXPECT_TRUE(says("route=1")) << program_->text();
    go("back");
    const ProgramEnd end = finish();
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(end["hearing"], "1") << end.text();
    EXPECT_EQ(noticesIn(end.output), "") << end.text();
}

using PlayedPipeWire = ServerRun<PipeWireServer>;

TEST_F(PlayedPipeWire, StandsStillAndGoesOnWhichIsToldEachTime) {
    run({"duration:0.08", "start3", "await:" + file("ends"), "stop3"});
    ASSERT_TRUE(isHeardOn()) << program_->text();
    server_.freeze();
    EXPECT_TRUE(says("route=2")) << program_->text();
    server_.thaw();
    EXPECT_TRUE(says("route=1")) << program_->text();
    EXPECT_TRUE(isHeardOn()) << program_->text();
    go("ends");
    const ProgramEnd end = finish();
    EXPECT_EQ(end["done"], "1") << end.text();
    EXPECT_EQ(noticesIn(end.output), "") << "no interruption";
}

}  // namespace
