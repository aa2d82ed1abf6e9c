#include "output/matroska/MatroskaFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace tqrecorder {
namespace {

/// For a hundred streams. What a Vorbis decoder needs first is 4 kB for each.
constexpr std::size_t kRoomForStreams = 24 * 1024;
constexpr std::size_t kRoomForVorbisStreams = 256 * 1024;
/// So much is kept at most between two calls of flush().
constexpr std::size_t kMostWaiting = 4 << 20;

bool isRegular(int file) {
    struct stat info {};
    return fstat(file, &info) == 0 && S_ISREG(info.st_mode);
}

const char* nameOf(MatroskaCoding coding) {
    switch (coding) {
        case MatroskaCoding::kFlac:
            return "FLAC";
        case MatroskaCoding::kOpus:
            return "Opus";
        case MatroskaCoding::kVorbis:
            return "Vorbis";
        case MatroskaCoding::kNone:
        case MatroskaCoding::kPcm:
            break;
    }
    return "PCM";
}

}  // namespace

std::unique_ptr<MatroskaFile> MatroskaFile::create(std::string path, tqcommon::Descriptor file,
                                                   MatroskaCoding coding, std::string& error) {
    if (!isRegular(file.get())) {
        error = path + ": not a file; only raw goes into a device";
        return nullptr;
    }
    std::unique_ptr<MatroskaFile> made(new MatroskaFile(std::move(path), std::move(file), coding));
    if (made->writer_.error() != 0) {
        error = made->path_ + ": " + std::strerror(made->writer_.error());
        return nullptr;
    }
    return made;
}

MatroskaFile::MatroskaFile(std::string path, tqcommon::Descriptor file, MatroskaCoding coding)
    : path_(std::move(path)),
      coding_(coding),
      writer_(std::move(file),
              coding == MatroskaCoding::kVorbis ? kRoomForVorbisStreams : kRoomForStreams) {
}

MatroskaFile::~MatroskaFile() {
    (void)close();
}

MatroskaFile::Begun MatroskaFile::begin(const std::string& title, const BlockFormat& format,
                                        double seconds) {
    Begun begun;
    Stream stream{StreamEncoder::create(coding_, format, begun.error), seconds};
    if (stream.encoder == nullptr) {
        return begun;
    }
    begun.stream = writer_.addStream(title, stream.encoder->codec()).value_or(0);
    if (begun.stream != 0) {
        streams_.push_back(std::move(stream));
    } else if (writer_.error() != 0) {
        fail(std::strerror(writer_.error()));
    }
    return begun;
}

void MatroskaFile::write(unsigned stream, std::span<const std::byte> frames) {
    streams_.at(stream - 1).encoder->encode(frames);
    take(stream);
    if (waitingBytes_ > kMostWaiting) {
        flush();
    }
}

void MatroskaFile::take(unsigned number) {
    Stream& stream = streams_.at(number - 1);
    const MatroskaCodec& codec = stream.encoder->codec();
    for (CodedPacket& packet : stream.encoder->takePackets()) {
        waitingBytes_ += packet.bytes.size();
        const double seconds = stream.begin + static_cast<double>(packet.frame) / codec.sampleRate;
        const double discarded = packet.discarded / codec.sampleRate;
        writer_.add({number, std::max(seconds, 0.0), packet.frames / codec.sampleRate - discarded,
                     static_cast<std::uint64_t>(std::llround(discarded * 1e9)),
                     std::move(packet.bytes)});
    }
    if (!stream.encoder->isGood()) {
        fail("the sound could not be coded");
    }
}

bool MatroskaFile::flush() {
    waitingBytes_ = 0;
    if (!writer_.flush()) {
        fail(std::strerror(writer_.error()));
    }
    return problem_.empty();
}

bool MatroskaFile::close() {
    if (std::exchange(isClosed_, true)) {
        return problem_.empty();
    }
    for (unsigned number = 1; number <= streams_.size(); ++number) {
        streams_[number - 1].encoder->flush();
        take(number);
    }
    if (!writer_.finish()) {
        fail(std::strerror(writer_.error()));
    }
    return problem_.empty();
}

void MatroskaFile::fail(const std::string& why) {
    if (problem_.empty()) {
        problem_ = path_ + ": " + why + "; the file ends there";
    }
}

std::string MatroskaFile::text() const {
    const std::size_t tracks = streams_.empty() ? 0 : streams_.size() - 1;
    return std::string("Matroska, ") + nameOf(coding_) + ", the mix and " + std::to_string(tracks) +
           (tracks == 1 ? " track" : " tracks");
}

}  // namespace tqrecorder
