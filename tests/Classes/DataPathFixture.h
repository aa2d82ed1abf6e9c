#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "EventRecorder.h"
#include "LogCapture.h"
#include "RZReplayAudioUnitObject.h"

/// A capturing object whose events and log lines are recorded.
class DataPathFixture : public testing::Test {
  protected:
    void SetUp() override {
        obj.setCallback(receiver);
        obj.startCapture();
        // Most tests want to see what they wrote on the post side as well.
        obj.setPendingCleanPostRingBuffer(NO);
    }
    [[nodiscard]] std::string self() const { return NSFormat("%p", &obj); }
    /// The one event so far, logged with the same text at level 4.
    void expectOneFault(const char* function, std::uint64_t category, std::uint64_t code,
                        const std::string& message) {
        EXPECT_THAT(receiver->events(),
                    testing::ElementsAre(RecordedEvent{category, code, message}));
        EXPECT_THAT(log.linesOf(function),
                    testing::ElementsAre(
                        IsLogLine("Classes/RZReplayAudioUnitObject", function, 4, message)));
    }
    std::size_t queued(BOOL post, std::size_t index = 0) {
        return obj.bufferList().at(index)->getRingBufferSize(post);
    }

    LogCapture log;
    const std::shared_ptr<EventRecorder> receiver = std::make_shared<EventRecorder>();
    RZReplayAudioUnitObject obj;
};
