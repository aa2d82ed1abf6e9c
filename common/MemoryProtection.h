#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

namespace tqcommon {

/// Whether this process may make memory writable that was not. Some sandboxes let nobody change
/// what memory is for. [host thread]
[[nodiscard]] inline bool canProtectMemory() noexcept {
    const auto page = static_cast<std::size_t>(getpagesize());
    void* const probe = mmap(nullptr, page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (probe == MAP_FAILED) {
        return false;
    }
    const bool can = mprotect(probe, page, PROT_READ | PROT_WRITE) == 0;
    munmap(probe, page);
    return can;
}

}  // namespace tqcommon
