#include "DecodedFile.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

namespace tqrecorder::test {
namespace {

struct Free {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

std::vector<std::string>* listener = nullptr;

__attribute__((format(printf, 3, 0))) void note(void* /*object*/, int level, const char* format,
                                                va_list arguments) {
    std::array<char, 256> line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    if (level <= AV_LOG_ERROR && listener != nullptr) {
        listener->emplace_back(line.data());
    }
}

template <typename Sample>
double valueAt(const std::uint8_t* plane, std::size_t index) {
    Sample sample;
    std::memcpy(&sample, plane + index * sizeof(Sample), sizeof(Sample));
    if constexpr (std::is_floating_point_v<Sample>) {
        return static_cast<double>(sample);
    } else {
        return static_cast<double>(sample) / (std::uint64_t{1} << (8 * sizeof(Sample) - 1));
    }
}

double sampleOf(AVSampleFormat format, const std::uint8_t* plane, std::size_t index) {
    switch (av_get_packed_sample_fmt(format)) {
        case AV_SAMPLE_FMT_U8:
            return (static_cast<double>(plane[index]) - 128) / 128;
        case AV_SAMPLE_FMT_S16:
            return valueAt<std::int16_t>(plane, index);
        case AV_SAMPLE_FMT_S32:
            return valueAt<std::int32_t>(plane, index);
        case AV_SAMPLE_FMT_FLT:
            return valueAt<float>(plane, index);
        default:
            return valueAt<double>(plane, index);
    }
}

void append(const AVFrame& frame, DecodedStream& stream) {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool isPlanar = av_sample_fmt_is_planar(format) == 1;
    const auto channels = static_cast<std::size_t>(frame.ch_layout.nb_channels);
    const char* const name = av_get_sample_fmt_name(format);
    stream.samplesAs = name != nullptr ? name : "";
    for (std::size_t index = 0; index < static_cast<std::size_t>(frame.nb_samples); ++index) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            stream.samples.push_back(
                isPlanar ? sampleOf(format, frame.extended_data[channel], index)
                         : sampleOf(format, frame.data[0], index * channels + channel));
        }
    }
}

/// A stream of the file while it is read.
class Reader {
  public:
    explicit Reader(const AVStream& stream) : timeBase_(av_q2d(stream.time_base)) {
        const AVCodecParameters& parameters = *stream.codecpar;
        const AVCodec* const codec = avcodec_find_decoder(parameters.codec_id);
        decoder_.reset(avcodec_alloc_context3(codec));
        avcodec_parameters_to_context(decoder_.get(), &parameters);
        decoder_->pkt_timebase = stream.time_base;
        isOpen_ = codec != nullptr && avcodec_open2(decoder_.get(), codec, nullptr) == 0;
        const AVDictionaryEntry* const title = av_dict_get(stream.metadata, "title", nullptr, 0);
        result.title = title != nullptr ? title->value : "";
        result.codec = codec != nullptr ? codec->name : "";
        result.rate = parameters.sample_rate;
        result.channels = parameters.ch_layout.nb_channels;
        result.bits = std::max(parameters.bits_per_raw_sample, parameters.bits_per_coded_sample);
    }

    void decode(const AVPacket* packet) {
        if (!isOpen_) {
            return;
        }
        avcodec_send_packet(decoder_.get(), packet);
        while (avcodec_receive_frame(decoder_.get(), frame_.get()) == 0) {
            const double time = static_cast<double>(frame_->pts) * timeBase_;
            if (result.samples.empty()) {
                result.start = time;
            } else if (frame_->pts != AV_NOPTS_VALUE) {
                const double expected = result.start + result.seconds();
                result.worstJump = std::max(result.worstJump, std::abs(time - expected));
            }
            append(*frame_, result);
            av_frame_unref(frame_.get());
        }
    }

    DecodedStream result;

  private:
    double timeBase_;
    bool isOpen_ = false;
    std::unique_ptr<AVCodecContext, Free> decoder_;
    std::unique_ptr<AVFrame, Free> frame_{av_frame_alloc()};
};

}  // namespace

double DecodedStream::amplitude(double hertz, double from, double to) const {
    const auto first = static_cast<std::size_t>(from * rate);
    const auto last = static_cast<std::size_t>(to * rate);
    double real = 0;
    double imaginary = 0;
    for (std::size_t frame = first; frame < last; ++frame) {
        const double phase = 2 * std::numbers::pi * hertz * static_cast<double>(frame) / rate;
        real += at(frame) * std::cos(phase);
        imaginary += at(frame) * std::sin(phase);
    }
    return 2 * std::hypot(real, imaginary) / static_cast<double>(last - first);
}

DecodedFile::DecodedFile(const std::string& path) {
    av_log_set_callback(note);
    listener = &complaints;
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) == 0) {
        const std::unique_ptr<AVFormatContext, Free> file(raw);
        opened = avformat_find_stream_info(file.get(), nullptr) >= 0;
        seconds = file->duration == AV_NOPTS_VALUE
                      ? 0
                      : static_cast<double>(file->duration) / AV_TIME_BASE;
        std::vector<std::unique_ptr<Reader>> readers;
        for (unsigned index = 0; index < file->nb_streams; ++index) {
            readers.push_back(std::make_unique<Reader>(*file->streams[index]));
        }
        const std::unique_ptr<AVPacket, Free> packet(av_packet_alloc());
        while (av_read_frame(file.get(), packet.get()) == 0) {
            readers.at(static_cast<std::size_t>(packet->stream_index))->decode(packet.get());
            av_packet_unref(packet.get());
        }
        for (const auto& reader : readers) {
            reader->decode(nullptr);
            streams.push_back(std::move(reader->result));
        }
    }
    listener = nullptr;
}

const DecodedStream& DecodedFile::stream(const std::string& title) const {
    static const DecodedStream none;
    const auto found = std::find_if(streams.begin(), streams.end(),
                                    [&title](const auto& one) { return one.title == title; });
    return found == streams.end() ? none : *found;
}

std::vector<std::string> DecodedFile::titles() const {
    std::vector<std::string> all;
    for (const DecodedStream& one : streams) {
        all.push_back(one.title);
    }
    return all;
}

}  // namespace tqrecorder::test
