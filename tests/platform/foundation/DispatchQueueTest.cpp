#include <Foundation/NSThread.h>
#include <dispatch/dispatch.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Event.h"

using testing::ElementsAre;

/// The children of the fork tests make threads; the thread sanitizer forbids it unless asked.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0";
}

namespace {

/// Waits until everything submitted so far has run.
void drain(const dispatch_queue_t& queue) {
    dispatch_sync(queue, [] {});
}

/// From now on the process gets no new thread: none has room for its stack.
void takeThreadsAway() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{1} << 50), 0);
    ASSERT_EQ(pthread_setattr_default_np(&attributes), 0);
    pthread_attr_destroy(&attributes);
    ASSERT_THROW(std::thread([] {}), std::system_error);
}

/// What `work` answers in a child of this process that goes on without exec.
template <class Work>
int inChild(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(work());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    return WEXITSTATUS(status);
}

struct SetsWhenDestroyed {
    std::shared_ptr<Event> event;
    ~SetsWhenDestroyed() {
        if (event != nullptr) {
            event->set();
        }
    }
};

}  // namespace

TEST(DispatchQueue, RunsBlocksInOrder) {
    const dispatch_queue_t queue = dispatch_queue_create("order", nullptr);
    std::vector<int> seen;
    std::vector<int> expected;
    for (int index = 0; index < 1000; ++index) {
        dispatch_async(queue, [&seen, index] { seen.push_back(index); });
        expected.push_back(index);
    }
    drain(queue);
    EXPECT_EQ(seen, expected);
}

