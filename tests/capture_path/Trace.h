#pragma once

#include <map>

#include "CapturePathFixture.h"

/// Everything that the library does on the way, in one readable list: "call" what it asks of the
/// platform, "log" each record, "event" what listeners hear. Handles bear the names that the test
/// gives them.
class Trace : public CapturePath {
  protected:
    /// A listener that hears events only.
    class EventListener : public RZReplayAudioRecorderListener<EventListener> {
      public:
        void onAudioReceivePCM(AudioBufferList* /*pcm*/,
                               const RZReplayASBDInfo& /*info*/) override {}
        void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                                const std::string& message) override;
    };

    void SetUp() override;
    void TearDown() override;

    /// Calls the address `name` from now on, also in what was recorded before.
    void name(const void* address, const std::string& name);
    /// What happened since the last call; addresses without a name are asterisks.
    std::vector<std::string> take();

    std::shared_ptr<EventListener> events = std::make_shared<EventListener>();

  private:
    std::map<std::string, std::string> names_;
};
