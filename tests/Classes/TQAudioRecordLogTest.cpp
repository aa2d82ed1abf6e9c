#include "TQAudioRecordLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TQAudioRecordLogList.h"

namespace {

/// What the callbacks below did, in order.
std::vector<std::string> calls;

void callbackA(const char*, const char*, NSString*, int, int, NSString*) {
    calls.emplace_back("A");
}
void callbackB(const char*, const char*, NSString*, int, int, NSString*) {
    calls.emplace_back("B");
}
void callbackC(const char*, const char*, NSString*, int, int, NSString*) {
    calls.emplace_back("C");
}

void logSomething() {
    const NSRef<NSString> tag = NSString::create("tag");
    const NSRef<NSString> message = NSString::create("message");
    TQAudioRecordLog("file", "function", tag.get(), 2, 7, message.get());
}

class TQAudioRecordLogTest : public testing::Test {
  protected:
    void SetUp() override { calls.clear(); }
    /// The sink outlives a test; whatever a test registered goes.
    void TearDown() override {
        for (const auto callback : {callbackA, callbackB, callbackC}) {
            while (TQAudioRecordUnregisterYLogCallback(callback) == 1) {
            }
        }
    }
};

}  // namespace

TEST_F(TQAudioRecordLogTest, WithoutCallbacksNothingHappens) {
    logSomething();
    EXPECT_TRUE(calls.empty());
    EXPECT_FALSE(isTQAudioRecordLogObserved());
}

TEST_F(TQAudioRecordLogTest, HandsTheSixArgumentsOverUnchanged) {
    static const char* const file = "Classes/Some";
    static const char* const function = "-[Some thing]";
    static const NSRef<NSString> tag = NSString::create("the tag");
    static const NSRef<NSString> message = NSString::create("the message");
    static bool isSame = false;
    const auto callback = [](const char* f, const char* fn, NSString* t, int level, int line,
                             NSString* m) {
        isSame = f == file && fn == function && t == tag.get() && level == 3 && line == 42 &&
                 m == message.get();
    };
    ASSERT_EQ(1, TQAudioRecordRegisterYLogCallback(callback));
    TQAudioRecordLog(file, function, tag.get(), 3, 42, message.get());
    EXPECT_EQ(1, TQAudioRecordUnregisterYLogCallback(callback));
    EXPECT_TRUE(isSame);
}

TEST_F(TQAudioRecordLogTest, PassesAnyLevelAndNullTextsOn) {
    static bool isCalled = false;
    const auto callback = [](const char* f, const char* fn, NSString* t, int level, int line,
                             NSString* m) {
        isCalled = f == nullptr && fn == nullptr && t == nullptr && level == -9 && line == -1 &&
                   m == nullptr;
    };
    ASSERT_EQ(1, TQAudioRecordRegisterYLogCallback(callback));
    TQAudioRecordLog(nullptr, nullptr, nullptr, -9, -1, nullptr);
    EXPECT_EQ(1, TQAudioRecordUnregisterYLogCallback(callback));
    EXPECT_TRUE(isCalled);
}

TEST_F(TQAudioRecordLogTest, CallsTheNewestRegistrationFirst) {
    EXPECT_EQ(1, TQAudioRecordRegisterYLogCallback(callbackA));
    EXPECT_EQ(1, TQAudioRecordRegisterYLogCallback(callbackB));
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"B", "A"}), calls);
}

TEST_F(TQAudioRecordLogTest, UnregisteringTwiceAnswersOneThenZero) {
    TQAudioRecordRegisterYLogCallback(callbackA);
    EXPECT_TRUE(isTQAudioRecordLogObserved());
    EXPECT_EQ(1, TQAudioRecordUnregisterYLogCallback(callbackA));
    EXPECT_EQ(0, TQAudioRecordUnregisterYLogCallback(callbackA));
    EXPECT_FALSE(isTQAudioRecordLogObserved());
    logSomething();
    EXPECT_TRUE(calls.empty());
}

TEST_F(TQAudioRecordLogTest, NullIsNeitherRegisteredNorUnregistered) {
    TQAudioRecordRegisterYLogCallback(callbackA);
    EXPECT_EQ(0, TQAudioRecordRegisterYLogCallback(nullptr));
    EXPECT_EQ(0, TQAudioRecordUnregisterYLogCallback(nullptr));
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"A"}), calls);
}

TEST_F(TQAudioRecordLogTest, OneCallbackRegisteredTwiceIsCalledTwice) {
    TQAudioRecordRegisterYLogCallback(callbackA);
    TQAudioRecordRegisterYLogCallback(callbackA);
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"A", "A"}), calls);
    EXPECT_EQ(1, TQAudioRecordUnregisterYLogCallback(callbackA));
    calls.clear();
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"A"}), calls);
}

TEST_F(TQAudioRecordLogTest, UnregisteringTakesTheNewestOfEqualRegistrations) {
    TQAudioRecordRegisterYLogCallback(callbackA);
    TQAudioRecordRegisterYLogCallback(callbackB);
    TQAudioRecordRegisterYLogCallback(callbackA);
    TQAudioRecordUnregisterYLogCallback(callbackA);
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"B", "A"}), calls);
}

