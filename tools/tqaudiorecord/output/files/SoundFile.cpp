#include "output/files/SoundFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "output/files/Resampler.h"

namespace tqrecorder {
namespace {

/// libsndfile's encoding for blocks as they are; 0 for what a sound file cannot hold.
int encodingOf(const BlockFormat& format) {
    if (format.isFloat) {
        return format.bitsPerChannel == 32   ? SF_FORMAT_FLOAT
               : format.bitsPerChannel == 64 ? SF_FORMAT_DOUBLE
                                             : 0;
    }
    switch (format.bitsPerChannel) {
        case 8:
            // What WAV calls 8-bit; write() turns the samples' sign.
            return SF_FORMAT_PCM_U8;
        case 16:
            return SF_FORMAT_PCM_16;
        case 24:
            return SF_FORMAT_PCM_24;
        case 32:
            return SF_FORMAT_PCM_32;
        default:
            return 0;
    }
}

/// What samples of a format become in a file of that kind.
int encodingIn(const FileFormat& kind, const BlockFormat& format) {
    const int asItIs = encodingOf(format);
    if (kind.encoding == 0 || asItIs == 0) {
        return asItIs;
    }
    const bool isDeep = format.isFloat || format.bitsPerChannel > 16;
    return kind.container == SF_FORMAT_FLAC && isDeep ? SF_FORMAT_PCM_24 : kind.encoding;
}

/// Through an encoder, which wants samples of its own kinds at places that suit them.
template <typename Sample, typename Write>
sf_count_t encoded(std::span<const std::byte> frames, const Write& write) {
    std::vector<Sample> samples(frames.size() / sizeof(Sample));
    std::memcpy(samples.data(), frames.data(), frames.size());
    return write(samples.data());
}

// Frames in one call of the encoder: some keep a call's frames on their stack.
constexpr std::size_t kEncoderFrames = 1024;
// How much a compressed file may lack when the recorder is killed.
constexpr double kPageMilliseconds = 500;

}  // namespace

std::string textOf(const BlockFormat& format) {
    return std::to_string(std::lround(format.sampleRate)) + " Hz, " +
           std::to_string(format.bitsPerChannel) + "-bit " +
           (format.isFloat ? "float" : "integer") + ", " +
           (format.channels == 1   ? "mono"
            : format.channels == 2 ? "stereo"
                                   : std::to_string(format.channels) + " channels");
}

/// The file under libsndfile: remembers why the disk refused something.
class SoundFile::Disk {
  public:
    explicit Disk(tqcommon::Descriptor file) : file_(std::move(file)) {}

    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] off_t place() const { return ::lseek(file_.get(), 0, SEEK_CUR); }
    [[nodiscard]] bool isRegular() const {
        struct stat info {};
        return fstat(file_.get(), &info) == 0 && S_ISREG(info.st_mode);
    }
    /// Cuts what follows `length` off.
    void cut(off_t length) {
        if (ftruncate(file_.get(), length) == 0) {
            ::lseek(file_.get(), length, SEEK_SET);
        }
    }
    [[nodiscard]] bool readAt(off_t place, std::span<unsigned char> bytes) const {
        return pread(file_.get(), bytes.data(), bytes.size(), place) ==
               static_cast<ssize_t>(bytes.size());
    }
    void writeAt(off_t place, std::span<const unsigned char> bytes) {
        if (pwrite(file_.get(), bytes.data(), bytes.size(), place) < 0) {
            error_ = errno;
        }
    }

    static SF_VIRTUAL_IO* calls() {
        static SF_VIRTUAL_IO io{length, seek, read, write, tell};
        return &io;
    }

