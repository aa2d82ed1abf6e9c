#include "device/Device.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

using tqcommon::AudioView;
using tqcommon::ConstAudioView;
using tqplatform::Backend;
using tqplatform::BackendHost;
using tqplatform::BackendRow;
using tqplatform::BlockRequest;
using tqplatform::Device;
using tqplatform::DeviceClient;
using tqplatform::DeviceFormat;
using tqplatform::DeviceSlice;

/// What happens to made-up backends, and what they are to do. They have no thread: tests ask for
/// blocks themselves.
struct Stage {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> verbs;  ///< "open a", "start a", "end a", ...
    DeviceFormat format{48000, 2, 2, 256};
    std::string broken;   ///< verbs that fail, for example "open a"
    std::string starved;  ///< verbs that run out of memory
    BackendHost* host = nullptr;

    /// Notes the verb; false when it is to fail.
    bool note(const std::string& verb) {
        const std::lock_guard lock(mutex);
        verbs.push_back(verb);
        changed.notify_all();
        if (starved.find(verb) != std::string::npos) {
            throw std::bad_alloc();
        }
        return broken.find(verb) == std::string::npos;
    }
    std::vector<std::string> noted() {
        const std::lock_guard lock(mutex);
        return std::exchange(verbs, {});
    }
    bool waitFor(const std::string& last) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(20),
                                [&] { return !verbs.empty() && verbs.back() == last; });
    }
};

Stage stage;

class MadeUp final : public Backend {
  public:
    explicit MadeUp(const char* name) : name_(name) {}
    ~MadeUp() override { stage.note("end " + name_); }
    std::optional<DeviceFormat> open(BackendHost& host) override {
        if (!stage.note("open " + name_)) {
            return std::nullopt;
        }
        stage.host = &host;
        return stage.format;
    }
    bool start() override { return stage.note("start " + name_); }
    void stop() noexcept override { stage.note("stop " + name_); }
    void forgetAfterFork() noexcept override { stage.note("forget " + name_); }

  private:
    std::string name_;
};

constexpr BackendRow kRows[] = {
    {"hand", [] { return std::unique_ptr<Backend>(std::make_unique<MadeUp>("hand")); }, false},
    {"first", [] { return std::unique_ptr<Backend>(std::make_unique<MadeUp>("first")); }, true},
    {"last", [] { return std::unique_ptr<Backend>(std::make_unique<MadeUp>("last")); }, true},
};

class Client final : public DeviceClient {
  public:
    explicit Client(std::function<void(const DeviceSlice&)> body = {}) : body_(std::move(body)) {}
    void render(const DeviceSlice& slice) noexcept override {
        ++slices;
        if (body_) {
            body_(slice);
        }
    }
    int slices = 0;

  private:
    std::function<void(const DeviceSlice&)> body_;
};

using Verbs = std::vector<std::string>;

/// A device that stays: helpers of its own may look at it to the end of the process.
Device& open(const char* name) {
    static std::vector<std::unique_ptr<Device>>& all = *new std::vector<std::unique_ptr<Device>>;
    return *all.emplace_back(Device::open(name, kRows));
}

TEST(Device, OpensTheFirstBackendThatCan) {
    stage.broken = "open first";
    const auto device = Device::open("auto", kRows);
    EXPECT_EQ(device->name(), "last");
    EXPECT_EQ(stage.noted(), (Verbs{"open first", "end first", "open last"}));
}

TEST(Device, OpensNoOtherThanTheNamedOne) {
    EXPECT_EQ(Device::open("hand", kRows)->name(), "hand");
    EXPECT_EQ(Device::open("nobody", kRows), nullptr);
    stage.broken = "open hand";
    EXPECT_EQ(Device::open("hand", kRows), nullptr);
}

TEST(Device, TakesNoBackendWithAnImpossibleFormat) {
    for (const DeviceFormat& format :
         {DeviceFormat{0, 2, 2, 256}, DeviceFormat{48000, 0, 2, 256},
          DeviceFormat{48000, 2, 65, 256}, DeviceFormat{48000, 2, 2, 0}}) {
        stage.format = format;
        EXPECT_EQ(Device::open("hand", kRows), nullptr);
    }
}

TEST(Device, RunsFromTheFirstClientToTheLast) {
    Device& device = open("hand");
    Client one, two;
    EXPECT_TRUE(device.addClient(one));
    EXPECT_TRUE(device.addClient(two));
    device.removeClient(one);
    EXPECT_EQ(stage.noted(), (Verbs{"open hand", "start hand"}));
    device.removeClient(two);
    device.removeClient(two);
    EXPECT_EQ(stage.noted(), (Verbs{"stop hand"}));
}

TEST(Device, RestsBehindASliceInWhichTheLastClientLeft) {
    Device& device = open("hand");
    Client* self = nullptr;
    Client client([&](const DeviceSlice&) {
        device.removeClient(*self);
        EXPECT_EQ(stage.noted(), (Verbs{"open hand", "start hand"}));
    });
    self = &client;
    ASSERT_TRUE(device.addClient(client));
    stage.host->render({64, 0});
    EXPECT_EQ(stage.noted(), (Verbs{"stop hand"}));
    ASSERT_TRUE(device.addClient(client));
    EXPECT_EQ(stage.noted(), (Verbs{"start hand"}));
}

