#include "ipc/SharedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <utility>

#include "common/Descriptor.h"
#include "common/FileSizeSignalHeld.h"

namespace tqrecorder {
namespace {

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kEventBytes = std::uint64_t{256} << 10U;
constexpr std::uint64_t kLogBytes = std::uint64_t{1} << 20U;
constexpr std::uint64_t kStreamBytes = std::uint64_t{64} << 10U;
/// Lies behind the others: the memory is taken from the beginning on.
constexpr auto kSoundRing = static_cast<std::size_t>(RingId::kSound);
/// With room for what leads back to the beginning where no more is to be had.
constexpr std::uint64_t kSoundAtFirst = (std::uint64_t{2} << 20U) + kPage;
constexpr std::uint64_t kLeastSoundBytes = std::uint64_t{64} << 10U;
constexpr std::uint64_t kMostSoundBytes = std::uint64_t{4} << 30U;

/// What the reader copies of one record: a second of any format that it takes, a long text.
constexpr std::size_t kMostPayload[kRings] = {std::size_t{32} << 20U, std::size_t{64} << 10U,
                                              std::size_t{64} << 10U, std::size_t{4} << 10U};

constexpr std::uint64_t wholePages(std::uint64_t bytes) {
    return (bytes + kPage - 1) / kPage * kPage;
}

std::uint64_t soundRing(std::uint64_t bytes) {
    return wholePages(std::clamp(bytes, kLeastSoundBytes, kMostSoundBytes));
}

/// Takes a page that nobody uses yet, as kernels before 5.14 cannot do it for many. The kernel
/// writes to it for us: where there is no memory left it gives an error, while a write of our own
/// would end the program.
bool claimPage(std::byte* page) {
    return syscall(SYS_clock_gettime, CLOCK_MONOTONIC, page) == 0;
}

}  // namespace

void SharedLeftOut::note(std::uint32_t number, std::string_view name, std::uint32_t reason) {
    const std::uint32_t bit = 1U << reason % 32;
    const std::uint32_t known = count.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < known && i < kMost; ++i) {
        if (units[i].number.load(std::memory_order_relaxed) == number) {
            units[i].reasons.fetch_or(bit, std::memory_order_relaxed);
            return;
        }
    }
    if (known >= kMost) {
        reasonsOfMore.fetch_or(bit, std::memory_order_relaxed);
        return;
    }
    units[known].number.store(number, std::memory_order_relaxed);
    units[known].reasons.store(bit, std::memory_order_relaxed);
    units[known].name.store(name);
    count.store(known + 1, std::memory_order_release);
}

SharedMapping::SharedMapping(SharedMapping&& other) noexcept {
    *this = std::move(other);
}

SharedMapping& SharedMapping::operator=(SharedMapping&& other) noexcept {
    std::swap(base_, other.base_);
    std::swap(bytes_, other.bytes_);
    std::swap(populated_, other.populated_);
    std::swap(ringOffset_, other.ringOffset_);
    std::swap(ringBytes_, other.ringBytes_);
    return *this;
}

SharedMapping::~SharedMapping() {
    if (base_ != nullptr) {
        munmap(base_, bytes_);
    }
}

std::uint64_t SharedMapping::sizeFor(std::uint64_t soundBytes) {
    return wholePages(sizeof(SharedPage)) + soundRing(soundBytes) + kEventBytes + kLogBytes +
           kStreamBytes;
}

