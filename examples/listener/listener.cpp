// Preload it into a host whose crash guard is armed: it counts the frames of the host's mix.

#include <TQAudioRecord/TQAudioRecord.h>

#include <atomic>
#include <cstdio>
#include <memory>

class Listener : public RZReplayAudioRecorderListener<Listener> {
  public:
    // On an audio thread: nothing here may allocate, wait or touch a file.
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& /*info*/) override {
        frames_ += pcm->mBuffers[0].mDataByteSize / 4;  // the mix is 16-bit stereo
    }
    ~Listener() override { std::fprintf(stderr, "%llu frames of mix\n", frames_.load()); }

  private:
    std::atomic<unsigned long long> frames_{0};
};

static const auto listener = std::make_shared<Listener>();

[[gnu::constructor]] static void begin() {
    RZStreamCollectManager::sharedManager().startAudioStreamCollect(listener);
}
