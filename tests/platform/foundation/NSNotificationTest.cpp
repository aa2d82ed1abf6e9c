#include <Foundation/NSNotification.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Center : public testing::Test {
  protected:
    /// A handler that writes down a mark.
    auto marks(int mark) {
        return [this, mark](const NSNotification&) { seen_.push_back(mark); };
    }

    NSNotificationCenter center_;
    std::vector<int> seen_;
    int observer_ = 0;
    int other_ = 0;
};

}  // namespace

TEST_F(Center, DeliversInTheOrderOfRegistration) {
    for (int mark = 1; mark <= 3; ++mark) {
        center_.addObserver(&observer_, marks(mark), "name", nullptr);
    }
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, ElementsAre(1, 2, 3));
}

TEST_F(Center, DeliversOnThePostingThreadBeforePostingReturns) {
    std::thread::id thread;
    center_.addObserver(
        &observer_, [&](const NSNotification&) { thread = std::this_thread::get_id(); }, "name",
        nullptr);
    center_.postNotificationName("name");
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(Center, HandsOverNameObjectAndUserInfo) {
    NSNotification received;
    center_.addObserver(
        &observer_, [&](const NSNotification& notice) { received = notice; }, "name", nullptr);
    center_.postNotificationName("name", &other_, {{"text", "0x12"}, {"number", 3L}});
    EXPECT_EQ(received.name, "name");
    EXPECT_EQ(received.object, &other_);
    EXPECT_EQ(received.textForKey("text"), "0x12");
    EXPECT_EQ(received.integerForKey("number", -1), 3);
}

TEST_F(Center, DeliversOnlyTheNameAskedFor) {
    center_.addObserver(&observer_, marks(1), "name", nullptr);
    center_.postNotificationName("another");
    center_.postNotificationName("");
    EXPECT_THAT(seen_, IsEmpty());
}

TEST_F(Center, DeliversOnlyFromTheObjectAskedFor) {
    center_.addObserver(&observer_, marks(1), "name", &other_);
    center_.postNotificationName("name", &observer_);
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, IsEmpty());
    center_.postNotificationName("name", &other_);
    EXPECT_THAT(seen_, ElementsAre(1));
}

TEST_F(Center, ForgetsAllHandlersOfARemovedObserverAndNoOthers) {
    center_.addObserver(&observer_, marks(1), "name", nullptr);
    center_.addObserver(&other_, marks(2), "name", nullptr);
    center_.addObserver(&observer_, marks(3), "name", nullptr);
    center_.removeObserver(&observer_);
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, ElementsAre(2));
}

TEST_F(Center, RemovingAStrangerChangesNothing) {
    center_.addObserver(&observer_, marks(1), "name", nullptr);
    center_.removeObserver(&other_);
    center_.removeObserver(nullptr);
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, ElementsAre(1));
}

TEST_F(Center, SkipsAHandlerThatThrows) {
    center_.addObserver(&observer_, marks(1), "name", nullptr);
    center_.addObserver(
        &observer_, [](const NSNotification&) { throw std::runtime_error("a bad listener"); },
        "name", nullptr);
    center_.addObserver(
        &observer_, [](const NSNotification&) { throw 7; }, "name", nullptr);
    center_.addObserver(&observer_, marks(2), "name", nullptr);
    EXPECT_NO_THROW(center_.postNotificationName("name"));
    EXPECT_THAT(seen_, ElementsAre(1, 2));
}

TEST_F(Center, LetsAThreadEndInsideAHandler) {
    center_.addObserver(
        &observer_, [this](const NSNotification&) { pthread_exit(&other_); }, "name", nullptr);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* center) -> void* {
                      static_cast<NSNotificationCenter*>(center)->postNotificationName("name");
                      return nullptr;
                  },
                  &center_),
              0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, &other_);
}