TEST_F(TQAudioRecordLogTest, CallbackMayLog) {
    static int depth = 0;
    const auto callback = [](const char*, const char*, NSString*, int, int, NSString*) {
        calls.push_back("depth " + std::to_string(depth));
        if (depth++ == 0) {
            logSomething();
        }
    };
    TQAudioRecordRegisterYLogCallback(callback);
    logSomething();
    TQAudioRecordUnregisterYLogCallback(callback);
    EXPECT_EQ((std::vector<std::string>{"depth 0", "depth 1"}), calls);
}

TEST_F(TQAudioRecordLogTest, CallbackThatUnregistersItselfDoesNotEndTheDispatch) {
    static void (*once)(const char*, const char*, NSString*, int, int, NSString*) = nullptr;
    once = [](const char*, const char*, NSString*, int, int, NSString*) {
        calls.emplace_back("once");
        TQAudioRecordUnregisterYLogCallback(once);
    };
    TQAudioRecordRegisterYLogCallback(callbackA);
    TQAudioRecordRegisterYLogCallback(once);
    logSomething();
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"once", "A", "A"}), calls);
}

TEST_F(TQAudioRecordLogTest, CallbackRemovedDuringTheDispatchIsNotCalledAnyMore) {
    const auto remover = [](const char*, const char*, NSString*, int, int, NSString*) {
        TQAudioRecordUnregisterYLogCallback(callbackB);
    };
    TQAudioRecordRegisterYLogCallback(callbackA);
    TQAudioRecordRegisterYLogCallback(callbackB);
    TQAudioRecordRegisterYLogCallback(remover);
    logSomething();
    TQAudioRecordUnregisterYLogCallback(remover);
    EXPECT_EQ((std::vector<std::string>{"A"}), calls);
}

TEST_F(TQAudioRecordLogTest, CallbackThatRemovesItselfAndTheNextOneIsFollowedByTheOneAfter) {
    static TQAudioRecordLogCallback self = nullptr;
    self = [](const char*, const char*, NSString*, int, int, NSString*) {
        TQAudioRecordUnregisterYLogCallback(self);
        TQAudioRecordUnregisterYLogCallback(callbackB);
    };
    TQAudioRecordRegisterYLogCallback(callbackA);
    TQAudioRecordRegisterYLogCallback(callbackB);
    TQAudioRecordRegisterYLogCallback(self);
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"A"}), calls);
}

TEST_F(TQAudioRecordLogTest, CallbackRegisteredDuringTheDispatchWaitsForTheNextRecord) {
    const auto adder = [](const char*, const char*, NSString*, int, int, NSString*) {
        if (calls.empty()) {
            TQAudioRecordRegisterYLogCallback(callbackC);
        }
        calls.emplace_back("adder");
    };
    TQAudioRecordRegisterYLogCallback(adder);
    logSomething();
    EXPECT_EQ((std::vector<std::string>{"adder"}), calls);
    logSomething();
    TQAudioRecordUnregisterYLogCallback(adder);
    EXPECT_EQ((std::vector<std::string>{"adder", "C", "adder"}), calls);
}

TEST_F(TQAudioRecordLogTest, CallbackThatThrowsDoesNotReachTheLogger) {
    const auto thrower = [](const char*, const char*, NSString*, int, int, NSString*) {
        throw std::runtime_error("host");
    };
    TQAudioRecordRegisterYLogCallback(callbackA);
    TQAudioRecordRegisterYLogCallback(thrower);
    EXPECT_NO_THROW(logSomething());
    EXPECT_EQ((std::vector<std::string>{"A"}), calls);
    TQAudioRecordUnregisterYLogCallback(thrower);
}

TEST_F(TQAudioRecordLogTest, PrependPutsTheNodeAtTheHeadOfItsList) {
    ylog_entity* head = nullptr;
    EXPECT_EQ(1, prepend_ylog_callback(&head, callbackA));
    EXPECT_EQ(1, prepend_ylog_callback(&head, callbackB));
    ASSERT_NE(nullptr, head);
    EXPECT_EQ(&callbackB, head->callback);
    ASSERT_NE(nullptr, head->next);
    EXPECT_EQ(&callbackA, head->next->callback);
    EXPECT_EQ(nullptr, head->next->next);
    logSomething();
    EXPECT_TRUE(calls.empty()) << "a list of one's own is not the sink's";
    EXPECT_EQ(1, delete_ylog_callback(&head, callbackA));
    EXPECT_EQ(1, delete_ylog_callback(&head, callbackB));
    EXPECT_EQ(nullptr, head);
}

TEST_F(TQAudioRecordLogTest, DeleteAnswersZeroForAnEmptyListAndForAStranger) {
    ylog_entity* head = nullptr;
    EXPECT_EQ(0, delete_ylog_callback(&head, callbackA));
    prepend_ylog_callback(&head, callbackB);
    EXPECT_EQ(0, delete_ylog_callback(&head, callbackA));
    EXPECT_EQ(&callbackB, head->callback);
    EXPECT_EQ(1, delete_ylog_callback(&head, callbackB));
}

