#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

#include "output/files/Resampler.h"
#include "output/matroska/StreamEncoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
}

namespace tqrecorder {
namespace {

struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

constexpr int kOpusRate = 48000;
constexpr int kOpusBitsPerChannel = 64'000;
constexpr int kVorbisQuality = 5;  // of 10
/// The compression that the format's own tools take by default.
constexpr int kFlacLevel = 5;
constexpr int kLargestFlacFrame = 4096;
constexpr int kMostChannels = 8;
constexpr std::uint64_t kOpusPreRoll = 80'000'000;  // as the format wants it

/// What the codec is given.
BlockFormat takenBy(MatroskaCoding coding, const BlockFormat& format) {
    BlockFormat taken = widened(format);
    if (coding == MatroskaCoding::kFlac) {
        taken.isFloat = false;
        taken.bitsPerChannel = taken.bitsPerChannel == 16 ? 16 : 32;
        return taken;
    }
    taken.isFloat = true;
    taken.bitsPerChannel = 32;
    if (coding == MatroskaCoding::kOpus) {
        taken.sampleRate = kOpusRate;
    }
    return taken;
}

const char* nameOf(MatroskaCoding coding) {
    switch (coding) {
        case MatroskaCoding::kFlac:
            return "flac";
        case MatroskaCoding::kOpus:
            return "libopus";
        case MatroskaCoding::kVorbis:
            return "libvorbis";
        case MatroskaCoding::kNone:
        case MatroskaCoding::kPcm:
            break;
    }
    return "";
}

/// About 0.09 s at any rate, so that what is written twice a second is up to date.
int flacFrameOf(double rate) {
    int frame = kLargestFlacFrame;
    while (frame > 256 && frame / rate > 0.12) {
        frame /= 2;
    }
    return frame;
}

class LibavEncoder : public StreamEncoder {
  public:
    LibavEncoder(MatroskaCoding coding, const BlockFormat& format)
        : coding_(coding), from_(format), taken_(takenBy(coding, format)) {}

    [[nodiscard]] bool open() {
        const AVCodec* const codec = avcodec_find_encoder_by_name(nameOf(coding_));
        context_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
        frame_.reset(av_frame_alloc());
        packet_.reset(av_packet_alloc());
        if (context_ == nullptr || frame_ == nullptr || packet_ == nullptr ||
            from_.channels > kMostChannels) {
            return false;
        }
        setUp(*context_);
        if (avcodec_open2(context_.get(), codec, nullptr) != 0 || context_->frame_size <= 0) {
            return false;
        }
        if (taken_ != widened(from_)) {
            resampler_ = std::make_unique<Resampler>(from_, taken_);
        }
        describe();
        return true;
    }

    [[nodiscard]] const MatroskaCodec& codec() const override { return codec_; }

    void encode(std::span<const std::byte> frames) override {
        add(resampler_ != nullptr ? resampler_->convert(frames) : widen(frames, from_, wide_));
    }

    void flush() override {
        if (resampler_ != nullptr) {
            add(resampler_->flush());
        }
        if (!waiting_.empty()) {
            send(waiting_);
            waiting_.clear();
        }
        isGood_ = avcodec_send_frame(context_.get(), nullptr) == 0 && isGood_;
        receive();
    }

    [[nodiscard]] std::vector<CodedPacket> takePackets() override {
        return std::exchange(packets_, {});
    }
    [[nodiscard]] bool isGood() const override { return isGood_; }

  private:
    void setUp(AVCodecContext& context) const {
        context.sample_rate = static_cast<int>(std::lround(taken_.sampleRate));
        context.time_base = {1, context.sample_rate};
        av_channel_layout_default(&context.ch_layout, static_cast<int>(taken_.channels));
        context.thread_count = 1;
        switch (coding_) {
            case MatroskaCoding::kFlac:
                context.sample_fmt =
                    taken_.bitsPerChannel == 16 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32;
                context.bits_per_raw_sample = taken_.bitsPerChannel == 16 ? 16 : 24;
                context.compression_level = kFlacLevel;
                context.frame_size = flacFrameOf(taken_.sampleRate);
                break;
            case MatroskaCoding::kOpus:
                context.sample_fmt = AV_SAMPLE_FMT_FLT;
                context.bit_rate = kOpusBitsPerChannel * std::int64_t{taken_.channels};
                break;
            default:
                context.sample_fmt = AV_SAMPLE_FMT_FLTP;
                context.flags |= AV_CODEC_FLAG_QSCALE;
                context.global_quality = kVorbisQuality * FF_QP2LAMBDA;
                break;
        }
    }

