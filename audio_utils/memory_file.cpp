#include "memory_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <utility>

#include "common/Descriptor.h"
#include "common/FileSizeSignalHeld.h"
#include "log.h"

namespace korva_audio_utils {

namespace {

constexpr std::array<char, 4096> kZeroBlock{};

std::size_t PageSize() {
    return static_cast<std::size_t>(getpagesize());
}

bool IsWholePages(std::size_t length) {
    const std::size_t page = PageSize();
    return length >= page && length % page == 0;
}

/// 0 becomes one page; a length so large that it cannot be rounded up becomes the largest one,
/// which no file system grants.
std::size_t RoundedToPages(std::size_t length) {
    if (IsWholePages(length)) {
        return length;
    }
    const std::size_t page = PageSize();
    constexpr auto kLargest = static_cast<std::size_t>(std::numeric_limits<off_t>::max());
    return length > kLargest - page ? kLargest : page * (length / page + 1);
}

bool WriteAll(int fd, const char* bytes, std::size_t length) {
    const tqcommon::FileSizeSignalHeld held;
    while (length > 0) {
        const ssize_t written = ::write(fd, bytes, length);
        if (written <= 0) {
            return false;
        }
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

template <typename... Arguments>
void LogError(const char* format, Arguments... arguments) {
    log(LogPriority::Error, kUtilityLogTag, format, arguments...);
}

template <typename... Arguments>
void LogInfo(const char* format, Arguments... arguments) {
    log(LogPriority::Info, kUtilityLogTag, format, arguments...);
}

bool SetLength(int fd, std::size_t length) {
    const tqcommon::FileSizeSignalHeld held;
    return ::ftruncate(fd, static_cast<off_t>(length)) == 0;
}

int Allocate(int fd, std::size_t length) {
    const tqcommon::FileSizeSignalHeld held;
    return ::posix_fallocate(fd, 0, static_cast<off_t>(length));
}

/// What openat gives for a file that is this user's own under this one name, -1 for any other.
int OpenOwnFile(int folder, const char* name) {
    // A pipe without a reader is no reason to wait.
    const int fd =
        ::openat(folder, name, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRWXU);
    struct stat status {};
    if (fd >= 0 && (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) ||
                    status.st_uid != ::geteuid() || status.st_nlink > 1)) {
        ::close(fd);
        return -1;
    }
    return fd;
}

void Unmap(void* data, std::size_t size, const std::string& path) {
    if (::munmap(data, size) != 0) {
        LogError("munmap pre mmap failed, addr: %p, size:%zu path: %s", data, size, path.c_str());
    }
}

}  // namespace

MemoryFile::MemoryFile(std::string path) noexcept : path_(std::move(path)) {
}

MemoryFile::MemoryFile(const char* path) : MemoryFile(std::string(path != nullptr ? path : "")) {
    adopt(::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRWXU));
}

MemoryFile::MemoryFile(int folder, const std::string& folderPath, const char* name)
    : MemoryFile(folderPath + "/" + name) {
    adopt(OpenOwnFile(folder, name));
}

void MemoryFile::adopt(int fd) {
    fd_ = tqcommon::outOfTheWay(fd);
    if (fd_ < 0) {
        LogError("Open file(%s) failed with invalid fd", path_.c_str());
        doCleanMemoryCache();
        return;
    }
    struct stat status {};
    if (::fstat(fd_, &status) == 0) {
        size_ = static_cast<std::size_t>(status.st_size);
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
    if (!IsWholePages(size_)) {
        truncate(RoundedToPages(size_));
    } else if (!mmap()) {
        doCleanMemoryCache();
    }
    LogInfo("Success create memory file:%s, fd:%d", path_.c_str(), fd_);
}

MemoryFile::~MemoryFile() {
    try {
        doCleanMemoryCache();
    } catch (...) {
        // Only the log handler throws, and what it could not be told is lost with the object.
        fd_ = -1;
    }
}

bool MemoryFile::truncate(std::size_t size) {
    if (fd_ < 0) {
        return false;
    }
    if (size == size_) {
        return true;
    }
    const std::size_t oldSize = size_;
    size_ = RoundedToPages(size);
    if (!SetLength(fd_, size_)) {
        LogError("truncate %zu -> %zu on %s", oldSize, size_, path_.c_str());
        size_ = oldSize;
        return false;
    }
    // Written out, not left as a hole: a store into a hole of a full disk would kill the process.
    if (size_ > oldSize && !zeroFill(oldSize, size_ - oldSize)) {
        LogError("ZeroFillFile error, path: %s", path_.c_str());
        return false;
    }
    void* const hint = data_;
    unmap();
    if (mapAt(hint)) {
        return true;
    }
    doCleanMemoryCache();
    return false;
}

bool MemoryFile::zeroFill(std::size_t offset, std::size_t length) {
    if (::lseek(fd_, static_cast<off_t>(offset), SEEK_SET) < 0) {
        LogError("Seek failed on %d", fd_);
        return false;
    }
    while (length > 0) {
        const std::size_t chunk = std::min(length, kZeroBlock.size());
        if (!WriteAll(fd_, kZeroBlock.data(), chunk)) {
            LogError("Write zero failed on %d", fd_);
            return false;
        }
        length -= chunk;
    }
    return true;
}

bool MemoryFile::mmap() {
    void* const old = data_;
    const std::size_t oldSize = mappedSize_;
    const BusGuard oldGuard = std::move(guard_);
    const bool mapped = mapAt(old);
    if (old != nullptr) {
        Unmap(old, oldSize, path_);
    }
    return mapped;
}

bool MemoryFile::mend() {
    struct stat status {};
    if (fd_ < 0 || ::fstat(fd_, &status) != 0 || status.st_dev != device_ ||
        status.st_ino != inode_) {
        return false;
    }
    const bool isShort = static_cast<std::size_t>(status.st_size) < size_;
    return (!isShort && !isCutOff()) || mmap();
}

/// Gives holes their blocks, and a file that is too short its length. Where the file system cannot
/// say, the guard of the mapping is left.
bool MemoryFile::allocate() {
    const int error = Allocate(fd_, size_);
    if (error == ENOSPC || error == EDQUOT) {
        LogError("No room on the disk for %s", path_.c_str());
        return false;
    }
    return true;
}

void MemoryFile::unmap() {
    if (data_ != nullptr) {
        guard_ = BusGuard();
        Unmap(std::exchange(data_, nullptr), mappedSize_, path_);
    }
}

bool MemoryFile::mapAt(void* hint) {
    if (!allocate()) {
        data_ = nullptr;
        return false;
    }
    void* const mapped = ::mmap(hint, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (mapped == MAP_FAILED) {
        LogError("mmap failed, path: %s, size: %d", path_.c_str(), static_cast<int>(size_));
        data_ = nullptr;
        return false;
    }
    data_ = mapped;
    mappedSize_ = size_;
    guard_ = BusGuard(data_, mappedSize_);
    LogInfo("mmap success, path: %s, size: %d, addr: %p", path_.c_str(), static_cast<int>(size_),
            data_);
    return true;
}

bool MemoryFile::msync(SyncFlag flag) {
    if (data_ == nullptr) {
        return false;
    }
    if (::msync(data_, mappedSize_, flag == SyncFlag::Sync ? MS_SYNC : MS_ASYNC) != 0) {
        LogError("msync failed, path: %s, size: %d", path_.c_str(), static_cast<int>(size_));
        return false;
    }
    return true;
}

void MemoryFile::doCleanMemoryCache() {
    unmap();
    if (fd_ >= 0) {
        if (::close(fd_) != 0) {
            LogError("close fd: %d failed", fd_);
        } else {
            fd_ = -1;
        }
    }
}

off_t MemoryFile::getActualFileSize() const {
    struct stat status {};
    return ::fstat(fd_, &status) == 0 ? status.st_size : 0;
}

}  // namespace korva_audio_utils