TEST_F(TQAudioRecordLogTest, DeleteUnlinksFromTheMiddle) {
    ylog_entity* head = nullptr;
    prepend_ylog_callback(&head, callbackA);
    prepend_ylog_callback(&head, callbackB);
    prepend_ylog_callback(&head, callbackC);
    EXPECT_EQ(1, delete_ylog_callback(&head, callbackB));
    EXPECT_EQ(&callbackC, head->callback);
    EXPECT_EQ(&callbackA, head->next->callback);
    EXPECT_EQ(nullptr, head->next->next);
    delete_ylog_callback(&head, callbackA);
    delete_ylog_callback(&head, callbackC);
}

TEST(TQAudioRecordExtractFileNameTest, NullGivesAnEmptyText) {
    EXPECT_STREQ("", TQAudioRecordExtractFileName(nullptr));
}

TEST(TQAudioRecordExtractFileNameTest, TextBehindTheLastSlash) {
    EXPECT_STREQ("c.cpp", TQAudioRecordExtractFileName("/a/b/c.cpp"));
}

TEST(TQAudioRecordExtractFileNameTest, BackslashGoesBeforeSlash) {
    EXPECT_STREQ("b/c", TQAudioRecordExtractFileName("a\\b/c"));
    EXPECT_STREQ("c", TQAudioRecordExtractFileName("a/b\\c"));
    EXPECT_STREQ("c", TQAudioRecordExtractFileName("a\\b\\c"));
}

TEST(TQAudioRecordExtractFileNameTest, PathThatEndsInItsSeparatorComesBackWhole) {
    for (const char* const path : {"dir/", "dir\\", "a/b\\", "/", "\\"}) {
        EXPECT_EQ(path, TQAudioRecordExtractFileName(path));
    }
}

TEST(TQAudioRecordExtractFileNameTest, NameWithoutSeparatorComesBack) {
    const char* const name = "x";
    EXPECT_EQ(name, TQAudioRecordExtractFileName(name));
    const char* const empty = "";
    EXPECT_EQ(empty, TQAudioRecordExtractFileName(empty));
}

// Checked by the thread sanitizer as well.

namespace {
std::atomic<int> inside{0};
std::atomic<bool> isOverlapped{false};
std::atomic<int> received{0};

void exclusiveCallback(const char*, const char*, NSString*, int, int, NSString* message) {
    if (inside.fetch_add(1) != 0) {
        isOverlapped = true;
    }
    received += static_cast<int>(message->length());
    inside.fetch_sub(1);
}
}  // namespace

TEST(TQAudioRecordLogThreadsTest, CallbacksRunOneAtATimeOnTheLoggingThreads) {
    TQAudioRecordRegisterYLogCallback(exclusiveCallback);
    constexpr int kThreads = 4;
    constexpr int kRecords = 500;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < kRecords; ++n) {
                logSomething();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    TQAudioRecordUnregisterYLogCallback(exclusiveCallback);
    EXPECT_FALSE(isOverlapped);
    EXPECT_EQ(kThreads * kRecords * 7, received) << "seven letters a record";
}

TEST(TQAudioRecordLogThreadsTest, CallbacksComeAndGoWhileOthersLog) {
    static std::atomic<int> seen{0};
    const auto counting = [](const char*, const char*, NSString*, int, int, NSString*) { ++seen; };
    std::atomic<bool> isDone{false};
    std::thread logger([&] {
        while (!isDone) {
            logSomething();
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(1, TQAudioRecordRegisterYLogCallback(counting));
        EXPECT_EQ(1, TQAudioRecordUnregisterYLogCallback(counting));
    }
    TQAudioRecordRegisterYLogCallback(counting);
    const int before = seen;
    while (seen == before) {
        std::this_thread::yield();
    }
    isDone = true;
    logger.join();
    EXPECT_EQ(1, TQAudioRecordUnregisterYLogCallback(counting));
    EXPECT_FALSE(isTQAudioRecordLogObserved());
}

TEST(TQAudioRecordLogThreadsTest, CallbackThatReregistersItselfWhileOthersLogIsNeverLost) {
    static std::atomic<int> turns{0};
    static TQAudioRecordLogCallback self = nullptr;
    self = [](const char*, const char*, NSString*, int, int, NSString*) {
        ++turns;
        TQAudioRecordUnregisterYLogCallback(self);
        TQAudioRecordRegisterYLogCallback(self);
    };
    TQAudioRecordRegisterYLogCallback(self);
    constexpr int kRecords = 500;
    const auto logAll = [] {
        for (int n = 0; n < kRecords; ++n) {
            logSomething();
        }
    };
    std::thread other(logAll);
    logAll();
    other.join();
    EXPECT_EQ(2 * kRecords, turns);
    EXPECT_EQ(1, TQAudioRecordUnregisterYLogCallback(self));
    EXPECT_EQ(0, TQAudioRecordUnregisterYLogCallback(self));
}