TEST(DispatchQueue, NeverRunsTwoBlocksAtOnceAndKeepsEachSubmittersOrder) {
    const dispatch_queue_t queue = dispatch_queue_create("submitters", nullptr);
    std::vector<int> last(4, -1);
    int ran = 0;
    std::vector<std::thread> threads;
    for (std::size_t submitter = 0; submitter < last.size(); ++submitter) {
        threads.emplace_back([&, submitter] {
            for (int index = 0; index < 500; ++index) {
                dispatch_async(queue, [&, submitter, index] {
                    EXPECT_EQ(last[submitter], index - 1);
                    last[submitter] = index;
                    ++ran;
                });
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    drain(queue);
    EXPECT_EQ(ran, 2000);
}

TEST(DispatchQueue, AsyncReturnsWithoutWaitingForTheBlock) {
    const dispatch_queue_t queue = dispatch_queue_create("async", nullptr);
    Event go;
    bool ran = false;
    dispatch_async(queue, [&] {
        EXPECT_TRUE(go.wait());
        ran = true;
    });
    go.set();
    drain(queue);
    EXPECT_TRUE(ran);
}

TEST(DispatchQueue, RunsOnAThreadOfItsOwnThatBearsTheLabel) {
    const dispatch_queue_t queue = dispatch_queue_create("TQAudioRecordMixManager", nullptr);
    dispatch_sync(queue, [caller = std::this_thread::get_id()] {
        EXPECT_NE(std::this_thread::get_id(), caller);
        EXPECT_EQ(NSThread::currentThreadName(), "TQAudioRecordMixManager");
        char kernel[16] = {};
        pthread_getname_np(pthread_self(), kernel, sizeof kernel);
        EXPECT_STREQ(kernel, "TQAudioRecordMi");
    });
}

TEST(DispatchQueue, ThreadWithoutALabelDoesNotInheritItsMakersName) {
    NSThread::setCurrentThreadName("VeqDeviceThread");
    dispatch_sync(dispatch_queue_create(nullptr, nullptr),
                  [] { EXPECT_EQ(NSThread::currentThreadName(), ""); });
}

TEST(DispatchQueue, KeepsItsLabelWhole) {
    std::string label = "RZReplayAudioRecorder";
    const dispatch_queue_t queue = dispatch_queue_create(label.c_str(), nullptr);
    label = "changed";
    EXPECT_STREQ(dispatch_queue_get_label(queue), "RZReplayAudioRecorder");
    EXPECT_STREQ(dispatch_queue_get_label(dispatch_queue_create(nullptr, nullptr)), "");
    EXPECT_STREQ(dispatch_queue_get_label(nullptr), "");
}

TEST(DispatchQueue, SyncWaitsForItsBlockAndAllBeforeIt) {
    const dispatch_queue_t queue = dispatch_queue_create("sync", nullptr);
    std::vector<int> seen;
    dispatch_async(queue, [&seen] { seen.push_back(1); });
    dispatch_async(queue, [&seen] { seen.push_back(2); });
    dispatch_sync(queue, [&seen] { seen.push_back(3); });
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
}

TEST(DispatchQueue, SyncFromItsOwnBlockRunsAtOnce) {
    const dispatch_queue_t queue = dispatch_queue_create("nested", nullptr);
    std::vector<int> seen;
    dispatch_sync(queue, [&] {
        dispatch_async(queue, [&seen] { seen.push_back(3); });
        dispatch_sync(queue, [&seen] { seen.push_back(1); });
        seen.push_back(2);
    });
    drain(queue);
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
}

TEST(DispatchQueue, SyncToAnotherQueueWaitsForThatOne) {
    const dispatch_queue_t one = dispatch_queue_create("one", nullptr);
    const dispatch_queue_t two = dispatch_queue_create("two", nullptr);
    std::vector<int> seen;
    dispatch_sync(one, [&] {
        dispatch_async(two, [&seen] { seen.push_back(1); });
        dispatch_sync(two, [&seen] { seen.push_back(2); });
        seen.push_back(3);
    });
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
}

TEST(DispatchQueue, IgnoresNullQueuesAndEmptyBlocks) {
    bool ran = false;
    dispatch_async(nullptr, [&ran] { ran = true; });
    dispatch_sync(nullptr, [&ran] { ran = true; });
    const dispatch_queue_t queue = dispatch_queue_create("empty", nullptr);
    dispatch_async(queue, nullptr);
    dispatch_sync(queue, nullptr);
    EXPECT_FALSE(ran);
}

TEST(DispatchQueue, DropsABlockThatThrowsAndGoesOn) {
    const dispatch_queue_t queue = dispatch_queue_create("throwing", nullptr);
    int ran = 0;
    dispatch_async(queue, [] { throw std::runtime_error("a bad block"); });
    dispatch_async(queue, [&ran] { ++ran; });
    EXPECT_NO_THROW(dispatch_sync(queue, [] { throw 7; }));
    EXPECT_NO_THROW(dispatch_sync(queue, [&] {
        dispatch_sync(queue, [] { throw 7; });
        ++ran;
    }));
    EXPECT_EQ(ran, 2);
}

TEST(DispatchQueue, RunsPendingBlocksAfterItsLastOwnerLetGo) {
    Event go;
    Event last;
    dispatch_queue_t queue = dispatch_queue_create("abandoned", nullptr);
    int ran = 0;
    dispatch_async(queue, [&go] { EXPECT_TRUE(go.wait()); });
    dispatch_async(queue, [&ran] { ++ran; });
    dispatch_async(queue, [&] {
        ++ran;
        last.set();
    });
    queue.reset();
    go.set();
    ASSERT_TRUE(last.wait());
    EXPECT_EQ(ran, 2);
}

TEST(DispatchQueue, MayBeLetGoByItsOwnBlock) {
    for (int round = 0; round < 50; ++round) {
        Event done;
        auto owner = std::make_unique<dispatch_queue_t>(dispatch_queue_create("owner", nullptr));
        const std::weak_ptr<TQDispatchQueue> observer = *owner;
        bool gone = false;
        dispatch_async(*owner, [&] {
            owner->reset();
            gone = observer.expired();
            done.set();
        });
        ASSERT_TRUE(done.wait());
        EXPECT_TRUE(gone);
    }
}

TEST(DispatchQueue, MayBeOwnedByItsOwnBlocksAlone) {
    Event done;
    dispatch_queue_t queue = dispatch_queue_create("self-owned", nullptr);
    std::weak_ptr<TQDispatchQueue> observer = queue;
    dispatch_async(queue,
                   [queue, &done] { dispatch_async(queue, [queue, &done] { done.set(); }); });
    queue.reset();
    EXPECT_TRUE(done.wait());
}

TEST(DispatchQueue, FreesWhatABlockOwnsBeforeTheNextOneRuns) {
    const dispatch_queue_t queue = dispatch_queue_create("frees", nullptr);
    auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> observer = owned;
    bool expired = false;
    dispatch_async(queue, [owned = std::move(owned)] { ASSERT_EQ(*owned, 1); });
    dispatch_sync(queue, [&] { expired = observer.expired(); });
    EXPECT_TRUE(expired);
}

TEST(DispatchQueue, ItsThreadEndsWithTheQueue) {
    const auto ended = std::make_shared<Event>();
    dispatch_queue_t queue = dispatch_queue_create("ends", nullptr);
    dispatch_sync(queue, [&ended] {
        static thread_local SetsWhenDestroyed atThreadEnd;
        atThreadEnd.event = ended;
    });
    queue.reset();
    EXPECT_TRUE(ended->wait());
}

TEST(DispatchQueue, ItsThreadTakesNoSignalsButItsOwnFaults) {
    sigset_t before;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    dispatch_sync(dispatch_queue_create("signals", nullptr), [] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        for (const int held : {SIGINT, SIGTERM, SIGUSR1, SIGCHLD, SIGALRM, SIGPROF, SIGPIPE}) {
            EXPECT_EQ(sigismember(&mask, held), 1) << held;
        }
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
            EXPECT_EQ(sigismember(&mask, fault), 0) << fault;
        }
    });
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int number = 1; number < SIGRTMAX; ++number) {
        EXPECT_EQ(sigismember(&before, number), sigismember(&after, number)) << number;
    }
}

TEST(DispatchQueue, RunsBlocksOnTheCallersThreadWhenThereIsNoOther) {
    takeThreadsAway();
    const dispatch_queue_t queue = dispatch_queue_create("threadless", nullptr);
    std::vector<int> seen;
    dispatch_async(queue, [&seen, caller = std::this_thread::get_id()] {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        seen.push_back(1);
    });
    dispatch_sync(queue, [&seen] { seen.push_back(2); });
    EXPECT_THAT(seen, ElementsAre(1, 2));
}

TEST(DispatchQueue, KeepsTheOrderWhenItRunsOnTheCallersThread) {
    takeThreadsAway();
    const dispatch_queue_t queue = dispatch_queue_create("threadless", nullptr);
    std::vector<int> seen;
    dispatch_async(queue, [&] {
        dispatch_async(queue, [&seen] { seen.push_back(3); });
        dispatch_sync(queue, [&seen] { seen.push_back(1); });
        seen.push_back(2);
    });
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
}

TEST(DispatchQueue, WorksInAForkedChild) {
    const dispatch_queue_t queue = dispatch_queue_create("parent", nullptr);
    drain(queue);
    EXPECT_EQ(inChild([&] {
                  std::vector<int> seen;
                  dispatch_async(queue, [&seen] { seen.push_back(1); });
                  dispatch_sync(queue, [&seen] { seen.push_back(2); });
                  return seen == std::vector<int>{1, 2} ? 7 : 1;
              }),
              7);
    // And goes on in the parent.
    drain(queue);
}

TEST(DispatchQueue, RunsInAForkedChildWhatWaitedInTheParent) {
    const dispatch_queue_t queue = dispatch_queue_create("parent", nullptr);
    const auto begun = std::make_shared<Event>();
    const auto goOn = std::make_shared<Event>();
    int ran = 0;
    dispatch_async(queue, [=] {
        begun->set();
        EXPECT_TRUE(goOn->wait());
    });
    dispatch_async(queue, [&ran] { ++ran; });
    ASSERT_TRUE(begun->wait());
    EXPECT_EQ(inChild([&] {
                  drain(queue);
                  return ran;
              }),
              1);
    goOn->set();
    drain(queue);
    EXPECT_EQ(ran, 1);
}

TEST(DispatchQueue, GoesOnInTheBlockThatForked) {
    const dispatch_queue_t queue = dispatch_queue_create("forker", nullptr);
    int answer = 0;
    dispatch_sync(queue, [&] {
        answer = inChild([&] {
            int ran = 0;
            dispatch_sync(queue, [&ran] { ran = 5; });
            return ran;
        });
    });
    EXPECT_EQ(answer, 5);
}
