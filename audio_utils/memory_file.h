#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "bus_guard.h"

namespace korva_audio_utils {

/// How a flush waits: any value but Sync only schedules it.
enum class SyncFlag : int {
    Sync = 0,
    Async = 1,
};

/// A small file kept mapped into memory, shared and writable, so that plain stores reach the file
/// even when the process dies without warning. Its length is always a whole number of pages.
///
/// The disk space of a mapped file is allocated, so that a store never needs more. When somebody
/// cuts the file short nevertheless, the mapping becomes memory of the process's own.
///
/// Every failure is a false result and one line of the utility log. An object whose open failed is
/// valid, with descriptor -1 and no mapping.
///
/// [one host thread at a time] for every function. Stores into data() are the caller's to order.
class MemoryFile {
  public:
    /// Opens (creating it when missing) and maps the file; a length that is not a whole number of
    /// pages, or 0, is rounded up with zeros. A null path is one that cannot be opened.
    explicit MemoryFile(const char* path);
    /// The same for a file in an open folder that must not lead elsewhere: a symbolic link, a file
    /// of another user, one with a second name and what is no regular file cannot be opened.
    MemoryFile(int folder, const std::string& folderPath, const char* name);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Resizes to size rounded up to pages, zero-fills a new tail and maps anew; the address of
    /// the mapping may change. The current size returns true at once.
    bool truncate(std::size_t size);
    /// Maps size() bytes; a mapping that was there is replaced.
    bool mmap();
    /// Gives a file that has been cut short its length back and maps it anew, with zeros where
    /// bytes are lost. True also when nothing was to be done; false when the descriptor is no
    /// longer the file's (a host may close what it does not know).
    bool mend();
    /// Flushes the whole mapping; false without one.
    bool msync(SyncFlag flag);
    /// Unmaps and closes.
    void doCleanMemoryCache();
    /// The length that the file system reports, 0 when it reports none.
    off_t getActualFileSize() const;

    const std::string& path() const noexcept { return path_; }
    int fd() const noexcept { return fd_; }
    std::size_t size() const noexcept { return size_; }
    void* data() const noexcept { return data_; }
    /// Whether stores into data() reach a file.
    bool isUsable() const noexcept { return fd_ >= 0 && size_ != 0 && data_ != nullptr; }
    /// Whether the file has been cut short under the mapping, so that stores stay in memory.
    bool isCutOff() const noexcept { return guard_.isCutOff(); }

  private:
    /// First step of construction: with it done, what a throwing log handler interrupts is undone
    /// by the destructor.
    explicit MemoryFile(std::string path) noexcept;

    /// Second step: takes the descriptor over.
    void adopt(int fd);
    bool zeroFill(std::size_t offset, std::size_t length);
    bool allocate();
    bool mapAt(void* hint);
    void unmap();

    std::string path_;
    int fd_ = -1;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    std::size_t size_ = 0;
    void* data_ = nullptr;
    /// The length of the mapping; after a failed growth it is not size_.
    std::size_t mappedSize_ = 0;
    BusGuard guard_;
};

}  // namespace korva_audio_utils
