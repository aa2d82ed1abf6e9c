#pragma once

#include <TQAudioRecord/TQAudioRecord.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "wav_listener/BlockQueue.h"
#include "wav_listener/MixReport.h"
#include "wav_listener/WavFile.h"

namespace demo {

class MixListener;
class TrackListener;

/// Records the process that it lives in: the mix to demo.wav, each track's own blocks to
/// track-N.wav (with silence while the track's unit does not play, so that all files begin and run
/// together), events to events.txt. Listeners copy blocks into a queue on the audio threads; a
/// thread of the recorder's own writes them.
class DemoRecorder {
  public:
    /// Begins at once. `folder` is made when it is missing.
    explicit DemoRecorder(std::string folder);
    /// Ends as finish() does.
    ~DemoRecorder();
    DemoRecorder(const DemoRecorder&) = delete;
    DemoRecorder& operator=(const DemoRecorder&) = delete;

    /// Takes the listeners back, writes what is queued, closes the files and prints the summary.
    void finish();

  private:
    struct TrackFile {
        std::unique_ptr<WavFile> file;
        int parts = 0;  // a track number whose format changes goes on in another file
        WavFormat refused;
        int pauses = 0;  // stretches of silence filled in
    };
    struct Event {
        std::uint64_t microseconds;
        std::uint64_t category;
        std::uint64_t code;
        std::string message;
    };

    void run();
    void drain();
    void takeMix(const RecordHeader& header, std::span<const std::byte> payload);
    void takeTrack(const RecordHeader& header, std::span<const std::byte> payload);
    void takeEvent(const RecordHeader& header, std::span<const std::byte> payload);
    void fillPause(TrackFile& track, const RecordHeader& header);
    void writeTo(WavFile& file, std::span<const std::byte> bytes);
    void complain(const std::string& problem);
    void rememberTracks();
    void showProgress();
    void writeEvents();
    void printSummary() const;

    const std::string folder_;
    BlockQueue queue_;
    std::shared_ptr<MixListener> mixListener_;
    std::shared_ptr<TrackListener> trackListener_;

    std::mutex mutex_;
    std::condition_variable wake_;
    bool ending_ = false;  // under mutex_

    // The writer thread's; finish() reads them after it ended.
    std::unique_ptr<WavFile> mix_;
    bool mixRefused_ = false;
    std::map<int, TrackFile> trackFiles_;
    std::vector<std::string> closedFiles_;
    std::vector<std::string> trackTexts_;  // as the statistics told them, in order of appearance
    std::vector<Event> events_;
    std::vector<std::string> problems_;
    LevelMeter level_;
    LevelMeter secondLevel_;
    DropoutMeter dropouts_;
    std::uint64_t firstMicroseconds_ = 0;  // time stamp of the first block of all
    std::vector<std::byte> scratch_;
    std::thread writer_;
};

}  // namespace demo
