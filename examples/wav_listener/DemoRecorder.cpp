#include "DemoRecorder.h"

#include <mach/mach_time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <span>
#include <utility>

namespace demo {
namespace {

constexpr std::size_t kQueueBytes = std::size_t{16} << 20U;  // half a minute of mix and four tracks
constexpr std::size_t kMostBuffers = 16;
// Blocks arrive in bursts; only a longer hole means that the unit was not playing.
constexpr double kPauseSeconds = 0.25;
constexpr std::chrono::milliseconds kWriterPause{20};
constexpr std::chrono::milliseconds kStatisticsPause{200};

std::uint64_t hostMicroseconds() {
    mach_timebase_info_data_t base{};
    mach_timebase_info(&base);
    return base.denom == 0 ? 0 : mach_absolute_time() * base.numer / base.denom / 1000;
}

/// Real-time: copies a block into the queue.
void pushBlock(BlockQueue& queue, RecordHeader::Kind kind, const AudioBufferList& pcm,
               const RZReplayASBDInfo& info) noexcept {
    std::array<BlockQueue::Bytes, kMostBuffers> parts;
    const std::size_t count = std::min<std::size_t>(pcm.mNumberBuffers, kMostBuffers);
    for (std::size_t index = 0; index < count; ++index) {
        const AudioBuffer& buffer = pcm.mBuffers[index];
        parts[index] = {static_cast<const std::byte*>(buffer.mData), buffer.mDataByteSize};
    }
    RecordHeader header;
    header.kind = kind;
    header.trackId = info.trackId();
    header.sampleRate = info.sampleRate();
    header.channels = info.channelsPerFrame();
    header.bitsPerChannel = info.bitsPerChannel();
    header.formatFlags = info.formatFlags();
    header.buffers = static_cast<std::uint32_t>(count);
    header.microseconds = info.timeStamp();
    queue.push(header, std::span(parts).first(count));
}

std::string decibels(double amplitude) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), amplitude > 0 ? "%.1f dBFS" : "silent",
                  toDecibels(amplitude));
    return text.data();
}

std::string trackText(const RZHookAudioTrackInfo& info) {
    const std::string channels = info.channel() == 1 ? "mono"
                                 : info.channel() == 2
                                     ? "stereo"
                                     : std::to_string(info.channel()) + " channels";
    const bool isFloat = (info.audio_format() & kFlagFloat) != 0;
    const char* source = info.track_type() == RZHookTrackTypeUnit ? "a unit of its own"
                         : info.track_type() == RZHookTrackTypeGraphCallback
                             ? "a graph with a callback"
                         : info.track_type() == RZHookTrackTypeGraph ? "a graph"
                                                                     : "unknown";
    return "track " + std::to_string(info.audio_track_id()) + ": " +
           std::to_string(info.sample_rate()) + " Hz, " + (isFloat ? "float" : "integer") + ", " +
           channels + ", " + std::to_string(info.buffersize()) + " bytes per packet, from " +
           source;
}

}  // namespace

/// Receives the mix and all events. The library calls its listeners one at a time, so that both
/// listeners together are the one producer of the queue.
class MixListener : public RZReplayAudioRecorderListener<MixListener> {
  public:
    explicit MixListener(BlockQueue& queue) : queue_(queue) {}
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        pushBlock(queue_, RecordHeader::Kind::kMix, *pcm, info);
    }
    void onAudioRecordEvent(std::uint64_t category, std::uint64_t code,
                            const std::string& message) override {
        RecordHeader header;
        header.kind = RecordHeader::Kind::kEvent;
        header.category = category;
        header.code = code;
        header.microseconds = hostMicroseconds();
        const std::array<BlockQueue::Bytes, 1> parts{
            std::as_bytes(std::span(message.data(), message.size()))};
        queue_.push(header, parts);
    }
    [[nodiscard]] std::uint64_t getPCMDataType() override { return RZPCMDataTypePre; }

  private:
    BlockQueue& queue_;
};

/// Receives each track's own blocks.
class TrackListener : public RZReplayAudioRecorderListener<TrackListener> {
  public:
    explicit TrackListener(BlockQueue& queue) : queue_(queue) {}
    void onAudioReceivePCM(AudioBufferList* pcm, const RZReplayASBDInfo& info) override {
        pushBlock(queue_, RecordHeader::Kind::kTrack, *pcm, info);
    }
    [[nodiscard]] std::uint64_t getPCMDataType() override { return RZPCMDataTypePost; }

  private:
    BlockQueue& queue_;
};

