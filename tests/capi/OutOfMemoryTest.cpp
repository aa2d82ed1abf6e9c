#include <gtest/gtest.h>

#include <utility>

#include "RZReplayAudioUnitCapturer.h"
#include "RZReplayAudioUnitGraphCapturer.h"
#include "RZStreamCollectManager.h"
#include "RZUnitFacts.h"
#include "TQAudioRecordLog.h"
#include "support/FailingAllocations.h"
#include "tq_capture.h"

// Memory that runs out inside a call of the C interface: the call says so, and who has been told
// that a listener is gone may let its memory go.

namespace {

using tqtest::allocationsLeft;
using tqtest::hasAllocationFailed;

/// Runs `call` with the nth allocation failing, n from 0 up, until it needs no more of them.
template <class Call, class Check>
void starve(const Call& call, const Check& check) {
    for (int left = 0; left < 500; ++left) {
        hasAllocationFailed = false;
        allocationsLeft = left;
        const tq_result result = call();
        allocationsLeft = -1;
        check(result);
        if (!hasAllocationFailed) {
            EXPECT_EQ(result, TQ_OK);
            return;
        }
    }
    ADD_FAILURE() << "the call never succeeded";
}

int callsAfterTheEnd = 0;

void countEvent(void* isOver, const tq_event* /*event*/) {
    callsAfterTheEnd += *static_cast<const bool*>(isOver) ? 1 : 0;
}
void countLine(void* isOver, const tq_log_line* /*line*/) {
    callsAfterTheEnd += *static_cast<const bool*>(isOver) ? 1 : 0;
}
void countUnit(void* isOver, const tq_unit* /*unit*/) {
    callsAfterTheEnd += *static_cast<const bool*>(isOver) ? 1 : 0;
}

/// Everything that a listener may be told of happens once.
void makeNoise() {
    int unit = 0;
    RZStreamCollectManager::sharedManager().onAudioRecordEvent(6, 0, "something");
    RZUnitFacts::shared().leftAlone(&unit, nullptr, RZUnitReason::NoNumberFree);
    RZUnitFacts::shared().disposed(&unit);
    TQAudioRecordLog("file", "function", nullptr, 2, 1, nullptr);
}

class CapiOutOfMemory : public testing::Test {
  protected:
    void SetUp() override {
        RZReplayAudioUnitCapturer::startHook();
        RZReplayAudioUnitGraphCapturer::startHook();
        callsAfterTheEnd = 0;
        wanted.size = sizeof wanted;
        wanted.context = &isOver;
        wanted.on_event = countEvent;
        wanted.on_log = countLine;
        wanted.on_unit = countUnit;
    }
    bool isOver = false;
    tq_listener wanted{};
    tq_listening* handle = nullptr;
};

TEST_F(CapiOutOfMemory, AListenerThatCouldNotBeginIsNeverCalled) {
    starve(
        [&] {
            handle = nullptr;
            isOver = false;
            return tq_capture_listen(&wanted, &handle);
        },
        [&](tq_result result) {
            EXPECT_EQ(result == TQ_OK, handle != nullptr);
            if (result == TQ_OK) {
                EXPECT_EQ(tq_capture_stop(handle), TQ_OK);
            } else {
                EXPECT_EQ(result, TQ_ERROR_NO_MEMORY);
            }
            isOver = true;
            makeNoise();
            EXPECT_EQ(std::exchange(callsAfterTheEnd, 0), 0);
            ASSERT_EQ(tq_capture_settle(), TQ_OK);
        });
}

TEST_F(CapiOutOfMemory, AStopEndsTheCallbacksWhateverHappens) {
    starve(
        [&] {
            const int left = std::exchange(allocationsLeft, -1);
            isOver = false;
            EXPECT_EQ(tq_capture_listen(&wanted, &handle), TQ_OK);
            EXPECT_EQ(tq_capture_settle(), TQ_OK);
            allocationsLeft = left;
            return tq_capture_stop(handle);
        },
        [&](tq_result result) {
            EXPECT_EQ(result, TQ_OK);
            EXPECT_EQ(tq_capture_stop(handle), TQ_ERROR_HANDLE);
            isOver = true;
            makeNoise();
            EXPECT_EQ(std::exchange(callsAfterTheEnd, 0), 0);
            ASSERT_EQ(tq_capture_settle(), TQ_OK);
        });
}

TEST_F(CapiOutOfMemory, AnEffectIsOffWhenItsHandleIsClosed) {
    tq_ducking ducking{};
    ducking.size = sizeof ducking;
    ASSERT_EQ(tq_ducking_defaults(&ducking), TQ_OK);
    tq_listening* lines = nullptr;
    wanted.on_event = nullptr;
    ASSERT_EQ(tq_capture_listen(&wanted, &lines), TQ_OK);
    tq_volume* volume = nullptr;
    starve(
        [&] {
            const int left = std::exchange(allocationsLeft, -1);
            EXPECT_EQ(tq_volume_open(&volume), TQ_OK);
            EXPECT_EQ(tq_volume_set_ducking(volume, &ducking), TQ_OK);
            allocationsLeft = left;
            return tq_volume_close(volume);
        },
        [&](tq_result result) {
            if (result != TQ_OK) {
                EXPECT_EQ(result, TQ_ERROR_NO_MEMORY);
                EXPECT_EQ(tq_volume_close(volume), TQ_OK) << "it is still open";
            }
        });
    EXPECT_EQ(tq_capture_stop(lines), TQ_OK);
}

}  // namespace
