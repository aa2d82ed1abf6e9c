#include "RZReplayAudioRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamMixManager.h"

using testing::ElementsAre;

namespace {

/// Keeps what it is told, with the thread.
class RecordingDelegate : public RZReplayAudioRecorderInternalListener<RecordingDelegate> {
  public:
    struct Call {
        std::string name;
        const AudioBufferList* pcm;
        const RZReplayASBDInfo* info;
        std::thread::id thread;
    };
    void onAudioReceivePrePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        calls.push_back({"pre", pcm, &info, std::this_thread::get_id()});
    }
    void onAudioReceivePostPCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        calls.push_back({"post", pcm, &info, std::this_thread::get_id()});
    }
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override {
        calls.push_back({std::to_string(category) + "/" + std::to_string(code) + " " + message,
                         nullptr, nullptr, std::this_thread::get_id()});
    }
    std::int32_t getPCMDataType() override { return mask; }

    std::int32_t mask = 2;
    std::vector<Call> calls;
};

class DeafDelegate : public RZReplayAudioRecorderInternalListener<DeafDelegate> {};

/// Answers nothing but the mask, and that with 0.
class MaskOnlyDelegate : public RZReplayAudioRecorderInternalListener<MaskOnlyDelegate> {
  public:
    std::int32_t getPCMDataType() override { return 0; }
};

class RZReplayAudioRecorderTest : public testing::Test {
  protected:
    /// Until everything that was asked for so far is done.
    void drain() const {
        dispatch_sync(recorder->queue(), [] {});
    }

    const std::shared_ptr<RZReplayAudioRecorder> recorder = RZReplayAudioRecorder::create();
    RZStreamMixManager& manager = *RZStreamMixManager::sharedManager();
};

}  // namespace

TEST_F(RZReplayAudioRecorderTest, NewRecorderIsTheMixManagersCallback) {
    EXPECT_EQ(RZStreamMixManager::sharedManager(), recorder->manager());
    EXPECT_EQ(recorder, manager.callback());
    const auto second = RZReplayAudioRecorder::create();
    EXPECT_EQ(second, manager.callback()) << "a second one takes over";
}

TEST_F(RZReplayAudioRecorderTest, QueueBearsItsLabel) {
    ASSERT_NE(nullptr, recorder->queue());
    EXPECT_STREQ("RZReplayAudioRecorder", dispatch_queue_get_label(recorder->queue()));
}

TEST_F(RZReplayAudioRecorderTest, IsRecordingIsTheMixManagersStateWhateverWasSet) {
    recorder->setIsRecording(YES);
    EXPECT_FALSE(recorder->isRecording());
    manager.setIsCapturing(YES);
    recorder->setIsRecording(NO);
    EXPECT_TRUE(recorder->isRecording());
    manager.setIsCapturing(NO);
}

TEST_F(RZReplayAudioRecorderTest, DelegateIsHeldWeakly) {
    auto delegate = std::make_shared<RecordingDelegate>();
    recorder->setDelegate(delegate);
    EXPECT_EQ(delegate, recorder->delegate());
    delegate.reset();
    EXPECT_EQ(nullptr, recorder->delegate());
}

TEST_F(RZReplayAudioRecorderTest, ForwardsEverythingUnchangedOnTheCallingThread) {
    const auto delegate = std::make_shared<RecordingDelegate>();
    recorder->setDelegate(delegate);
    AudioBufferList pcm{};
    const RZReplayASBDInfo info;
    std::thread::id caller;
    std::thread([&] {
        caller = std::this_thread::get_id();
        recorder->onAudioReceivePrePCM(&pcm, info);
        recorder->onAudioReceivePostPCM(&pcm, info);
        recorder->onAudioRecordEvent(0xFFFFFFFFFFU, 0xEEEEEEEEEEU, "text");
    }).join();
    ASSERT_EQ(3U, delegate->calls.size());
    EXPECT_EQ("pre", delegate->calls[0].name);
    EXPECT_EQ("post", delegate->calls[1].name);
    EXPECT_EQ("1099511627775/1026210852590 text", delegate->calls[2].name);
    for (const auto& call : delegate->calls) {
        EXPECT_EQ(caller, call.thread);
    }
    EXPECT_EQ(&pcm, delegate->calls[0].pcm);
    EXPECT_EQ(&info, delegate->calls[0].info);
    EXPECT_EQ(&pcm, delegate->calls[1].pcm);
    EXPECT_EQ(&info, delegate->calls[1].info);
}