  private:
    static int fileOf(void* disk) { return static_cast<Disk*>(disk)->file_.get(); }
    static sf_count_t length(void* disk) {
        struct stat info {};
        return fstat(fileOf(disk), &info) == 0 ? info.st_size : -1;
    }
    static sf_count_t seek(sf_count_t offset, int whence, void* disk) {
        return ::lseek(fileOf(disk), offset, whence);
    }
    static sf_count_t read(void* bytes, sf_count_t count, void* disk) {
        return ::read(fileOf(disk), bytes, static_cast<std::size_t>(count));
    }
    static sf_count_t write(const void* bytes, sf_count_t count, void* disk) {
        sf_count_t done = 0;
        while (done < count) {
            const ssize_t written = ::write(fileOf(disk), static_cast<const char*>(bytes) + done,
                                            static_cast<std::size_t>(count - done));
            if (written < 0 && errno == EINTR) {
                continue;
            }
            if (written <= 0) {
                static_cast<Disk*>(disk)->error_ = written < 0 ? errno : ENOSPC;
                break;
            }
            done += written;
        }
        return done;
    }
    static sf_count_t tell(void* disk) { return static_cast<Disk*>(disk)->place(); }

    tqcommon::Descriptor file_;
    int error_ = 0;
};

std::unique_ptr<SoundFile> SoundFile::create(std::string path, tqcommon::Descriptor file,
                                             const FileFormat& kind, const BlockFormat& format,
                                             std::string& error,
                                             std::optional<std::uint64_t> timeReference) {
    std::unique_ptr<SoundFile> made(new SoundFile(std::move(path), kind, format));
    return made->open(std::move(file), error, timeReference) ? std::move(made) : nullptr;
}

SoundFile::SoundFile(std::string path, const FileFormat& kind, const BlockFormat& format)
    : path_(std::move(path)), kind_(kind), format_(format) {
}

SoundFile::~SoundFile() {
    (void)close();
}

void SoundFile::stampTime(std::uint64_t timeReference) {
    SF_BROADCAST_INFO info{};
    info.version = 1;
    info.time_reference_low = static_cast<std::uint32_t>(timeReference);
    info.time_reference_high = static_cast<std::uint32_t>(timeReference >> 32U);
    sf_command(file_.get(), SFC_SET_BROADCAST_INFO, &info, sizeof info);
}