TEST(Device, CountsAllFramesOfAllBlocks) {
    Device& device = open("hand");
    std::vector<Float64> sampleTimes;
    std::vector<UInt64> hostTimes;
    Client client([&](const DeviceSlice& slice) {
        sampleTimes.push_back(slice.time->mSampleTime);
        hostTimes.push_back(slice.time->mHostTime);
    });
    stage.host->render({100, 1});
    ASSERT_TRUE(device.addClient(client));
    EXPECT_EQ(stage.host->render({50, 2}).mSampleTime, 100);
    EXPECT_EQ(stage.host->render({50, 3}).mHostTime, 3U);
    EXPECT_EQ(sampleTimes, (std::vector<Float64>{100, 150}));
    EXPECT_EQ(hostTimes, (std::vector<UInt64>{2, 3}));
}

TEST(Device, GivesBlocksBeyondItsMaximumInParts) {
    Device& device = open("hand");
    std::vector<UInt32> frames;
    std::vector<UInt64> hostTimes;
    Client client([&](const DeviceSlice& slice) {
        frames.push_back(slice.frames());
        hostTimes.push_back(slice.time->mHostTime);
        for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
            slice.output.at(0, frame) = slice.input.at(0, frame);
            slice.output.at(1, frame) =
                static_cast<float>(slice.time->mSampleTime) + static_cast<float>(frame);
        }
    });
    ASSERT_TRUE(device.addClient(client));
    std::vector<float> heard(1200), played(1200);
    for (std::size_t sample = 0; sample < heard.size(); ++sample) {
        heard[sample] = -static_cast<float>(sample);
    }
    stage.host->render({600, 1'000'000, AudioView(heard.data(), 2, 600, 600),
                        AudioView(played.data(), 2, 600, 600)});
    EXPECT_EQ(frames, (std::vector<UInt32>{256, 256, 88}));
    EXPECT_EQ(hostTimes, (std::vector<UInt64>{1'000'000, 6'333'333, 11'666'666}));
    for (std::size_t frame = 0; frame < 600; ++frame) {
        ASSERT_EQ(played[frame], heard[frame]);
        ASSERT_EQ(played[600 + frame], static_cast<float>(frame));
    }
}

TEST(Device, HearsAndPlaysInterleavedToo) {
    Device& device = open("hand");
    const auto add = [](const DeviceSlice& slice) {
        for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
            slice.output.at(0, frame) = slice.input.plane(1)[frame];
            slice.output.at(1, frame) = 0.5F;
        }
    };
    Client one(add), two(add);
    ASSERT_TRUE(device.addClient(one));
    ASSERT_TRUE(device.addClient(two));
    std::vector<float> heard{1, 10, 2, 20, 3, 30}, played(6, 99.0F);
    stage.host->render({3, 0, ConstAudioView::interleaved(heard.data(), 2, 3),
                        AudioView::interleaved(played.data(), 2, 3)});
    EXPECT_EQ(played, (std::vector<float>{20, 1, 40, 1, 60, 1}));
}

TEST(Device, WithoutAMicrophoneHearsSilence) {
    Device& device = open("hand");
    float heard = 0;
    Client client([&](const DeviceSlice& slice) {
        for (UInt32 frame = 0; frame < slice.frames(); ++frame) {
            heard += slice.input.at(0, frame) + slice.input.at(1, frame);
        }
    });
    ASSERT_TRUE(device.addClient(client));
    std::vector<float> loud(128, 1.0F);
    stage.host->render({64, 0, ConstAudioView::interleaved(loud.data(), 2, 64)});
    EXPECT_EQ(heard, 128);
    stage.host->render({64, 0});
    EXPECT_EQ(heard, 128);
}

TEST(Device, FollowsABackendThatChangesItsFormat) {
    Device& device = open("hand");
    UInt32 outputs = 0, inputs = 0;
    Client client([&](const DeviceSlice& slice) {
        outputs = slice.output.channels();
        inputs = slice.input.channels();
    });
    ASSERT_TRUE(device.addClient(client));
    stage.host->changed({96000, 6, 0, 1024});
    EXPECT_EQ(device.sampleRate(), 96000);
    EXPECT_EQ(device.outputChannels(), 6U);
    EXPECT_EQ(device.inputChannels(), 0U);
    EXPECT_EQ(device.maximumFrames(), 256U) << "clients have made their memory";
    stage.host->render({64, 0});
    EXPECT_EQ(outputs, 6U);
    EXPECT_EQ(inputs, 0U);
    EXPECT_EQ(stage.noted(), (Verbs{"open hand", "start hand"}));
}

