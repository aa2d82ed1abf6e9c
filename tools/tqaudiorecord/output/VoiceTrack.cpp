#include "output/VoiceTrack.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "output/FilesSink.h"

namespace tqrecorder {
namespace {

constexpr double kRate = 44100;  ///< of the mix, and of what the microphone gives
constexpr std::uint32_t kMixChannels = 2;
/// What programs play is in their tracks later than it is heard: by the blocks it waits for, and
/// what is played natively by what it is held back for as well (common/NativeSound.h). Measured
/// (docs/devices.md): the middle of all servers and programs.
constexpr double kTracksLaterSeconds = 0.022;
constexpr double kNativeTracksLaterSeconds = 0.0965;
/// A mix is read up to 0.1 s behind its time, its first block a little later still.
constexpr std::size_t kMostWaiting = 100;
/// Microseconds; what overlaps by more has another time.
constexpr double kMostLate = 100'000;
/// A microphone that says nothing for so long is silence in the mix.
constexpr std::int64_t kPatienceFrames = 22050;
/// A mix that stands still is silence with the microphone in it, in pieces of that length.
constexpr std::int64_t kStillFrames = 44100;
constexpr std::int64_t kPieceFrames = 4096;
/// A mix that is read late is waited for, with what is heard kept in memory: the largest ring holds
/// as much.
constexpr std::int64_t kMostAhead = std::int64_t{600} * 44100;

}  // namespace

std::uint64_t VoiceTrack::Beside::timeAt(std::int64_t position) const {
    const auto behind = static_cast<double>(static_cast<std::int64_t>(clock.frames()) - position);
    return static_cast<std::uint64_t>(std::llround(clock.end() - behind * 1e6 / kRate));
}

void VoiceTrack::heard(const HeardBlock& block) {
    channels_ = block.channels;
    if (beside_) {
        lay(block.microseconds, block.samples);
        pump();
        return;
    }
    waiting_.push_back(
        {block.microseconds, {block.samples.begin(), block.samples.end()}, block.isOpen});
    if (waiting_.size() > kMostWaiting) {
        leaveOut();
    }
}

/// The oldest that waits.
void VoiceTrack::leaveOut() {
    leftOutFrames_ += waiting_.front().isOpen ? waiting_.front().samples.size() / channels_ : 0;
    waiting_.pop_front();
}

/// A block can be told late and never early: what follows it says when it was heard at the latest.
/// Where the first lies is followed for seconds.
void VoiceTrack::settleWaiting() {
    double latest = 0;
    for (auto block = waiting_.rbegin(); block != waiting_.rend(); ++block) {
        const double frames = static_cast<double>(block->samples.size() / channels_);
        const auto said = static_cast<double>(block->microseconds);
        const double late = said - (latest - frames * 1e6 / kRate);
        const bool isLate = block != waiting_.rbegin() && late > 0 && late < kMostLate;
        latest = isLate ? said - late : said;
        block->microseconds = static_cast<std::uint64_t>(std::llround(latest));
    }
}

double VoiceTrack::leftOutSeconds() const {
    return static_cast<double>(leftOutFrames_) / kRate;
}

double VoiceTrack::waitsForSeconds() const {
    return static_cast<double>(leftOutFrames_ - leftOutBefore_) / kRate;
}

void VoiceTrack::lay(std::uint64_t microseconds, std::span<const float> samples) {
    if (!aligner_) {
        aligner_.emplace(channels_, kRate);
    }
    const double away = static_cast<double>(microseconds) - beside_->clock.end();
    const double later =
        beside_->process.usesPlatform ? kTracksLaterSeconds : kNativeTracksLaterSeconds;
    aligner_->add(static_cast<double>(beside_->clock.frames()) + (away / 1e6 + later) * kRate,
                  samples);
    std::int64_t position = aligner_->next();
    const std::vector<float> frames = aligner_->take();
    if (frames.empty()) {
        return;
    }
    out_(beside_->process, {.track = kMicrophoneTrack,
                            .unit = kMicrophoneName,
                            .format = {kRate, channels_, 32, true},
                            .microseconds = beside_->timeAt(position),
                            .frames = std::as_bytes(std::span(frames))});
    if (isInMix_) {
        keepVoice(position, frames);
    }
}

void VoiceTrack::keepVoice(std::int64_t position, const std::vector<float>& samples) {
    const std::int64_t hole = position - voiceEnd();
    if (hole > kMostAhead || voice_.empty()) {
        voice_.clear();
        voiceBegins_ = position;
    } else {
        voice_.insert(voice_.end(), static_cast<std::size_t>(hole) * channels_, 0.0F);
    }
    voice_.insert(voice_.end(), samples.begin(), samples.end());
}

std::int64_t VoiceTrack::voiceEnd() const {
    return voiceBegins_ + static_cast<std::int64_t>(voice_.size() / channels_);
}

void VoiceTrack::block(const Process& process, const Block& block) {
    const bool isMix = block.track == 0 && block.format == kMixFormat;
    const bool sounds =
        isMix && !(beside_ && beside_->hasSounded) && hasSound(block.frames, block.format);
    if (sounds && beside_ && beside_->process.id != process.id) {
        // A launcher that plays silence keeps nobody's voice.
        leave();
    }
    if (isMix && !beside_) {
        beside_.emplace(Beside{process, StreamClock(kRate, block.microseconds, kMixPatience)});
        mixBefore_ = sent_ = voiceBegins_ = 0;
    }
    const bool isBeside = isMix && beside_->process.id == process.id;
    if (!isBeside) {
        out_(process, block);
        return;
    }
    beside_->process = process;
    beside_->hasSounded = beside_->hasSounded || sounds;
    if (isInMix_) {
        takeMix(block);
    } else {
        static_cast<void>(beside_->clock.before(block));
        out_(process, block);
    }
    settleWaiting();
    for (; !waiting_.empty(); waiting_.pop_front()) {
        lay(waiting_.front().microseconds, waiting_.front().samples);
    }
    leftOutBefore_ = leftOutFrames_;
    pump();
}

void VoiceTrack::takeMix(const Block& block) {
    const std::size_t frames = block.frames.size() / kMixFormat.frameBytes();
    const std::uint64_t silence = beside_->clock.before(block);
    MixBlock mine{static_cast<std::int64_t>(beside_->clock.frames() - frames),
                  std::vector<std::int16_t>(frames * kMixChannels), silence};
    std::memcpy(mine.samples.data(), block.frames.data(), frames * kMixFormat.frameBytes());
    mix_.push_back(std::move(mine));
}

void VoiceTrack::pump() {
    while (!mix_.empty() && endOfFirst() <= voiceEnd()) {
        sendFirst();
    }
}

/// What waits in a ring while the recorder is held up is not missing. So the one of both that is
/// behind is given up only once it had brought nothing more, asked behind the other.
void VoiceTrack::turnEnded(bool isAll) {
    if (!isInMix_ || !beside_) {
        return;
    }
    while (!mix_.empty() && mixBefore_ - endOfFirst() >= kPatienceFrames) {
        sendFirst();
    }
    mixBefore_ = static_cast<std::int64_t>(beside_->clock.frames());
    if (mix_.empty()) {
        sendMix(voiceEnd() - (isAll ? kStillFrames : kMostAhead), nullptr);
    }
}

std::int64_t VoiceTrack::endOfFirst() const {
    return mix_.front().position +
           static_cast<std::int64_t>(mix_.front().samples.size() / kMixChannels);
}

void VoiceTrack::sendFirst() {
    const MixBlock& block = mix_.front();
    const std::int64_t late = std::min(sent_, endOfFirst()) - block.position;
    if (late > 0) {
        lost_(beside_->process, static_cast<std::uint64_t>(late) * kMixFormat.frameBytes());
    }
    sendMix(block.position, nullptr);
    sendMix(endOfFirst(), &block);
    mix_.pop_front();
}

/// The mix up to there: the block, or silence, and the microphone in it.
void VoiceTrack::sendMix(std::int64_t until, const MixBlock* block) {
    while (sent_ < until) {
        const auto frames = static_cast<std::size_t>(
            block != nullptr ? until - sent_ : std::min(until - sent_, kPieceFrames));
        std::vector<std::int16_t> samples(frames * kMixChannels);
        if (block != nullptr) {
            // What of it was sent as silence already is too late.
            const auto late = static_cast<std::size_t>(sent_ - block->position) * kMixChannels;
            std::copy(block->samples.begin() + static_cast<std::ptrdiff_t>(late),
                      block->samples.end(), samples.begin());
        }
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const std::int64_t at =
                sent_ + static_cast<std::int64_t>(i / kMixChannels) - voiceBegins_;
            const std::size_t sample =
                static_cast<std::size_t>(std::max<std::int64_t>(at, 0)) * channels_ +
                i % kMixChannels % channels_;
            if (at >= 0 && sample < voice_.size()) {
                const float sum = static_cast<float>(samples[i]) + 32768.0F * voice_[sample];
                samples[i] =
                    static_cast<std::int16_t>(std::lround(std::clamp(sum, -32768.0F, 32767.0F)));
            }
        }
        out_(beside_->process, {.track = 0,
                                .unit = {},
                                .format = kMixFormat,
                                .microseconds = beside_->timeAt(sent_),
                                .frames = std::as_bytes(std::span(samples)),
                                .filledFrames = block != nullptr ? block->filledFrames : 0});
        sent_ += static_cast<std::int64_t>(frames);
    }
    const std::int64_t done = std::clamp<std::int64_t>(
        sent_ - voiceBegins_, 0, static_cast<std::int64_t>(voice_.size() / channels_));
    voice_.erase(voice_.begin(), voice_.begin() + done * channels_);
    voiceBegins_ += done;
}

void VoiceTrack::ended(const Process& process) {
    if (beside_ && beside_->process.id == process.id) {
        leave();
    }
}

void VoiceTrack::finish() {
    if (beside_) {
        leave();
    }
    while (!waiting_.empty()) {
        leaveOut();
    }
}

void VoiceTrack::leave() {
    if (isInMix_) {
        while (!mix_.empty()) {
            sendFirst();
        }
        sendMix(voiceEnd(), nullptr);
    }
    beside_.reset();
    aligner_.reset();
    voice_.clear();
    waiting_.clear();
}

}  // namespace tqrecorder