bool SoundFile::open(tqcommon::Descriptor file, std::string& error,
                     std::optional<std::uint64_t> timeReference) {
    const int encoding = encodingIn(kind_, format_);
    const bool isBare = kind_.container == 0;
    SF_INFO info{};
    info.samplerate = static_cast<int>(std::lround(format_.sampleRate));
    info.channels = static_cast<int>(format_.channels);
    info.format = (isBare ? SF_FORMAT_RAW | SF_ENDIAN_LITTLE : kind_.container) | encoding;
    if (encoding == 0 || info.samplerate < 1 || info.channels < 1 ||
        sf_format_check(&info) == SF_FALSE) {
        error = path_ + ": a " + std::string(kind_.name) + " file cannot hold " + textOf(format_);
        return false;
    }
    disk_ = std::make_unique<Disk>(std::move(file));
    if (!isBare && !disk_->isRegular()) {
        error = path_ + ": not a file; only raw goes into a device";
        return false;
    }
    file_.reset(sf_open_virtual(Disk::calls(), SFM_WRITE, &info, disk_.get()));
    if (file_ == nullptr) {
        error = path_ + ": " +
                (disk_->error() != 0 ? std::strerror(disk_->error()) : sf_strerror(nullptr));
        return false;
    }
    if (kind_.growsIntoRf64) {
        sf_command(file_.get(), SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    }
    if (timeReference && kind_.container == SF_FORMAT_RF64) {
        stampTime(*timeReference);
    }
    if (kind_.container == SF_FORMAT_W64) {
        // Readers take bytes behind the stated length for another chunk and refuse the file.
        sf_command(file_.get(), SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
    }
    // Floats beyond full scale would turn into the other end of it.
    sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    double latency = kPageMilliseconds;
    sf_command(file_.get(), SFC_SET_OGG_PAGE_LATENCY_MS, &latency, sizeof latency);
    // Written at once, so that a file without a frame can be opened as well.
    refresh();
    if (disk_->error() != 0) {
        error = path_ + ": " + std::strerror(disk_->error());
        file_.reset();
        return false;
    }
    return true;
}

bool SoundFile::write(std::span<const std::byte> frames) {
    if (file_ == nullptr || !problem_.empty()) {
        return false;
    }
    const std::size_t frameBytes = format_.frameBytes();
    if (kind_.encoding == 0 && format_.bitsPerChannel == 8) {
        turned_.assign(frames.begin(), frames.end());
        for (std::byte& sample : turned_) {
            sample ^= std::byte{0x80};
        }
        frames = turned_;
    }
    if (kind_.encoding == 0) {
        const off_t before = disk_->place();
        const sf_count_t written =
            sf_write_raw(file_.get(), frames.data(), static_cast<sf_count_t>(frames.size()));
        const std::size_t whole =
            static_cast<std::size_t>(std::max<sf_count_t>(written, 0)) / frameBytes;
        frames_ += whole;
        if (written == static_cast<sf_count_t>(frames.size())) {
            return true;
        }
        fail();
        disk_->cut(before + static_cast<off_t>(whole * frameBytes));
        refresh();
        return false;
    }
    while (!frames.empty()) {
        const std::size_t count = std::min(frames.size() / frameBytes, kEncoderFrames);
        if (encode(frames.first(count * frameBytes)) != static_cast<sf_count_t>(count) ||
            disk_->error() != 0) {
            fail();
            return false;
        }
        frames_ += count;
        frames = frames.subspan(count * frameBytes);
    }
    return true;
}

sf_count_t SoundFile::encode(std::span<const std::byte> frames) {
    SNDFILE* const file = file_.get();
    const auto count = static_cast<sf_count_t>(frames.size() / format_.frameBytes());
    const std::span<const std::byte> wide = widen(frames, format_, turned_);
    const BlockFormat format = widened(format_);
    if (format.isFloat && format.bitsPerChannel == 32) {
        return encoded<float>(wide,
                              [=](const float* all) { return sf_writef_float(file, all, count); });
    }
    if (format.isFloat) {
        return encoded<double>(
            wide, [=](const double* all) { return sf_writef_double(file, all, count); });
    }
    if (format.bitsPerChannel == 16) {
        return encoded<short>(wide,
                              [=](const short* all) { return sf_writef_short(file, all, count); });
    }
    return encoded<int>(wide, [=](const int* all) { return sf_writef_int(file, all, count); });
}

void SoundFile::fail() {
    if (problem_.empty()) {
        problem_ =
            path_ + ": " +
            (disk_->error() != 0 ? std::strerror(disk_->error()) : sf_strerror(file_.get())) +
            "; the file ends there";
    }
}

void SoundFile::refresh() {
    if (file_ == nullptr || kind_.container == 0) {
        return;
    }
    if (kind_.container == SF_FORMAT_FLAC) {
        refreshFlac();
    } else if (kind_.encoding == 0) {
        sf_command(file_.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);
    }
}

// The encoder tells a FLAC file's length only when it is closed; until then readers find "unknown".
// The file holds whole encoder blocks, of a fixed size that stands in front of the length.
void SoundFile::refreshFlac() {
    constexpr off_t kBlockSize = 8;  // behind "fLaC" and the head of the first metadata block
    constexpr off_t kLength = 21;    // the low 36 bits of 40
    std::array<unsigned char, 2> size{};
    std::array<unsigned char, 5> length{};
    if (frames_ == 0 || !disk_->readAt(kBlockSize, size) || !disk_->readAt(kLength, length)) {
        return;
    }
    const std::uint64_t block = (std::uint64_t{size[0]} << 8U) | size[1];
    if (block == 0) {
        return;
    }
    // The encoder holds a full block back until the next frame comes.
    std::uint64_t whole = (frames_ - 1) / block * block;
    for (std::size_t index = 4; index > 0; --index, whole >>= 8U) {
        length[index] = static_cast<unsigned char>(whole & 0xFFU);
    }
    length[0] = static_cast<unsigned char>((length[0] & 0xF0U) | (whole & 0x0FU));
    disk_->writeAt(kLength, length);
}

bool SoundFile::close() {
    if (file_ == nullptr) {
        return problem_.empty();
    }
    const bool failed = sf_close(file_.release()) != 0 || disk_->error() != 0;
    if (failed && problem_.empty()) {
        problem_ = path_ + ": " +
                   (disk_->error() != 0 ? std::strerror(disk_->error()) : "cannot be completed");
    }
    disk_.reset();
    return problem_.empty();
}

}  // namespace tqrecorder
