#include "output/matroska/MatroskaWriter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <utility>

namespace tqrecorder {
namespace {

/// Time stamps count 10 microseconds: less than half a frame beside the true time at any usual
/// rate, where the customary millisecond would put tracks up to 24 frames beside the mix.
constexpr std::uint64_t kTickNanoseconds = 10'000;
constexpr double kTicksPerSecond = 1e9 / kTickNanoseconds;
/// Blocks count from their cluster's time in 16 bits.
constexpr std::int64_t kClusterTicks = 32'000;
constexpr std::uint64_t kCueTicks = 100'000;
constexpr std::uint64_t kSeekHeadBytes = 120;
constexpr std::uint64_t kAudioTrack = 2;
constexpr const char* kProgram = "tqaudiorecord";

std::int64_t ticksOf(double seconds) {
    return std::llround(seconds * kTicksPerSecond);
}

Ebml fileHeader() {
    Ebml content;
    content.unsignedNumber(EbmlId::kVersion, 1);
    content.unsignedNumber(EbmlId::kReadVersion, 1);
    content.unsignedNumber(EbmlId::kMaxIdLength, 4);
    content.unsignedNumber(EbmlId::kMaxSizeLength, 8);
    content.text(EbmlId::kDocType, "matroska");
    content.unsignedNumber(EbmlId::kDocTypeVersion, 4);
    content.unsignedNumber(EbmlId::kDocTypeReadVersion, 2);
    Ebml header;
    header.master(EbmlId::kHeader, content);
    return header;
}

Ebml entryOf(unsigned number, std::string_view title, const MatroskaCodec& codec) {
    Ebml audio;
    audio.real(EbmlId::kSamplingFrequency, codec.sampleRate);
    audio.unsignedNumber(EbmlId::kChannels, codec.channels);
    if (codec.bitDepth != 0) {
        audio.unsignedNumber(EbmlId::kBitDepth, codec.bitDepth);
    }
    Ebml content;
    content.unsignedNumber(EbmlId::kTrackNumber, number);
    content.unsignedNumber(EbmlId::kTrackUid, number);
    content.unsignedNumber(EbmlId::kTrackType, kAudioTrack);
    content.unsignedNumber(EbmlId::kFlagDefault, number == 1 ? 1 : 0);
    content.unsignedNumber(EbmlId::kFlagLacing, 0);
    content.text(EbmlId::kLanguage, "und");
    content.text(EbmlId::kName, title);
    content.text(EbmlId::kCodecId, codec.id);
    if (!codec.setup.empty()) {
        content.binary(EbmlId::kCodecPrivate, codec.setup);
    }
    if (codec.delayNanoseconds != 0) {
        content.unsignedNumber(EbmlId::kCodecDelay, codec.delayNanoseconds);
        content.unsignedNumber(EbmlId::kSeekPreRoll, codec.preRollNanoseconds);
    }
    content.master(EbmlId::kAudio, audio);
    Ebml entry;
    entry.master(EbmlId::kTrackEntry, content);
    return entry;
}

void appendBlock(const MatroskaPacket& packet, std::int64_t ticks, Ebml& cluster) {
    constexpr std::uint64_t kKeyFrame = 0x80;
    const bool isCut = packet.discardedNanoseconds != 0;
    Ebml block;
    block.size(packet.stream);
    block.number(static_cast<std::uint16_t>(static_cast<std::int16_t>(ticks)), 2);
    block.number(isCut ? 0 : kKeyFrame, 1);
    block.append(packet.bytes);
    if (!isCut) {
        cluster.master(EbmlId::kSimpleBlock, block);
        return;
    }
    Ebml group;
    group.master(EbmlId::kBlock, block);
    group.signedNumber(EbmlId::kDiscardPadding,
                       static_cast<std::int64_t>(packet.discardedNanoseconds));
    cluster.master(EbmlId::kBlockGroup, group);
}

}  // namespace

MatroskaWriter::MatroskaWriter(tqcommon::Descriptor file, std::size_t roomForStreams)
    : file_(std::move(file)) {
    writeHead(roomForStreams);
}

bool MatroskaWriter::writeAt(std::uint64_t place, std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t written =
            pwrite(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(place));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            error_ = written < 0 ? errno : ENOSPC;
            return false;
        }
        place += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

std::vector<std::byte> MatroskaWriter::seekHead(std::uint64_t cues) const {
    Ebml content;
    const auto point = [&content](EbmlId id, std::uint64_t position) {
        Ebml name;
        name.id(id);
        Ebml seek;
        seek.binary(EbmlId::kSeekId, name.bytes());
        seek.unsignedNumber(EbmlId::kSeekPosition, position);
        content.master(EbmlId::kSeek, seek);
    };
    point(EbmlId::kInfo, info_ - segment_);
    point(EbmlId::kTracks, tracks_ - segment_);
    if (cues != 0) {
        point(EbmlId::kCues, cues - segment_);
    }
    Ebml head;
    head.master(EbmlId::kSeekHead, content);
    head.voidOf(kSeekHeadBytes - head.length());
    return {head.bytes().begin(), head.bytes().end()};
}

void MatroskaWriter::writeHead(std::size_t roomForStreams) {
    Ebml head = fileHeader();
    head.id(EbmlId::kSegment);
    head.longSize(Ebml::kUnknown);
    segment_ = seekHead_ = head.length();
    info_ = seekHead_ + kSeekHeadBytes;
    Ebml info;
    info.unsignedNumber(EbmlId::kTimestampScale, kTickNanoseconds);
    info.text(EbmlId::kMuxingApp, kProgram);
    info.text(EbmlId::kWritingApp, kProgram);
    info.real(EbmlId::kDuration, 0);
    Ebml behind;
    behind.master(EbmlId::kInfo, info);
    tracks_ = info_ + behind.length();
    duration_ = tracks_ - sizeof(double);
    behind.id(EbmlId::kTracks);
    behind.longSize(roomForStreams);
    nextEntry_ = info_ + behind.length();
    behind.voidOf(roomForStreams);
    endOfEntries_ = info_ + behind.length();
    // Readers look for the first cluster, and call a file broken that ends before one.
    Ebml nothing;
    nothing.unsignedNumber(EbmlId::kTimestamp, 0);
    behind.master(EbmlId::kCluster, nothing);
    end_ = info_ + behind.length();
    head.append(seekHead(0));
    head.append(behind.bytes());
    writeAt(0, head.bytes());
}

std::optional<unsigned> MatroskaWriter::addStream(std::string_view title,
                                                  const MatroskaCodec& codec) {
    Ebml entry = entryOf(streams_ + 1, title, codec);
    const std::uint64_t length = entry.length();
    const std::uint64_t left = endOfEntries_ - nextEntry_;
    if (error_ != 0 || streams_ == kMostStreams || length + Ebml::kShortestVoid > left) {
        return std::nullopt;
    }
    entry.voidOf(left - length);
    // First what lies behind the head of the void that is there: it stays one until its head
    // becomes the entry's.
    const std::span<const std::byte> bytes =
        entry.bytes().first(static_cast<std::size_t>(length + Ebml::kShortestVoid));
    if (!writeAt(nextEntry_ + Ebml::kShortestVoid, bytes.subspan(Ebml::kShortestVoid)) ||
        !writeAt(nextEntry_, bytes.first(Ebml::kShortestVoid))) {
        return std::nullopt;
    }
    nextEntry_ += length;
    return ++streams_;
}

void MatroskaWriter::add(MatroskaPacket packet) {
    waiting_.push_back(std::move(packet));
}

void MatroskaWriter::takeCluster(std::span<const MatroskaPacket> packets, Ebml& all) {
    const std::int64_t begin = std::max<std::int64_t>(ticksOf(packets.front().seconds), 0);
    Ebml cluster;
    cluster.unsignedNumber(EbmlId::kTimestamp, static_cast<std::uint64_t>(begin));
    for (const MatroskaPacket& packet : packets) {
        appendBlock(packet, ticksOf(packet.seconds) - begin, cluster);
    }
    const auto ticks = static_cast<std::uint64_t>(begin);
    if (cues_.empty() || ticks >= cues_.back().ticks + kCueTicks) {
        cues_.push_back({ticks, end_ + all.length()});
    }
    all.master(EbmlId::kCluster, cluster);
}

bool MatroskaWriter::flush() {
    if (error_ != 0) {
        return false;
    }
    if (waiting_.empty()) {
        return true;
    }
    std::stable_sort(waiting_.begin(), waiting_.end(),
                     [](const auto& a, const auto& b) { return a.seconds < b.seconds; });
    const std::size_t cues = cues_.size();
    Ebml clusters;
    double latest = seconds_;
    for (std::size_t first = 0; first < waiting_.size();) {
        const std::int64_t begin = ticksOf(waiting_[first].seconds);
        std::size_t last = first;
        for (; last < waiting_.size() && ticksOf(waiting_[last].seconds) - begin < kClusterTicks;
             ++last) {
            latest = std::max(latest, waiting_[last].seconds + waiting_[last].length);
        }
        takeCluster(std::span(waiting_).subspan(first, last - first), clusters);
        first = last;
    }
    waiting_.clear();
    if (!writeAt(end_, clusters.bytes())) {
        cues_.resize(cues);
        // Of a cluster in parts players would complain.
        if (ftruncate(file_.get(), static_cast<off_t>(end_)) != 0) {
            error_ = errno;
        }
        return false;
    }
    end_ += clusters.length();
    seconds_ = latest;
    writeDuration();
    return error_ == 0;
}

void MatroskaWriter::writeDuration() {
    Ebml duration;
    duration.number(std::bit_cast<std::uint64_t>(std::round(seconds_ * kTicksPerSecond)), 8);
    writeAt(duration_, duration.bytes());
}

bool MatroskaWriter::finish() {
    flush();
    Ebml points;
    for (const Cue& cue : cues_) {
        Ebml place;
        place.unsignedNumber(EbmlId::kCueTrack, 1);
        place.unsignedNumber(EbmlId::kCueClusterPosition, cue.position - segment_);
        Ebml point;
        point.unsignedNumber(EbmlId::kCueTime, cue.ticks);
        point.master(EbmlId::kCueTrackPositions, place);
        points.master(EbmlId::kCuePoint, point);
    }
    Ebml cues;
    cues.master(EbmlId::kCues, points);
    const int before = error_;
    std::uint64_t end = end_;
    // A disk that is full takes them no more: players find their places more slowly, and all sound
    // is there.
    if (before == 0 && !cues_.empty() && writeAt(end_, cues.bytes())) {
        writeAt(seekHead_, seekHead(end_));
        end += cues.length();
    } else {
        error_ = ftruncate(file_.get(), static_cast<off_t>(end_)) == 0 ? before : errno;
    }
    // In place, which takes no more room.
    Ebml size;
    size.longSize(end - segment_);
    const int failed = error_;
    writeAt(segment_ - size.length(), size.bytes());
    error_ = failed != 0 ? failed : error_;
    return error_ == 0;
}

}  // namespace tqrecorder
