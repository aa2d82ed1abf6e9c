#include <Foundation/NSThread.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>

#include <string>
#include <thread>

namespace {

std::string kernelName() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

template <class Body>
void onNewThread(Body body) {
    std::thread(body).join();
}

std::string nameSeenAtExit;

struct ReadsTheNameWhenItsThreadEnds {
    ~ReadsTheNameWhenItsThreadEnds() { nameSeenAtExit = NSThread::currentThreadName(); }
};

}  // namespace

TEST(NSThread, NeverNamedAnswersTheKernelsName) {
    onNewThread([] { EXPECT_EQ(NSThread::currentThreadName(), kernelName()); });
}

TEST(NSThread, NamedByTheHostAnswersThatName) {
    onNewThread([] {
        pthread_setname_np(pthread_self(), "VeqDeviceThread");
        EXPECT_EQ(NSThread::currentThreadName(), "VeqDeviceThread");
    });
}

TEST(NSThread, KeepsANameThatTheKernelCuts) {
    onNewThread([] {
        NSThread::setCurrentThreadName("MWAudioDeviceThread-1");
        EXPECT_EQ(NSThread::currentThreadName(), "MWAudioDeviceThread-1");
        EXPECT_EQ(kernelName(), "MWAudioDeviceTh");
    });
}

TEST(NSThread, KeepsANameOfJustTheKernelsLength) {
    onNewThread([] {
        NSThread::setCurrentThreadName("fifteen letters");
        EXPECT_EQ(NSThread::currentThreadName(), "fifteen letters");
        EXPECT_EQ(kernelName(), "fifteen letters");
    });
}

TEST(NSThread, LaterNameOfTheHostWins) {
    onNewThread([] {
        NSThread::setCurrentThreadName("MWAudioDeviceThread-1");
        prctl(PR_SET_NAME, "render");
        EXPECT_EQ(NSThread::currentThreadName(), "render");
    });
}

TEST(NSThread, TheSameNameFromTheHostKeepsTheWholeOne) {
    onNewThread([] {
        NSThread::setCurrentThreadName("MWAudioDeviceThread-1");
        prctl(PR_SET_NAME, "MWAudioDeviceThread-1");
        EXPECT_EQ(NSThread::currentThreadName(), "MWAudioDeviceThread-1");
    });
}

TEST(NSThread, CanBeRenamed) {
    onNewThread([] {
        NSThread::setCurrentThreadName("the first of two long names");
        NSThread::setCurrentThreadName("the second of two long names");
        EXPECT_EQ(NSThread::currentThreadName(), "the second of two long names");
        NSThread::setCurrentThreadName("");
        EXPECT_EQ(NSThread::currentThreadName(), "");
    });
}

TEST(NSThread, NamesOfOtherThreadsAreTheirOwn) {
    NSThread::setCurrentThreadName("the thread that runs the test");
    onNewThread([] {
        EXPECT_EQ(NSThread::currentThreadName(), "the thread that");
        NSThread::setCurrentThreadName("another thread with a long name");
    });
    EXPECT_EQ(NSThread::currentThreadName(), "the thread that runs the test");
}

TEST(NSThread, CanBeAskedWhileItsThreadEnds) {
    onNewThread([] {
        // Made before the kept name, so destroyed after it.
        static thread_local ReadsTheNameWhenItsThreadEnds reader;
        static_cast<void>(&reader);
        NSThread::setCurrentThreadName("a name longer than the kernel keeps");
    });
    EXPECT_EQ(nameSeenAtExit, "a name longer t");
}
