#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "FakeListeners.h"
#include "LogCapture.h"
#include "RZReplayAudioRecorder.h"

// Blocks, events and the question for the mask, handed to every listener.

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kFanOutFile = "Classes/RZStreamCollectManager";
constexpr const char* kPre = "-[RZStreamCollectManager onAudioReceivePrePCM:description:]";
constexpr const char* kPost = "-[RZStreamCollectManager onAudioReceivePostPCM:description:]";
constexpr const char* kEvent = "-[RZStreamCollectManager onAudioRecordEvent:code:message:]";
constexpr const char* kMask = "-[RZStreamCollectManager getPCMDataType]";

class RZStreamCollectManagerFanOutTest : public testing::Test {
  protected:
    void TearDown() override {
        const auto left = manager.arrAudioListener();
        for (const auto& listener : left) {
            manager.stopAudioStreamCollect(listener);
        }
        drain();
    }
    void drain() const {
        dispatch_sync(manager.audioRecorder()->queue(), [] {});
    }
    /// Adds listeners; what the start of recording caused is over and forgotten.
    template <class... Listeners>
    void add(const Listeners&... listeners) {
        (manager.startAudioStreamCollect(listeners), ...);
        drain();
        book.clear();
        log.clear();
    }
    // Sent as the mix manager sends it: down the recorder's side.
    void sendPre() { manager.audioRecorder()->onAudioReceivePrePCM(&pcm, info); }
    void sendPost() { manager.audioRecorder()->onAudioReceivePostPCM(&pcm, info); }
    void sendEvent() { manager.audioRecorder()->onAudioRecordEvent(1, 104, "message"); }
    [[nodiscard]] auto pcmListener(const std::string& name) {
        return std::make_shared<PcmListener>(book, name);
    }
    [[nodiscard]] auto maskListener(const std::string& name, std::uint64_t mask) {
        return std::make_shared<MaskListener>(book, name, mask);
    }
    [[nodiscard]] auto fullListener(const std::string& name, std::uint64_t mask) {
        return std::make_shared<FullListener>(book, name, mask);
    }

    RZStreamCollectManager& manager = RZStreamCollectManager::sharedManager();
    AudioBufferList pcm{};
    const RZReplayASBDInfo info{};
    CallBook book;
    LogCapture log;
};

}  // namespace

