#include "output/PipeSink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "output/FilesSink.h"
#include "output/files/FileSeries.h"
#include "output/files/SoundFile.h"

namespace tqrecorder {
namespace {

// At the end the recorder waits this long for the reader to take the next piece, as often as it
// does.
constexpr std::chrono::seconds kLastPatience{5};

// Hours of silence into a file do not hold the recording up.
constexpr std::uint64_t kMostAtATime = std::uint64_t{16} << 20U;

// Seconds. A launcher that keeps a silent stream open does not keep its game out.
constexpr double kMostSilence = 1;

// A turn that took longer was held up itself, and says no more about who delivers nothing.
constexpr std::chrono::microseconds kLongestTurn{200'000};

/// 44 bytes in front of 16-bit stereo samples; a pipe cannot go back and fill lengths in, and
/// readers take the largest ones for "until the end".
std::array<std::byte, 44> streamingHeader() {
    std::array<std::byte, 44> header{};
    std::size_t place = 0;
    const auto text = [&](const char* letters) {
        std::memcpy(header.data() + place, letters, 4);
        place += 4;
    };
    const auto number = [&](std::uint32_t value, std::size_t bytes) {
        for (std::size_t index = 0; index < bytes; ++index, value >>= 8U) {
            header[place++] = static_cast<std::byte>(value & 0xFFU);
        }
    };
    const auto rate = static_cast<std::uint32_t>(kMixFormat.sampleRate);
    const auto frame = static_cast<std::uint32_t>(kMixFormat.frameBytes());
    text("RIFF");
    number(UINT32_MAX, 4);
    text("WAVE");
    text("fmt ");
    number(16, 4);
    number(1, 2);
    number(kMixFormat.channels, 2);
    number(rate, 4);
    number(rate * frame, 4);
    number(frame, 2);
    number(kMixFormat.bitsPerChannel, 2);
    text("data");
    number(UINT32_MAX, 4);
    return header;
}

}  // namespace

PipeSink::PipeSink(int descriptor, Shape shape, std::size_t mostBytes)
    : descriptor_(descriptor), mostBytes_(mostBytes) {
    if (shape == Shape::kWav) {
        struct stat status {};
        if (fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode) &&
            (fcntl(descriptor_, F_GETFL) & O_APPEND) == 0) {
            headerAt_ = lseek(descriptor_, 0, SEEK_CUR);
        }
        const auto header = streamingHeader();
        headerBytes_ = header.size();
        queue(0, header);
    }
}

bool PipeSink::takes(const Process& process, const Block& block) {
    const bool sounds = hasSound(block.frames, block.format);
    const auto seconds =
        static_cast<double>(block.frames.size() / kMixFormat.frameBytes()) / kMixFormat.sampleRate;
    if (holder_ != process.id) {
        if (holder_ && (!sounds || !isHolderSilent())) {
            leftOut_[process.name] += sounds ? seconds : 0;
            return false;
        }
        holder_ = process.id;
        // Who has not sounded yet keeps nobody out.
        silence_ = kMostSilence;
    }
    silence_ = sounds ? 0 : silence_ + seconds;
    unheard_ = {};
    return true;
}

/// By what it delivered, or because it delivers nothing while the recorder looks: its stamps and
/// another's are not read at the same time, and what it delivered while the recorder stood still
/// may be read behind another's.
bool PipeSink::isHolderSilent() const {
    return silence_ >= kMostSilence ||
           std::chrono::duration<double>(unheard_).count() >= kMostSilence;
}

void PipeSink::processEnded(const Process& process, const HostFacts& /*facts*/) {
    movedAt_ = Clock::now();
    if (holder_ == process.id) {
        holder_.reset();
    }
}

bool PipeSink::isSaving() {
    drain();
    return !closed_ && !isGivenUp_ && !waiting_.empty() && Clock::now() - movedAt_ < kLastPatience;
}

void PipeSink::block(const Process& process, const Block& block) {
    if (block.track != 0 || block.format != kMixFormat || !takes(process, block)) {
        return;
    }
    if (clock_ == nullptr) {
        clock_ =
            std::make_unique<StreamClock>(kMixFormat.sampleRate, block.microseconds, kMixPatience);
    }
    const std::size_t frameBytes = kMixFormat.frameBytes();
    const std::size_t frames = block.frames.size() / frameBytes;
    const std::uint64_t silence = clock_->before(block);
    hasJumped_ = clock_->takeJump() || hasJumped_;
    queue(silence * frameBytes, block.frames.first(frames * frameBytes));
    drain();
}

void PipeSink::queue(std::uint64_t zeros, std::span<const std::byte> bytes) {
    if (closed_) {
        return;
    }
    if (waitingBytes_ + bytes.size() > mostBytes_) {
        drain();
    }
    if (waiting_.empty() || zeros > 0) {
        waiting_.push_back({zeros});
    }
    if (waitingBytes_ + bytes.size() > mostBytes_) {
        refused_ += bytes.size();
        return;
    }
    std::vector<std::byte>& last = waiting_.back().bytes;
    last.insert(last.end(), bytes.begin(), bytes.end());
    waitingBytes_ += bytes.size();
}

void PipeSink::drain() {
    const std::uint64_t most = taken_ + kMostAtATime;
    while (!closed_ && !waiting_.empty() && taken_ < most) {
        pollfd ready{descriptor_, POLLOUT, 0};
        const int count = ::poll(&ready, 1, 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0 || !hand()) {
            return;
        }
    }
}

/// One piece to the reader. False where it takes none for now.
bool PipeSink::hand() {
    // POSIX: a pipe that is ready for writing takes PIPE_BUF bytes without blocking.
    static constexpr std::array<std::byte, PIPE_BUF> kZeros{};
    Waiting& first = waiting_.front();
    const std::span<const std::byte> sound = std::span(first.bytes).subspan(first.sent);
    const void* const next = first.zeros > 0 ? kZeros.data() : sound.data();
    const std::uint64_t most = first.zeros > 0 ? first.zeros : sound.size();
    const ssize_t written = ::write(descriptor_, next, std::min<std::uint64_t>(most, PIPE_BUF));
    if (written >= 0) {
        const auto bytes = static_cast<std::size_t>(written);
        if (first.zeros > 0) {
            first.zeros -= bytes;
        } else {
            first.sent += bytes;
            waitingBytes_ -= bytes;
        }
        taken_ += bytes;
        movedAt_ = Clock::now();
        tidy();
        return true;
    }
    if (errno == EPIPE) {
        closed_ = true;
        reason_ = "standard output was closed by its reader";
    } else if (errno != EAGAIN && errno != EINTR) {
        closed_ = true;
        problem_ = std::string("standard output: ") + std::strerror(errno);
    }
    return errno == EINTR;
}

void PipeSink::tidy() {
    Waiting& first = waiting_.front();
    if (first.zeros == 0 && first.sent == first.bytes.size()) {
        waiting_.pop_front();
    } else if (first.sent > first.bytes.size() / 2) {
        // Each byte is then moved about once in all.
        first.bytes.erase(first.bytes.begin(),
                          first.bytes.begin() + static_cast<std::ptrdiff_t>(first.sent));
        first.sent = 0;
    }
}

void PipeSink::tick(std::uint64_t elapsedMicroseconds) {
    const std::chrono::microseconds elapsed{elapsedMicroseconds};
    unheard_ += std::min(elapsed - std::exchange(ticked_, elapsed), kLongestTurn);
    drain();
    // Without a write there is no EPIPE; poll() reports a reader that has gone as POLLERR.
    pollfd state{descriptor_, 0, 0};
    if (!closed_ && ::poll(&state, 1, 0) == 1 && (state.revents & POLLERR) != 0) {
        closed_ = true;
        reason_ = "standard output was closed by its reader";
    }
}

void PipeSink::finish() {
    drain();
    refused_ += closed_ ? 0 : waitingBytes_;
    waiting_.clear();
    waitingBytes_ = 0;
    completeHeader();
}

// What is longer than a header can say stays of unknown length.
void PipeSink::completeHeader() const {
    constexpr std::uint64_t kBehindRiff = 8;
    if (headerAt_ < 0 || taken_ < headerBytes_ || taken_ - kBehindRiff > UINT32_MAX) {
        return;
    }
    const auto write = [this](off_t place, std::uint64_t value) {
        const auto number = static_cast<std::uint32_t>(value);
        // One that cannot be written leaves the length unknown.
        (void)!pwrite(descriptor_, &number, sizeof number, headerAt_ + place);
    };
    write(4, taken_ - kBehindRiff);
    write(40, taken_ - headerBytes_);
}

WrittenFile PipeSink::taken() const {
    WrittenFile file;
    file.path = "standard output";
    file.text = textOf(kMixFormat);
    file.seconds = static_cast<double>(taken_ - std::min(taken_, headerBytes_)) /
                   static_cast<double>(kMixFormat.frameBytes()) / kMixFormat.sampleRate;
    return file;
}

std::vector<std::string> PipeSink::problems() const {
    std::vector<std::string> all;
    if (!problem_.empty()) {
        all.push_back(problem_);
    }
    if (hasJumped_) {
        all.push_back(jumpText("standard output"));
    }
    if (refused_ > 0) {
        all.push_back("standard output: its reader was too slow and missed part of the sound");
    }
    for (const auto& [name, seconds] : leftOut_) {
        if (seconds > 0) {
            std::array<char, 32> length{};
            std::snprintf(length.data(), length.size(), "%.2f s of ", seconds);
            all.push_back(std::string("standard output: ") + length.data() + name +
                          " left out, as another program played");
        }
    }
    return all;
}

}  // namespace tqrecorder