TEST(Device, OpensALostBackendAgainAndGoesOn) {
    Device& device = open("hand");
    Client client;
    ASSERT_TRUE(device.addClient(client));
    stage.host->render({64, 0});
    stage.noted();
    stage.format.sampleRate = 44100;
    stage.host->lost();
    ASSERT_TRUE(stage.waitFor("start hand"));
    EXPECT_EQ(stage.noted(), (Verbs{"end hand", "open hand", "start hand"}));
    EXPECT_EQ(device.sampleRate(), 44100);
    EXPECT_EQ(stage.host->render({64, 0}).mSampleTime, 64);
    EXPECT_EQ(client.slices, 2);
}

TEST(Device, GoesOnWithTheLastOfTheTableWhenALostOneDoesNotComeBack) {
    Device& device = open("hand");
    Client client;
    ASSERT_TRUE(device.addClient(client));
    stage.broken = "open hand";
    stage.noted();
    stage.host->lost();
    ASSERT_TRUE(stage.waitFor("start last"));
    EXPECT_EQ(stage.noted(),
              (Verbs{"end hand", "open hand", "end hand", "open last", "start last"}));
    EXPECT_EQ(device.name(), "last");
}

TEST(Device, ALossInsideARenderWaitsForNobody) {
    Device& device = open("hand");
    Client client([&](const DeviceSlice&) { stage.host->lost(); });
    ASSERT_TRUE(device.addClient(client));
    stage.noted();
    stage.host->render({64, 0});
    EXPECT_TRUE(stage.waitFor("start hand"));
}

TEST(Device, ALossWhileNobodyPlaysStartsNothing) {
    open("hand");
    stage.noted();
    stage.host->lost();
    ASSERT_TRUE(stage.waitFor("open hand"));
    EXPECT_EQ(stage.noted(), (Verbs{"end hand", "open hand"}));
}

TEST(Device, AnImpossibleNewFormatIsALoss) {
    Device& device = open("hand");
    Client client;
    ASSERT_TRUE(device.addClient(client));
    stage.noted();
    stage.host->changed({-1, 2, 2, 256});
    ASSERT_TRUE(stage.waitFor("start hand"));
    EXPECT_EQ(stage.noted(), (Verbs{"end hand", "open hand", "start hand"}));
    EXPECT_EQ(device.sampleRate(), 48000);
}

TEST(Device, ABackendThatCannotStartIsReplaced) {
    Device& device = open("hand");
    Client client;
    stage.broken = "start hand";
    EXPECT_TRUE(device.addClient(client));
    EXPECT_EQ(device.name(), "last");
    EXPECT_EQ(stage.noted(), (Verbs{"open hand", "start hand", "end hand", "open hand",
                                    "start hand", "end hand", "open last", "start last"}));
}

TEST(Device, TakesNoClientWhenNothingStarts) {
    Device& device = open("hand");
    Client client;
    stage.broken = "start hand start last";
    EXPECT_FALSE(device.addClient(client));
    stage.broken.clear();
    stage.host->render({64, 0});
    EXPECT_EQ(client.slices, 0);
    EXPECT_TRUE(device.addClient(client));
}

TEST(Device, ABackendThatStartsWithoutMemoryIsAskedAgain) {
    Device& device = open("hand");
    Client client;
    stage.starved = "start hand start last";
    EXPECT_FALSE(device.addClient(client));
    stage.starved.clear();
    stage.noted();
    EXPECT_TRUE(device.addClient(client));
    EXPECT_EQ(stage.noted(), (Verbs{"start last"}));
    stage.host->render({64, 0});
    EXPECT_EQ(client.slices, 1);
}

TEST(Device, AfterAForkTheChildStartsAnew) {
    Device& device = open("hand");
    Client client;
    ASSERT_TRUE(device.addClient(client));
    stage.noted();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);
        device.resetAfterFork();
        stage.host->render({64, 0});
        Client own;
        const bool added = device.addClient(own);
        stage.host->render({64, 0});
        _exit(added && client.slices == 0 && own.slices == 1 &&
                      stage.noted() == Verbs{"forget hand", "start hand"}
                  ? 0
                  : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(Device, AChildForkedWithoutABackendOpensOne) {
    Device& device = open("hand");
    stage.broken = "open hand open last";
    stage.host->lost();
    ASSERT_TRUE(stage.waitFor("end last"));
    Client client;
    EXPECT_FALSE(device.addClient(client));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);
        stage.broken.clear();
        device.resetAfterFork();
        const bool added = device.addClient(client);
        stage.host->render({64, 0});
        _exit(added && client.slices == 1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(Device, AChildForkedInASliceKeepsItsBackendsThread) {
    Device& device = open("hand");
    int status = -1;
    Client client([&](const DeviceSlice&) {
        stage.noted();
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            device.resetAfterFork();
        } else {
            waitpid(child, &status, 0);
        }
    });
    ASSERT_TRUE(device.addClient(client));
    const pid_t parent = getpid();
    stage.host->render({64, 0});
    if (getpid() != parent) {
        _exit(stage.noted() == Verbs{"stop hand"} ? 0 : 1);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