    void describe() {
        const auto* const extra = reinterpret_cast<const std::byte*>(context_->extradata);
        codec_.setup.assign(extra, extra + context_->extradata_size);
        codec_.sampleRate = taken_.sampleRate;
        codec_.channels = taken_.channels;
        codec_.id = "A_VORBIS";
        if (coding_ == MatroskaCoding::kFlac) {
            codec_.id = "A_FLAC";
            codec_.bitDepth = static_cast<std::uint32_t>(context_->bits_per_raw_sample);
            // As a FLAC file begins: its mark, and the only block of metadata.
            constexpr std::array kBegin{std::byte{'f'}, std::byte{'L'},  std::byte{'a'},
                                        std::byte{'C'}, std::byte{0x80}, std::byte{0},
                                        std::byte{0}};
            std::vector<std::byte> begin(kBegin.begin(), kBegin.end());
            begin.push_back(static_cast<std::byte>(codec_.setup.size()));
            codec_.setup.insert(codec_.setup.begin(), begin.begin(), begin.end());
        } else if (coding_ == MatroskaCoding::kOpus) {
            codec_.id = "A_OPUS";
            delay_ = context_->initial_padding;
            codec_.delayNanoseconds = static_cast<std::uint64_t>(
                std::llround(static_cast<double>(delay_) * 1e9 / kOpusRate));
            codec_.preRollNanoseconds = kOpusPreRoll;
        }
    }

    void add(std::span<const std::byte> frames) {
        waiting_.insert(waiting_.end(), frames.begin(), frames.end());
        const std::size_t bytes =
            static_cast<std::size_t>(context_->frame_size) * taken_.frameBytes();
        std::size_t done = 0;
        for (; waiting_.size() - done >= bytes; done += bytes) {
            send(std::span(waiting_).subspan(done, bytes));
        }
        waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(done));
    }

    void send(std::span<const std::byte> frames) {
        const auto count = static_cast<int>(frames.size() / taken_.frameBytes());
        frame_->nb_samples = count;
        frame_->format = context_->sample_fmt;
        frame_->sample_rate = context_->sample_rate;
        frame_->pts = sent_;
        if (av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout) != 0 ||
            av_frame_get_buffer(frame_.get(), 0) != 0) {
            isGood_ = false;
            return;
        }
        fill(frames);
        isGood_ = avcodec_send_frame(context_.get(), frame_.get()) == 0 && isGood_;
        av_frame_unref(frame_.get());
        sent_ += count;
        receive();
    }

    void fill(std::span<const std::byte> frames) {
        if (context_->sample_fmt != AV_SAMPLE_FMT_FLTP) {
            std::memcpy(frame_->data[0], frames.data(), frames.size());
            return;
        }
        const std::size_t count = static_cast<std::size_t>(frame_->nb_samples);
        for (std::size_t channel = 0; channel < taken_.channels; ++channel) {
            auto* const plane = reinterpret_cast<std::byte*>(frame_->extended_data[channel]);
            for (std::size_t frame = 0; frame < count; ++frame) {
                std::memcpy(plane + frame * sizeof(float),
                            frames.data() + (frame * taken_.channels + channel) * sizeof(float),
                            sizeof(float));
            }
        }
    }

    void receive() {
        while (avcodec_receive_packet(context_.get(), packet_.get()) == 0) {
            const auto* const bytes = reinterpret_cast<const std::byte*>(packet_->data);
            packets_.push_back(
                {packet_->pts + delay_,
                 static_cast<std::uint32_t>(std::max<std::int64_t>(packet_->duration, 0)),
                 discardedIn(*packet_),
                 {bytes, bytes + packet_->size}});
            av_packet_unref(packet_.get());
        }
    }

    static std::uint32_t discardedIn(const AVPacket& packet) {
        constexpr std::size_t kPlace = 4;  // of the number of frames to drop at the end
        std::size_t size = 0;
        const std::uint8_t* const data =
            av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
        std::uint32_t frames = 0;
        for (std::size_t byte = 0; data != nullptr && size >= kPlace + 4 && byte < 4; ++byte) {
            frames |= std::uint32_t{data[kPlace + byte]} << (8 * byte);
        }
        return frames;
    }

    MatroskaCoding coding_;
    BlockFormat from_;
    BlockFormat taken_;
    MatroskaCodec codec_;
    std::unique_ptr<Resampler> resampler_;
    std::unique_ptr<AVCodecContext, FreeContext> context_;
    std::unique_ptr<AVFrame, FreeFrame> frame_;
    std::unique_ptr<AVPacket, FreePacket> packet_;
    std::vector<std::byte> wide_;
    std::vector<std::byte> waiting_;  // less than a frame of the codec
    std::vector<CodedPacket> packets_;
    std::int64_t sent_ = 0;
    std::int64_t delay_ = 0;
    bool isGood_ = true;
};

}  // namespace

std::unique_ptr<StreamEncoder> makeLibavEncoder(MatroskaCoding coding, const BlockFormat& format) {
    // What the library prints would stand between the recorder's own lines.
    av_log_set_level(AV_LOG_QUIET);
    auto encoder = std::make_unique<LibavEncoder>(coding, format);
    return encoder->open() ? std::move(encoder) : nullptr;
}

}  // namespace tqrecorder