TEST_F(Center, HandlersMayAddHandlersForTheNextTime) {
    center_.addObserver(
        &observer_,
        [this](const NSNotification&) {
            seen_.push_back(1);
            center_.addObserver(&other_, marks(2), "name", nullptr);
        },
        "name", nullptr);
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, ElementsAre(1));
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, ElementsAre(1, 1, 2));
}

TEST_F(Center, HandlersMayRemoveThemselves) {
    center_.addObserver(
        &observer_,
        [this](const NSNotification&) {
            center_.removeObserver(&observer_);
            seen_.push_back(1);
        },
        "name", nullptr);
    center_.postNotificationName("name");
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, ElementsAre(1));
}

TEST_F(Center, AHandlerRemovedByAnEarlierOneIsPassedOver) {
    center_.addObserver(
        &observer_, [this](const NSNotification&) { center_.removeObserver(&other_); }, "name",
        nullptr);
    center_.addObserver(&other_, marks(2), "name", nullptr);
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, IsEmpty());
}

TEST_F(Center, HandlersMayPost) {
    center_.addObserver(
        &observer_,
        [this](const NSNotification&) {
            seen_.push_back(1);
            center_.postNotificationName("second");
            seen_.push_back(3);
        },
        "first", nullptr);
    center_.addObserver(&observer_, marks(2), "second", nullptr);
    center_.postNotificationName("first");
    EXPECT_THAT(seen_, ElementsAre(1, 2, 3));
}

TEST_F(Center, WhatAHandlerOwnsMayCallBackWhenItIsForgotten) {
    struct RemovesOther {
        NSNotificationCenter* center;
        const void* observer;
        ~RemovesOther() { center->removeObserver(observer); }
    };
    auto owned = std::make_shared<RemovesOther>();
    owned->center = &center_;
    owned->observer = &other_;
    center_.addObserver(
        &observer_, [owned](const NSNotification&) {}, "name", nullptr);
    center_.addObserver(&other_, marks(2), "name", nullptr);
    owned.reset();
    center_.removeObserver(&observer_);
    center_.postNotificationName("name");
    EXPECT_THAT(seen_, IsEmpty());
}

TEST_F(Center, IgnoresAnEmptyHandler) {
    center_.addObserver(&observer_, NSNotificationCenter::Handler(), "name", nullptr);
    EXPECT_NO_THROW(center_.postNotificationName("name"));
}

TEST_F(Center, ThreadsMayAddPostAndRemoveAtOnce) {
    std::atomic<int> delivered = 0;
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([this, &delivered] {
            int self = 0;
            for (int round = 0; round < 200; ++round) {
                center_.addObserver(
                    &self, [&delivered](const NSNotification&) { ++delivered; }, "name", nullptr);
                center_.postNotificationName("name");
                center_.removeObserver(&self);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_GE(delivered.load(), 4 * 200);
    const int before = delivered.load();
    center_.postNotificationName("name");
    EXPECT_EQ(delivered.load(), before);
}

TEST(NSNotificationCenter, TheDefaultOneIsOneAndTheSame) {
    EXPECT_EQ(&NSNotificationCenter::defaultCenter(), &NSNotificationCenter::defaultCenter());
}

TEST(NSNotificationCenter, CentersAreApart) {
    NSNotificationCenter one;
    NSNotificationCenter another;
    int calls = 0;
    one.addObserver(
        &calls, [&calls](const NSNotification&) { ++calls; }, "name", nullptr);
    another.postNotificationName("name");
    NSNotificationCenter::defaultCenter().postNotificationName("name");
    EXPECT_EQ(calls, 0);
}

TEST(NSNotification, AnswersForMissingAndOtherwiseTypedValues) {
    const NSNotification notice{"name", nullptr, {{"text", "7"}, {"number", 7L}}};
    EXPECT_EQ(notice.textForKey("number"), "");
    EXPECT_EQ(notice.textForKey("missing"), "");
    EXPECT_EQ(notice.integerForKey("text", -1), -1);
    EXPECT_EQ(notice.integerForKey("missing", -2), -2);
}