DemoRecorder::DemoRecorder(std::string folder)
    : folder_(std::move(folder)),
      queue_(kQueueBytes),
      mixListener_(std::make_shared<MixListener>(queue_)),
      trackListener_(std::make_shared<TrackListener>(queue_)) {
    std::error_code failure;
    std::filesystem::create_directories(folder_, failure);
    if (failure) {
        complain(folder_ + ": " + failure.message());
    }
    writer_ = std::thread([this] { run(); });
    auto& manager = RZStreamCollectManager::sharedManager();
    if (!manager.isHookSuccess()) {
        complain("the hooks are not installed in this host; arm its crash guard with DEMO_ARM=1");
    }
    manager.startAudioStreamCollect(mixListener_);
    manager.startAudioStreamCollect(trackListener_);
}

DemoRecorder::~DemoRecorder() {
    finish();
}

void DemoRecorder::finish() {
    if (!writer_.joinable()) {
        return;
    }
    auto& manager = RZStreamCollectManager::sharedManager();
    manager.stopAudioStreamCollect(trackListener_);
    manager.stopAudioStreamCollect(mixListener_);
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    wake_.notify_all();
    writer_.join();
    drain();
    writeEvents();
    printSummary();
    mix_.reset();
    trackFiles_.clear();
}

void DemoRecorder::run() {
    using Clock = std::chrono::steady_clock;
    Clock::time_point nextProgress = Clock::now() + std::chrono::seconds{1};
    Clock::time_point nextStatistics = Clock::now();
    std::unique_lock lock(mutex_);
    while (!ending_) {
        // Audio threads never notify: they must not wait, and a short pause costs nothing.
        wake_.wait_for(lock, kWriterPause, [this] { return ending_; });
        lock.unlock();
        drain();
        const Clock::time_point now = Clock::now();
        if (now >= nextStatistics) {
            rememberTracks();
            nextStatistics = now + kStatisticsPause;
        }
        if (now >= nextProgress) {
            showProgress();
            nextProgress = now + std::chrono::seconds{1};
        }
        lock.lock();
    }
}

void DemoRecorder::drain() {
    RecordHeader header;
    std::vector<std::byte> payload;
    while (queue_.pop(header, payload)) {
        if (firstMicroseconds_ == 0 && header.kind != RecordHeader::Kind::kEvent) {
            firstMicroseconds_ = header.microseconds;
        }
        switch (header.kind) {
            case RecordHeader::Kind::kMix:
                takeMix(header, payload);
                break;
            case RecordHeader::Kind::kTrack:
                takeTrack(header, payload);
                break;
            case RecordHeader::Kind::kEvent:
                takeEvent(header, payload);
                break;
        }
    }
}

void DemoRecorder::takeMix(const RecordHeader& header, std::span<const std::byte> payload) {
    const WavFormat format = WavFormat::of(header);
    if (mix_ == nullptr && !mixRefused_) {
        std::string error;
        mix_ = WavFile::create(folder_ + "/demo.wav", format, error);
        mixRefused_ = mix_ == nullptr;
        if (mixRefused_) {
            complain(error);
        }
    }
    if (mix_ == nullptr || format.bitsPerChannel != 16) {
        return;
    }
    // Queue memory is bytes; samples are copied out of it before they are looked at.
    std::vector<std::int16_t> samples(payload.size() / sizeof(std::int16_t));
    std::memcpy(samples.data(), payload.data(), samples.size() * sizeof(std::int16_t));
    level_.add(samples);
    secondLevel_.add(samples);
    const double frames = static_cast<double>(samples.size()) / std::max(1, int{format.channels});
    const bool isZero =
        std::all_of(samples.begin(), samples.end(), [](std::int16_t value) { return value == 0; });
    dropouts_.add(header.microseconds, frames * 1e6 / format.sampleRate, isZero);
    writeTo(*mix_, interleave(payload, header.buffers, sizeof(std::int16_t), scratch_));
}

void DemoRecorder::takeTrack(const RecordHeader& header, std::span<const std::byte> payload) {
    TrackFile& track = trackFiles_[header.trackId];
    const WavFormat format = WavFormat::of(header);
    if (track.file != nullptr && track.file->format() != format) {
        closedFiles_.push_back(track.file->path());
        track.file.reset();
    }
    if (track.file == nullptr) {
        if (track.refused == format) {
            return;
        }
        std::string name = folder_ + "/track-" + std::to_string(header.trackId);
        name += ++track.parts > 1 ? "-" + std::to_string(track.parts) + ".wav" : ".wav";
        std::string error;
        track.file = WavFile::create(name, format, error);
        if (track.file == nullptr) {
            track.refused = format;
            complain(error);
            return;
        }
    }
    fillPause(track, header);
    writeTo(*track.file, interleave(payload, header.buffers,
                                    static_cast<std::size_t>(header.bitsPerChannel / 8), scratch_));
}

void DemoRecorder::fillPause(TrackFile& track, const RecordHeader& header) {
    const double seconds =
        (static_cast<double>(header.microseconds) - static_cast<double>(firstMicroseconds_)) / 1e6;
    const bool isNew = track.file->seconds() == 0;
    if (seconds - track.file->seconds() > (isNew ? 0 : kPauseSeconds)) {
        track.pauses += isNew ? 0 : 1;
        if (!track.file->padTo(seconds)) {
            complain(track.file->path() + ": not everything could be written");
        }
    }
}

