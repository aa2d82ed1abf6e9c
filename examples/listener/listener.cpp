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
    [[nodiscard]] unsigned long long frames() const { return frames_; }

  private:
    std::atomic<unsigned long long> frames_{0};
};

// From the moment the library is loaded to the end of the host.
static const struct Recording {
    Recording() { RZStreamCollectManager::sharedManager().startAudioStreamCollect(listener); }
    ~Recording() {
        RZStreamCollectManager::sharedManager().stopAudioStreamCollect(listener);
        std::fprintf(stderr, "%llu frames of mix\n", listener->frames());
    }
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
} recording;
