#include "format/RateConverter.h"

extern "C" {
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "common/ForkLocks.h"
#include "common/NeverDestroyed.h"
#include "common/Planes.h"
#include "format/PCMFormat.h"
#include "format/RateRatio.h"
#include "format/Resampler.h"

namespace tqplatform {

using tqcommon::AudioView;

namespace {

constexpr UInt32 kMaximumBlock = 1U << 20;

}  // namespace

/// Two counts run side by side. `credit_` says how much input the source was asked for beyond
/// what the output given so far stands for; it alone decides how much to ask for, so the pulls
/// are as even as whole frames can be. `phase_` and `ahead_` follow the resampler's own position
/// and are used to bring it to a known one: with half a filter of silence before the first frame
/// it can always give what the credit covers.
///
/// While nothing but silence goes in, the resampler is left alone: what it would have given is
/// silence, too. It is run through the rest of the cycle that it missed before it sounds again, so
/// that it stands where it would have stood.
class RateConverter::Engine {
  public:
    Engine(RateRatio ratio, UInt32 channels, UInt32 maximumFrames)
        : ratio_(ratio),
          channels_(channels),
          maximumFrames_(maximumFrames),
          inputPlanes_(ratio.equal() ? 0 : channels, maximumFrames),
          scratchPlanes_(ratio.equal() ? 0 : channels, maximumFrames),
          silentPlane_(ratio.equal() ? 0 : 1, maximumFrames) {
        if (ratio_.equal()) {
            return;
        }
        resampler_ = makeResampler(ratio, channels);
        input_ = inputPlanes_.view();
        scratch_ = scratchPlanes_.view();
        silent_ = {silentPlane_.view().plane(0), channels, maximumFrames, 0};
        measureLookAhead();
        warmUp();
        reset();
        if (isCyclic()) {
            past_ = 2 * lookAhead_ + 2;
            quiet_ = past_;
        }
    }

    OSStatus pull(const AudioView& planes, FramePull source, void* context) noexcept {
        const UInt32 frames = planes.frames();
        UInt32 done = 0;
        while (done < frames) {
            const UInt32 block = std::min(frames - done, maximumFrames_);
            const AudioView part = planes.slice(done, block);
            UInt32 made = 0;
            const OSStatus status =
                ratio_.equal() ? source(context, part) : pullBlock(part, source, context, made);
            if (status != noErr) {
                silence(planes.slice(done + made, frames - done - made));
                return status;
            }
            done += block;
        }
        return noErr;
    }

    void reset() noexcept {
        if (ratio_.equal()) {
            return;
        }
        // Silence as long as the filter pushes the past out of it.
        for (std::int64_t left = 2 * lookAhead_ + 2; left > 0; left -= maximumFrames_) {
            const auto chunk = static_cast<UInt32>(std::min<std::int64_t>(left, maximumFrames_));
            convert(silent_, chunk, scratch_, maximumFrames_);
            while (convert(silent_, 0, scratch_, maximumFrames_) > 0) {
            }
        }
        // Short cycles are run to their end, so that a converter after a reset is like new.
        if (isCyclic()) {
            endCycle();
        }
        feedSilence(phase_ == 0 ? missing() - 1 : missing());
        credit_ = 0;
        quiet_ = isCyclic() ? past_ : 0;
        missedInput_ = missedOutput_ = 0;
    }

    [[nodiscard]] UInt32 delay() const noexcept { return static_cast<UInt32>(lookAhead_); }

    /// Took long to make, and is like new after a reset.
    [[nodiscard]] bool isSpare() const noexcept { return !ratio_.equal() && isCyclic(); }

    [[nodiscard]] bool isFor(RateRatio ratio, UInt32 channels,
                             UInt32 maximumFrames) const noexcept {
        return ratio_.input == ratio.input && ratio_.output == ratio.output &&
               channels_ == channels && maximumFrames_ == maximumFrames;
    }

  private:
    /// Its position repeats soon enough to be found again by running it there.
    [[nodiscard]] bool isCyclic() const noexcept { return ratio_.output <= kFilterPhases; }

    /// Input frames that the resampler lacks for its next output frame.
    [[nodiscard]] std::int64_t missing() const noexcept { return lookAhead_ + 1 - ahead_; }

    /// Feeds the resampler and takes out what it can give, up to `capacity`. Negative when it
    /// failed for want of memory.
    int convert(const AudioView& in, UInt32 inCount, const AudioView& out,
                UInt32 capacity) noexcept {
        const std::uint8_t* inBytes[kMaximumChannels];
        std::uint8_t* outBytes[kMaximumChannels];
        for (UInt32 channel = 0; channel < channels_; ++channel) {
            inBytes[channel] = reinterpret_cast<const std::uint8_t*>(in.plane(channel));
            outBytes[channel] = reinterpret_cast<std::uint8_t*>(out.plane(channel));
        }
        // The input pointers are never null: that would flush.
        const int made = swr_convert(resampler_.get(), outBytes, static_cast<int>(capacity),
                                     inBytes, static_cast<int>(inCount));
        if (made < 0) {
            return made;
        }
        const std::int64_t position = phase_ + made * ratio_.input;
        phase_ = position % ratio_.output;
        ahead_ += inCount - position / ratio_.output;
        return made;
    }

    /// Gives output until the next one lies right on an input frame, feeding no more than it takes.
    void endCycle() noexcept {
        std::int64_t left = 0;
        while ((phase_ + left * ratio_.input) % ratio_.output != 0) {
            ++left;
        }
        while (left > 0) {
            const std::int64_t last = (phase_ + (left - 1) * ratio_.input) / ratio_.output;
            const auto fed =
                static_cast<UInt32>(std::clamp<std::int64_t>(last + missing(), 0, maximumFrames_));
            const auto room = static_cast<UInt32>(std::min<std::int64_t>(left, maximumFrames_));
            const int made = convert(silent_, fed, scratch_, room);
            if (made < 0 || (made == 0 && fed == 0)) {
                return;
            }
            left -= made;
        }
    }

    void feedSilence(std::int64_t frames) noexcept {
        while (frames > 0) {
            const auto chunk = static_cast<UInt32>(std::min<std::int64_t>(frames, maximumFrames_));
            convert(silent_, chunk, scratch_, 0);
            frames -= chunk;
        }
    }

    /// Fills the planes; `made` says how many of their frames when the source fails.
    OSStatus pullBlock(const AudioView& planes, FramePull source, void* context,
                       UInt32& made) noexcept {
        const UInt32 block = planes.frames();
        std::int64_t wanted = ratio_.inputFor(block, credit_);
        while (made < block || wanted > 0) {
            const auto chunk = static_cast<UInt32>(std::min<std::int64_t>(wanted, maximumFrames_));
            if (chunk > 0) {
                const OSStatus status = source(context, input_.slice(0, chunk));
                if (status != noErr) {
                    return status;
                }
            }
            wanted -= chunk;
            quiet_ = isSilent(chunk) ? std::min(quiet_ + chunk, past_ + chunk) : 0;
            if (quiet_ == past_ + chunk && wanted == 0 && made == 0) {
                miss(chunk, planes);
                made = block;
                return noErr;
            }
            makeUp();
            // The resampler may keep back what it could give already until asked once more.
            int count = give(chunk, planes.slice(made, block - made));
            while (count > 0) {
                made += static_cast<UInt32>(count);
                count = made < block ? give(0, planes.slice(made, block - made)) : 0;
            }
            if (count < 0) {
                return kAudio_MemFullError;
            }
            if (made < block && wanted == 0) {
                wanted = 1;
            }
        }
        return noErr;
    }

    /// The next `frames` of the input.
    [[nodiscard]] bool isSilent(UInt32 frames) const noexcept {
        for (UInt32 channel = 0; channel < channels_; ++channel) {
            const float* const plane = input_.plane(channel);
            // In steps that fit vectors; sound ends it at the first.
            for (UInt32 i = 0; i < frames;) {
                bool sounds = false;
                for (const UInt32 end = std::min(frames, i + 64); i < end; ++i) {
                    sounds |= plane[i] != 0.0F;
                }
                if (sounds) {
                    return false;
                }
            }
        }
        return true;
    }

    /// Gives silence for silence without the resampler.
    void miss(UInt32 fed, const AudioView& planes) noexcept {
        const UInt32 given = planes.frames();
        silence(planes);
        credit_ += fed * ratio_.output - given * ratio_.input;
        missedInput_ += fed;
        missedOutput_ += given;
        if (missedOutput_ >= 2 * ratio_.output) {
            // Whole cycles change nothing; one is kept, for input that came before its output.
            const std::int64_t cycles = missedOutput_ / ratio_.output - 1;
            missedOutput_ -= cycles * ratio_.output;
            missedInput_ -= cycles * ratio_.input;
        }
    }

    /// Runs the resampler through what it missed: two cycles of silence at most.
    void makeUp() noexcept {
        while (missedInput_ > 0 || missedOutput_ > 0) {
            const auto fed =
                static_cast<UInt32>(std::clamp<std::int64_t>(missedInput_, 0, maximumFrames_));
            const auto room =
                static_cast<UInt32>(std::clamp<std::int64_t>(missedOutput_, 0, maximumFrames_));
            const int made = convert(silent_, fed, scratch_, room);
            if (made < 0 || (made == 0 && fed == 0)) {
                break;
            }
            missedInput_ -= fed;
            missedOutput_ -= made;
        }
        missedInput_ = missedOutput_ = 0;
    }

    int give(UInt32 fed, const AudioView& out) noexcept {
        const int count = convert(input_, fed, out, out.frames());
        if (count >= 0) {
            credit_ += fed * ratio_.output - count * ratio_.input;
        }
        return count;
    }

    /// Finds how many input frames beyond its position an output frame takes: half the length of
    /// the filter, which the resampler does not tell.
    void measureLookAhead() {
        const std::int64_t limit = std::int64_t{kMaximumBlock} * 64;
        bool settled = false;  // the very first outputs come late, in one go
        for (std::int64_t fed = 0; fed < limit; ++fed) {
            const std::int64_t before = ahead_;
            if (convert(silent_, 1, scratch_, maximumFrames_) > 0) {
                if (settled) {
                    lookAhead_ = before;
                    return;
                }
                settled = true;
                while (convert(silent_, 0, scratch_, maximumFrames_) > 0) {
                }
            }
        }
        throw std::runtime_error("the resampler gives nothing");
    }

    /// Lets the resampler's buffers grow to what the largest pulls need.
    void warmUp() noexcept {
        for (int round = 0; round < 3; ++round) {
            UInt32 made = 0;
            pullBlock(
                scratch_, [](void*, const AudioView&) -> OSStatus { return noErr; }, nullptr, made);
        }
    }

    const RateRatio ratio_;
    const UInt32 channels_;
    const UInt32 maximumFrames_;
    Resampler resampler_;
    tqcommon::Planes inputPlanes_;
    tqcommon::Planes scratchPlanes_;
    tqcommon::Planes silentPlane_;  ///< zeros
    AudioView input_;
    AudioView scratch_;
    AudioView silent_;  ///< the plane of zeros as every channel

    std::int64_t credit_ = 0;  ///< in input frames times ratio_.output
    std::int64_t phase_ = 0;   ///< the next output's place in its input frame, over ratio_.output
    std::int64_t ahead_ = 0;   ///< input frames fed from that input frame on
    std::int64_t lookAhead_ = 0;  ///< what ahead_ has to exceed for an output frame

    /// How long silence has to last to fill the resampler; never, where it cannot be caught up.
    std::int64_t past_ = std::int64_t{1} << 60;
    std::int64_t quiet_ = 0;  ///< how long it has lasted, not counted beyond what is needed
    std::int64_t missedInput_ = 0;
    std::int64_t missedOutput_ = 0;
};

/// Converters that nobody uses at the moment, each like new: making a filter takes milliseconds,
/// and units of the same few rates come and go. Held up to kMost, the oldest goes first.
class RateConverter::Spares {
  public:
    Spares() { spares_.reserve(kMost); }
    static Spares& shared() {
        static tqcommon::NeverDestroyed<Spares> spares;
        return *spares;
    }

    /// [any thread] Null when there is none.
    std::unique_ptr<Engine> take(RateRatio ratio, UInt32 channels, UInt32 maximumFrames) {
        const std::lock_guard lock(lock_);
        const auto found = find(ratio, channels, maximumFrames);
        if (found == spares_.end()) {
            return nullptr;
        }
        std::unique_ptr<Engine> engine = std::move(*found);
        spares_.erase(found);
        return engine;
    }
    /// [any thread] Takes a converter in, as it was left.
    void keep(std::unique_ptr<Engine> engine) noexcept {
        if (!engine->isSpare()) {
            return;
        }
        engine->reset();
        std::unique_ptr<Engine> oldest;  // destroyed behind the lock
        const std::lock_guard lock(lock_);
        if (spares_.size() == kMost) {
            oldest = std::move(spares_.front());
            spares_.erase(spares_.begin());
        }
        spares_.push_back(std::move(engine));
    }

  private:
    static constexpr std::size_t kMost = 24;

    std::vector<std::unique_ptr<Engine>>::iterator find(RateRatio ratio, UInt32 channels,
                                                        UInt32 maximumFrames) {
        return std::find_if(spares_.begin(), spares_.end(), [&](const auto& engine) {
            return engine->isFor(ratio, channels, maximumFrames);
        });
    }

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Foundation, lock_};
    std::vector<std::unique_ptr<Engine>> spares_;
};

RateConverter::RateConverter(Float64 inputRate, Float64 outputRate, UInt32 channels,
                             UInt32 maximumFrames) {
    const bool rates =
        std::isfinite(inputRate) && inputRate > 0 && std::isfinite(outputRate) && outputRate > 0;
    if (!rates || channels < 1 || channels > kMaximumChannels || maximumFrames < 1 ||
        maximumFrames > kMaximumBlock) {
        throw std::runtime_error("no such rate, channel count or block size");
    }
    const RateRatio ratio = RateRatio::of(inputRate, outputRate);
    engine_ = Spares::shared().take(ratio, channels, maximumFrames);
    if (engine_ == nullptr) {
        engine_ = std::make_unique<Engine>(ratio, channels, maximumFrames);
    }
}

RateConverter::~RateConverter() {
    Spares::shared().keep(std::move(engine_));
}

void RateConverter::prepare(Float64 inputRate, Float64 outputRate, UInt32 channels,
                            UInt32 maximumFrames) {
    // Its end makes it a spare one again or anew.
    const RateConverter made(inputRate, outputRate, channels, maximumFrames);
}

OSStatus RateConverter::pull(const AudioView& planes, FramePull source, void* context) noexcept {
    return engine_->pull(planes, source, context);
}

void RateConverter::reset() noexcept {
    engine_->reset();
}

UInt32 RateConverter::delay() const noexcept {
    return engine_->delay();
}

}  // namespace tqplatform