TEST_F(RZStreamCollectManagerFanOutTest, PreBlocksGoToThoseThatDoNotRefuseThemInOrder) {
    add(pcmListener("no mask"), maskListener("none", 0), maskListener("pre", 1),
        maskListener("post", 2), maskListener("both", 3), maskListener("others", 0xFC));
    sendPre();
    EXPECT_THAT(book.entries(), ElementsAre("no mask", "pre", "both"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(RZStreamCollectManagerFanOutTest, ListThatIsSetLosesItsNulls) {
    manager.setArrAudioListener({nullptr, pcmListener("first"), nullptr, pcmListener("second")});
    sendPre();
    EXPECT_THAT(book.entries(), ElementsAre("first", "second"));
    EXPECT_EQ(manager.arrAudioListener().size(), 2U);
}

TEST_F(RZStreamCollectManagerFanOutTest, PostBlocksGoToThoseOnlyThatAskForThemInOrder) {
    add(pcmListener("no mask"), maskListener("none", 0), maskListener("pre", 1),
        maskListener("both", 3), maskListener("post", 2), maskListener("others", 0xFC));
    sendPost();
    EXPECT_THAT(book.entries(), ElementsAre("both", "post"));
}

TEST_F(RZStreamCollectManagerFanOutTest, BlockAndDescriptionArePassedOnThemselves) {
    const auto listener = fullListener("full", 3);
    add(listener);
    sendPre();
    EXPECT_EQ(&pcm, listener->lastPCM);
    EXPECT_EQ(&info, listener->lastInfo);
    listener->lastPCM = nullptr;
    sendPost();
    EXPECT_EQ(&pcm, listener->lastPCM);
    EXPECT_EQ(&info, listener->lastInfo);
}

TEST_F(RZStreamCollectManagerFanOutTest, EventsGoToThoseThatHearThemInOrder) {
    add(fullListener("first", 0), pcmListener("deaf"), fullListener("second", 3));
    sendEvent();
    EXPECT_THAT(book.entries(), ElementsAre("first 1/104 message", "second 1/104 message"));
}

TEST_F(RZStreamCollectManagerFanOutTest, ListenerOfNoSoundStillHearsEvents) {
    add(fullListener("none", 0));
    sendPre();
    sendPost();
    sendEvent();
    EXPECT_THAT(book.entries(), ElementsAre("none 1/104 message"));
}

TEST_F(RZStreamCollectManagerFanOutTest, MaskIsThatOfAllListenersTogether) {
    EXPECT_EQ(0, manager.getPCMDataType()) << "nobody listens";
    const auto plain = pcmListener("no mask");
    add(plain);
    EXPECT_EQ(1, manager.getPCMDataType());
    add(maskListener("post", 2));
    EXPECT_EQ(3, manager.getPCMDataType());
    EXPECT_EQ(3, manager.audioRecorder()->getPCMDataType());
    manager.stopAudioStreamCollect(plain);
    EXPECT_EQ(2, manager.getPCMDataType());
    sendPre();
    EXPECT_THAT(book.entries(), IsEmpty());
}

TEST_F(RZStreamCollectManagerFanOutTest, MaskIsCutToThirtyTwoBits) {
    add(maskListener("wide", 0x100000002U));
    EXPECT_EQ(2, manager.getPCMDataType());
    add(maskListener("top", 0x80000000U));
    EXPECT_EQ(static_cast<std::int32_t>(0x80000002U), manager.getPCMDataType());
}

TEST_F(RZStreamCollectManagerFanOutTest, MaskIsAskedForAnewEachTime) {
    const auto listener = maskListener("changing", 1);
    add(listener);
    sendPre();
    listener->mask = 2;
    sendPre();
    EXPECT_THAT(book.entries(), ElementsAre("changing"));
}

TEST_F(RZStreamCollectManagerFanOutTest, LockIsHeldDuringEveryCall) {
    const auto listener = fullListener("full", 3);
    add(listener);
    int locked = 0;
    listener->onCall = [&] {
        std::thread([&] {
            if (manager.lock()->tryLock()) {
                manager.lock()->unlock();
            } else {
                ++locked;
            }
        }).join();
    };
    sendPre();
    sendPost();
    sendEvent();
    EXPECT_EQ(3, locked);
    EXPECT_TRUE(manager.lock()->tryLock());
    manager.lock()->unlock();
}

// What listeners do wrong.

TEST_F(RZStreamCollectManagerFanOutTest, ListenerThatRemovesItselfEndsThePass) {
    const auto mutator = fullListener("mutator", 3);
    const auto later = fullListener("later", 3);
    const auto mutate = [&] { manager.stopAudioStreamCollect(mutator); };
    const struct {
        const char* function;
        std::function<void()> send;
    } passes[] = {
        {kPre, [&] { sendPre(); }}, {kPost, [&] { sendPost(); }}, {kEvent, [&] { sendEvent(); }}};
    for (const auto& pass : passes) {
        mutator->onCall = nullptr;
        manager.stopAudioStreamCollect(later);
        add(mutator, later);
        mutator->onCall = mutate;
        pass.send();
        EXPECT_EQ(1U, book.entries().size()) << pass.function;
        EXPECT_THAT(
            log.linesOf(pass.function),
            ElementsAre(IsLogLine(kFanOutFile, pass.function, 4,
                                  "obj changed the listeners while they are being called: " +
                                      classNameOf(*mutator))));
        book.clear();
        pass.send();
        EXPECT_EQ(1U, book.entries().size()) << "the next pass goes to whoever is left";
    }
}

TEST_F(RZStreamCollectManagerFanOutTest, ListenerThatAddsAnotherEndsThePass) {
    const auto adder = pcmListener("adder");
    const auto later = pcmListener("later");
    const auto added = pcmListener("added");
    add(adder, later);
    adder->onCall = [&] { manager.startAudioStreamCollect(added); };
    sendPre();
    EXPECT_THAT(book.entries(), ElementsAre("adder"));
    EXPECT_EQ(1U, log.linesOf(kPre).size());
    book.clear();
    sendPre();
    EXPECT_THAT(book.entries(), ElementsAre("adder", "later", "added"))
        << "it is there already, so nothing changes";
}

TEST_F(RZStreamCollectManagerFanOutTest, ListenerThatChangesTheListInTheMaskQuestionEndsThePass) {
    const auto mutator = maskListener("mutator", 2);
    add(mutator, maskListener("later", 1));
    mutator->onMask = [&] { manager.stopAudioStreamCollect(mutator); };
    EXPECT_EQ(2, manager.getPCMDataType()) << "what was heard so far";
    EXPECT_THAT(log.linesOf(kMask),
                ElementsAre(IsLogLine(kFanOutFile, kMask, 4,
                                      "obj changed the listeners while they are being called: " +
                                          classNameOf(*mutator))));
}

TEST_F(RZStreamCollectManagerFanOutTest, LastListenerThatRemovesItselfInThePassIsLoggedToo) {
    auto listener = pcmListener("only");
    add(listener);
    listener->onCall = [&] { manager.stopAudioStreamCollect(listener); };
    sendPre();
    EXPECT_THAT(manager.arrAudioListener(), IsEmpty());
    EXPECT_EQ(1U, log.linesOf(kPre).size());
    listener->onCall = nullptr;
}

TEST_F(RZStreamCollectManagerFanOutTest, RequestThatChangesNothingDoesNotEndThePass) {
    const auto first = pcmListener("first");
    const auto stranger = pcmListener("stranger");
    add(first, pcmListener("later"));
    first->onCall = [&] {
        manager.startAudioStreamCollect(first);
        manager.stopAudioStreamCollect(stranger);
    };
    sendPre();
    EXPECT_THAT(book.entries(), ElementsAre("first", "later"));
    EXPECT_THAT(log.linesOf(kPre), IsEmpty());
}

TEST_F(RZStreamCollectManagerFanOutTest, ListenerThatThrowsIsLoggedAndPassedOver) {
    const auto thrower = fullListener("thrower", 3);
    add(thrower, fullListener("later", 3));
    thrower->onCall = [] { throw std::runtime_error("host"); };
    const std::string message = "obj threw an exception: " + classNameOf(*thrower);
    EXPECT_NO_THROW(sendPre());
    EXPECT_THAT(log.linesOf(kPre), ElementsAre(IsLogLine(kFanOutFile, kPre, 4, message)));
    EXPECT_NO_THROW(sendPost());
    EXPECT_THAT(log.linesOf(kPost), ElementsAre(IsLogLine(kFanOutFile, kPost, 4, message)));
    EXPECT_NO_THROW(sendEvent());
    EXPECT_THAT(log.linesOf(kEvent), ElementsAre(IsLogLine(kFanOutFile, kEvent, 4, message)));
    EXPECT_THAT(book.entries(), ElementsAre("thrower", "later", "thrower", "later",
                                            "thrower 1/104 message", "later 1/104 message"));
}

TEST_F(RZStreamCollectManagerFanOutTest, ListenerThatThrowsInTheMaskQuestionCountsAsNothing) {
    const auto thrower = maskListener("thrower", 1);
    add(thrower, maskListener("post", 2));
    thrower->onMask = [] { throw 1; };
    EXPECT_EQ(2, manager.getPCMDataType());
    EXPECT_EQ(1U, log.linesOf(kMask).size());
    EXPECT_NO_THROW(sendPre());
    EXPECT_THAT(book.entries(), IsEmpty()) << "it gets no block either";
}

TEST_F(RZStreamCollectManagerFanOutTest, ListenerThatRemovesItselfAndThrowsEndsThePass) {
    const auto mutator = pcmListener("mutator");
    add(mutator, pcmListener("later"));
    mutator->onCall = [&] {
        manager.stopAudioStreamCollect(mutator);
        throw std::runtime_error("host");
    };
    EXPECT_NO_THROW(sendPre());
    EXPECT_THAT(book.entries(), ElementsAre("mutator"));
    EXPECT_EQ(2U, log.linesOf(kPre).size());
}

// Checked by the thread sanitizer as well.

TEST_F(RZStreamCollectManagerFanOutTest, ListenersComeAndGoWhileBlocksAreDelivered) {
    const auto staying = fullListener("staying", 3);
    std::atomic<int> delivered{0};
    add(staying);
    staying->onCall = [&] { ++delivered; };
    std::atomic<bool> isDone{false};
    std::thread sender([&] {
        while (!isDone) {
            sendPre();
            sendPost();
            sendEvent();
            EXPECT_EQ(3, manager.getPCMDataType() & 3);
        }
    });
    for (int i = 0; i < 300 || delivered == 0; ++i) {
        const auto passing = fullListener("passing", 3);
        EXPECT_TRUE(manager.startAudioStreamCollect(passing));
        EXPECT_TRUE(manager.stopAudioStreamCollect(passing));
    }
    isDone = true;
    sender.join();
    EXPECT_LT(0, delivered);
    EXPECT_EQ(1U, manager.arrAudioListener().size());
}