void DemoRecorder::takeEvent(const RecordHeader& header, std::span<const std::byte> payload) {
    events_.push_back({header.microseconds,
                       header.category,
                       header.code,
                       {reinterpret_cast<const char*>(payload.data()), payload.size()}});
    rememberTracks();
}

void DemoRecorder::writeTo(WavFile& file, std::span<const std::byte> bytes) {
    if (!file.write(bytes)) {
        complain(file.path() + ": not everything could be written");
    }
}

void DemoRecorder::complain(const std::string& problem) {
    if (std::find(problems_.begin(), problems_.end(), problem) == problems_.end()) {
        problems_.push_back(problem);
        std::fprintf(stderr, "demo recorder: %s\n", problem.c_str());
    }
}

void DemoRecorder::rememberTracks() {
    for (const auto& info : RZAudioRecordStat().getHookAudioTrackInfoList()) {
        // A track that comes or goes during the call leaves empty records.
        if (info->audio_track_id() != 0) {
            const std::string text = trackText(*info);
            if (std::find(trackTexts_.begin(), trackTexts_.end(), text) == trackTexts_.end()) {
                trackTexts_.push_back(text);
            }
        }
    }
}

void DemoRecorder::showProgress() {
    const double seconds = mix_ != nullptr ? mix_->seconds() : 0;
    std::fprintf(stderr, "demo recorder: %5.1f s recorded, peak %s, %zu tracks, %llu dropped\n",
                 seconds, decibels(secondLevel_.peak()).c_str(),
                 static_cast<std::size_t>(RZAudioRecordStat().getAudioTrackSize()),
                 static_cast<unsigned long long>(queue_.refused()));
    secondLevel_ = {};
    if (mix_ != nullptr) {
        mix_->refresh();
    }
    for (auto& [id, track] : trackFiles_) {
        if (track.file != nullptr) {
            track.file->refresh();
        }
    }
}

void DemoRecorder::writeEvents() {
    const std::string path = folder_ + "/events.txt";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "w"),
                                                               std::fclose);
    if (file == nullptr) {
        complain(path + ": cannot be written");
        return;
    }
    for (const Event& event : events_) {
        const double seconds =
            (static_cast<double>(event.microseconds) - static_cast<double>(firstMicroseconds_)) /
            1e6;
        std::fprintf(file.get(), "%.6f\t%llu/%llu %s\n", std::max(seconds, 0.0),
                     static_cast<unsigned long long>(event.category),
                     static_cast<unsigned long long>(event.code), event.message.c_str());
    }
}

void DemoRecorder::printSummary() const {
    const auto number = [](std::uint64_t value) { return std::to_string(value); };
    std::string text = "\nCaptured:\n";
    for (const std::string& track : trackTexts_) {
        text += "  " + track + "\n";
    }
    if (trackTexts_.empty()) {
        text += "  no track\n";
    }
    text += "Events:\n";
    for (const Event& event : events_) {
        text +=
            "  " + number(event.category) + "/" + number(event.code) + " " + event.message + "\n";
    }
    text += "Mix:\n  ";
    text += mix_ != nullptr ? mix_->format().text() : std::string("nothing was recorded");
    text += "\n  peak " + decibels(level_.peak()) + ", RMS " + decibels(level_.rms()) + "\n";
    text += "Dropouts:\n  " + number(dropouts_.gaps()) + " gaps in the time stamps (" +
            number(static_cast<std::uint64_t>(dropouts_.gapMicroseconds() / 1000)) + " ms), " +
            number(dropouts_.backwardSteps()) + " steps back, " + number(dropouts_.zeroBlocks()) +
            " silent blocks inside, " + number(queue_.refused()) + " blocks dropped by the queue\n";
    text += "Files:\n";
    const auto listFile = [&text](const WavFile& file, int pauses) {
        std::array<char, 32> seconds{};
        std::snprintf(seconds.data(), seconds.size(), "%.2f s", file.seconds());
        text += "  " + file.path() + " (" + file.format().text() + ", " + seconds.data();
        text += pauses > 0 ? ", silence in " + std::to_string(pauses) + " pause(s))\n" : ")\n";
    };
    if (mix_ != nullptr) {
        listFile(*mix_, 0);
    }
    for (const std::string& path : closedFiles_) {
        text += "  " + path + "\n";
    }
    for (const auto& [id, track] : trackFiles_) {
        if (track.file != nullptr) {
            listFile(*track.file, track.pauses);
        }
    }
    text += "  " + folder_ + "/events.txt\n";
    for (const std::string& problem : problems_) {
        text += "Problem: " + problem + "\n";
    }
    std::fputs(text.c_str(), stderr);
}

}  // namespace demo
