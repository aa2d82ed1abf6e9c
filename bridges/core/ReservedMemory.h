#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <utility>

namespace tq::bridges {

/// Address space that costs memory only where it has been written to. Empty when there is none.
class ReservedMemory {
  public:
    ReservedMemory() = default;
    /// [host thread]
    explicit ReservedMemory(std::size_t bytes) noexcept {
        void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (data != MAP_FAILED) {
            data_ = static_cast<std::byte*>(data);
            size_ = bytes;
        }
    }
    ~ReservedMemory() {
        if (data_ != nullptr) {
            munmap(data_, size_);
        }
    }
    ReservedMemory(ReservedMemory&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    ReservedMemory& operator=(ReservedMemory&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        return *this;
    }
    ReservedMemory(const ReservedMemory&) = delete;
    ReservedMemory& operator=(const ReservedMemory&) = delete;

    [[nodiscard]] std::byte* data() const noexcept { return data_; }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

  private:
    std::byte* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace tq::bridges