std::optional<SharedMapping> SharedMapping::make(std::uint64_t soundBytes, int& descriptor) {
    const std::uint64_t sizes[kRings] = {soundRing(soundBytes), kEventBytes, kLogBytes,
                                         kStreamBytes};
    const std::uint64_t total = sizeFor(soundBytes);
    descriptor =
        tqcommon::outOfTheWay(memfd_create("tqaudiorecord", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (descriptor < 0) {
        return std::nullopt;
    }
    const auto fail = [&descriptor]() -> std::optional<SharedMapping> {
        close(std::exchange(descriptor, -1));
        return std::nullopt;
    };
    const tqcommon::FileSizeSignalHeld held;
    // An audio thread must not find a page missing and none left, so what it may write to is taken
    // before. The beginning is taken now, which the program waits for.
    const std::uint64_t begin = std::min(total, total - sizes[kSoundRing] + kSoundAtFirst);
    if (ftruncate(descriptor, static_cast<off_t>(total)) != 0 ||
        posix_fallocate(descriptor, 0, static_cast<off_t>(begin)) != 0 ||
        fcntl(descriptor, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        return fail();
    }
    void* const base = mmap(nullptr, total, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (base == MAP_FAILED) {
        return fail();
    }
    SharedMapping mapping;
    mapping.base_ = static_cast<std::byte*>(base);
    mapping.bytes_ = total;
    auto* const page = std::construct_at(reinterpret_cast<SharedPage*>(base));
    page->totalBytes = total;
    std::uint64_t offset = total;
    for (std::size_t ring = 0; ring < kRings; ++ring) {
        offset -= sizes[ring];
        page->ringOffset[ring] = offset;
        page->ringBytes[ring] = sizes[ring];
        page->rings[ring].usable = std::min(sizes[ring], begin - offset);
    }
    return mapping.takeLayout() ? std::optional(std::move(mapping)) : std::nullopt;
}

std::optional<SharedMapping> SharedMapping::map(int descriptor, std::uint64_t mostBytes) {
    struct stat status {};
    const int seals = fcntl(descriptor, F_GET_SEALS);
    // A file that could still shrink would raise SIGBUS in the reader.
    if (fstat(descriptor, &status) != 0 || seals < 0 || (seals & F_SEAL_SHRINK) == 0 ||
        status.st_size < static_cast<off_t>(sizeof(SharedPage)) ||
        static_cast<std::uint64_t>(status.st_size) > mostBytes) {
        return std::nullopt;
    }
    SharedMapping mapping;
    mapping.bytes_ = static_cast<std::size_t>(status.st_size);
    void* const base =
        mmap(nullptr, mapping.bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (base == MAP_FAILED) {
        return std::nullopt;
    }
    mapping.base_ = static_cast<std::byte*>(base);
    return mapping.takeLayout() ? std::optional(std::move(mapping)) : std::nullopt;
}

bool SharedMapping::populateMore() {
    // In pieces, between which the program can map memory of its own.
    constexpr std::size_t kPiece = std::size_t{256} << 10U;
    if (populated_ == bytes_) {
        return false;
    }
    const std::size_t piece = std::min(kPiece, bytes_ - populated_);
    std::atomic<std::uint64_t>& usable = page().rings[kSoundRing].usable;
    if (madvise(base_ + populated_, piece, MADV_POPULATE_WRITE) != 0) {
        if (errno != EINVAL) {
            return false;
        }
        // What is in use was taken by make().
        const std::size_t used = ringOffset_[kSoundRing] + usable;
        for (std::size_t at = std::max(populated_, used); at < populated_ + piece; at += kPage) {
            if (!claimPage(base_ + at)) {
                return false;
            }
        }
    }
    populated_ += piece;
    if (populated_ > ringOffset_[kSoundRing] + usable) {
        usable.store(populated_ - ringOffset_[kSoundRing], std::memory_order_release);
    }
    return populated_ < bytes_;
}

bool SharedMapping::takeLayout() {
    const SharedPage& shared = page();
    if (shared.magic != SharedPage::kMagic || shared.totalBytes != bytes_) {
        return false;
    }
    for (std::size_t ring = 0; ring < kRings; ++ring) {
        const std::uint64_t offset = shared.ringOffset[ring];
        const std::uint64_t size = shared.ringBytes[ring];
        if (offset % 8 != 0 || size % 8 != 0 || size < kPage || offset < sizeof(SharedPage) ||
            offset > bytes_ || size > bytes_ - offset) {
            return false;
        }
        ringOffset_[ring] = offset;
        ringBytes_[ring] = size;
    }
    return true;
}

std::span<std::byte> SharedMapping::memoryOf(RingId ring) const {
    const auto index = static_cast<std::size_t>(ring);
    return {base_ + ringOffset_[index], ringBytes_[index]};
}

RingWriter SharedMapping::writer(RingId ring) const {
    return {page().rings[static_cast<std::size_t>(ring)], memoryOf(ring)};
}

RingReader SharedMapping::reader(RingId ring) const {
    const auto index = static_cast<std::size_t>(ring);
    return {page().rings[index], memoryOf(ring), kMostPayload[index]};
}

}  // namespace tqrecorder
