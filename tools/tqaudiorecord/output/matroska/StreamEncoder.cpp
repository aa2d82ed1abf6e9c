#include "output/matroska/StreamEncoder.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "output/files/SoundFile.h"

namespace tqrecorder {
namespace {

constexpr double kPacketSeconds = 0.08;

/// Samples as they are.
class PcmEncoder : public StreamEncoder {
  public:
    explicit PcmEncoder(const BlockFormat& format)
        : format_(format),
          packetBytes_(format.frameBytes() * static_cast<std::size_t>(std::max(
                                                 1.0, format.sampleRate * kPacketSeconds))) {
        codec_.id = format.isFloat ? "A_PCM/FLOAT/IEEE" : "A_PCM/INT/LIT";
        codec_.sampleRate = format.sampleRate;
        codec_.channels = format.channels;
        codec_.bitDepth = format.bitsPerChannel;
    }

    [[nodiscard]] const MatroskaCodec& codec() const override { return codec_; }

    void encode(std::span<const std::byte> frames) override {
        const std::size_t before = waiting_.size();
        waiting_.insert(waiting_.end(), frames.begin(), frames.end());
        if (format_.bitsPerChannel == 8) {
            // Of 8 bits these files hold the unsigned kind.
            std::for_each(waiting_.begin() + static_cast<std::ptrdiff_t>(before), waiting_.end(),
                          [](std::byte& sample) { sample ^= std::byte{0x80}; });
        }
        std::size_t done = 0;
        for (; waiting_.size() - done >= packetBytes_; done += packetBytes_) {
            take(done, packetBytes_);
        }
        waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(done));
    }

    void flush() override {
        if (!waiting_.empty()) {
            take(0, waiting_.size());
            waiting_.clear();
        }
    }

    [[nodiscard]] std::vector<CodedPacket> takePackets() override {
        return std::exchange(packets_, {});
    }

  private:
    void take(std::size_t first, std::size_t bytes) {
        const auto begin = waiting_.begin() + static_cast<std::ptrdiff_t>(first);
        const auto frames = static_cast<std::uint32_t>(bytes / format_.frameBytes());
        packets_.push_back(
            {frame_, frames, 0, {begin, begin + static_cast<std::ptrdiff_t>(bytes)}});
        frame_ += frames;
    }

    BlockFormat format_;
    MatroskaCodec codec_;
    std::size_t packetBytes_;
    std::vector<std::byte> waiting_;
    std::vector<CodedPacket> packets_;
    std::int64_t frame_ = 0;
};

bool isKnown(const BlockFormat& format) {
    const std::uint32_t bits = format.bitsPerChannel;
    return format.channels > 0 && format.sampleRate >= 1 &&
           (format.isFloat ? bits == 32 || bits == 64
                           : bits == 8 || bits == 16 || bits == 24 || bits == 32);
}

}  // namespace

std::unique_ptr<StreamEncoder> StreamEncoder::create(MatroskaCoding coding,
                                                     const BlockFormat& format,
                                                     std::string& error) {
    if (!isKnown(format)) {
        error = "a Matroska file cannot hold " + textOf(format);
        return nullptr;
    }
    std::unique_ptr<StreamEncoder> encoder =
        coding == MatroskaCoding::kPcm ? nullptr : makeLibavEncoder(coding, format);
    return encoder != nullptr ? std::move(encoder) : std::make_unique<PcmEncoder>(format);
}

}  // namespace tqrecorder