TEST_F(RZReplayAudioRecorderTest, MaskIsTheDelegates) {
    const auto delegate = std::make_shared<RecordingDelegate>();
    recorder->setDelegate(delegate);
    for (const std::int32_t mask : {0, 1, 2, 3, -1}) {
        delegate->mask = mask;
        EXPECT_EQ(mask, recorder->getPCMDataType());
    }
}

TEST_F(RZReplayAudioRecorderTest, WithoutDelegateTheMaskIsOneAndCallsAreDropped) {
    EXPECT_EQ(1, recorder->getPCMDataType());
    AudioBufferList pcm{};
    const RZReplayASBDInfo info;
    const auto callAll = [&] {
        recorder->onAudioReceivePrePCM(&pcm, info);
        recorder->onAudioReceivePostPCM(&pcm, info);
        recorder->onAudioRecordEvent(0, 0, "text");
    };
    callAll();
    recorder->setDelegate(std::make_shared<RecordingDelegate>());
    EXPECT_EQ(1, recorder->getPCMDataType()) << "the delegate is gone";
    callAll();
    const auto deaf = std::make_shared<DeafDelegate>();
    recorder->setDelegate(deaf);
    EXPECT_EQ(1, recorder->getPCMDataType()) << "the delegate has no such method";
    callAll();
}

TEST_F(RZReplayAudioRecorderTest, MaskZeroOfADelegateIsNotTakenForNone) {
    const auto delegate = std::make_shared<MaskOnlyDelegate>();
    recorder->setDelegate(delegate);
    EXPECT_EQ(0, recorder->getPCMDataType());
}

TEST_F(RZReplayAudioRecorderTest, StartAndStopRunOnTheQueueInTheOrderAskedFor) {
    const LogCapture log;
    manager.operatorLock()->lock();
    recorder->startRecord();
    recorder->stopRecord();
    recorder->startRecord();
    // All three calls came back although the manager cannot even begin with the first.
    EXPECT_FALSE(recorder->isRecording());
    EXPECT_TRUE(log.linesOf("-[RZStreamMixManager startCapture]").empty());
    manager.operatorLock()->unlock();
    drain();
    std::vector<std::string> order;
    for (const LogLine& line : log.lines()) {
        if (line.message == "[mix]stop capture") {
            order.emplace_back("stop");
        } else if (line.message.rfind("[mix] start capture, ", 0) == 0) {
            order.emplace_back("start");
        }
    }
    EXPECT_THAT(order, ElementsAre("start", "stop", "start"));
}

TEST_F(RZReplayAudioRecorderTest, FailedStartReachesTheDelegateAsAnEvent) {
    const auto delegate = std::make_shared<RecordingDelegate>();
    recorder->setDelegate(delegate);
    recorder->startRecord();
    drain();
    ASSERT_EQ(1U, delegate->calls.size());
    EXPECT_EQ("0/103 [mix] start capture with hook failed", delegate->calls[0].name);
    EXPECT_NE(std::this_thread::get_id(), delegate->calls[0].thread);
    EXPECT_FALSE(recorder->isRecording());
}

TEST_F(RZReplayAudioRecorderTest, StartAndStopSwitchCapture) {
    RZReplayAudioUnitGraphCapturer::startHook();
    recorder->startRecord();
    drain();
    EXPECT_TRUE(recorder->isRecording());
    recorder->stopRecord();
    drain();
    EXPECT_FALSE(recorder->isRecording());
}

TEST_F(RZReplayAudioRecorderTest, DelegateMayGoWhileCallsArePassedOn) {
    std::atomic<bool> isDone{false};
    std::thread caller([&] {
        AudioBufferList pcm{};
        const RZReplayASBDInfo info;
        while (!isDone) {
            recorder->onAudioReceivePrePCM(&pcm, info);
            EXPECT_LT(0, recorder->getPCMDataType());
        }
    });
    for (int i = 0; i < 1000; ++i) {
        const auto delegate = std::make_shared<RecordingDelegate>();
        recorder->setDelegate(delegate);
    }
    isDone = true;
    caller.join();
}
