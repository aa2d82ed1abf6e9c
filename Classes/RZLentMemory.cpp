#include "RZLentMemory.h"

#include <chrono>
#include <mutex>
#include <new>
#include <utility>

#include "common/ForkLocks.h"

namespace {
using Clock = std::chrono::steady_clock;
/// Longer than any device takes for a slice.
constexpr Clock::duration kKeptFor = std::chrono::seconds(1);
}  // namespace

struct RZLentMemory::Block {
    std::unique_ptr<std::byte[]> bytes;
    std::size_t size = 0;
    Clock::time_point end{};
    std::unique_ptr<Block> older{};  ///< of those that have lost their owner
};

/// Blocks that have lost their owner. A block goes when a later one comes and its second is over.
class RZLentMemory::Kept {
  public:
    static Kept& shared() {
        static auto* const instance = new Kept;
        return *instance;
    }
    void add(std::unique_ptr<Block> block) {
        std::unique_ptr<Block> gone;  // freed behind the lock
        const Clock::time_point now = Clock::now();
        const std::scoped_lock guard(lock_);
        block->end = now + kKeptFor;
        block->older = std::move(newest_);
        newest_ = std::move(block);
        auto* place = &newest_;
        while (*place != nullptr && (*place)->end > now) {
            place = &(*place)->older;
        }
        gone = std::move(*place);
    }

  private:
    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::Handles, lock_};
    std::unique_ptr<Block> newest_;
};

RZLentMemory::RZLentMemory() = default;

RZLentMemory::~RZLentMemory() {
    if (block_ != nullptr) {
        Kept::shared().add(std::move(block_));
    }
}

std::byte* RZLentMemory::atLeast(std::size_t bytes) {
    if (block_ != nullptr && block_->size >= bytes) {
        return block_->bytes.get();
    }
    auto grown = std::unique_ptr<Block>(new (std::nothrow) Block);
    if (grown != nullptr) {
        grown->bytes.reset(new (std::nothrow) std::byte[bytes]);
        grown->size = bytes;
    }
    if (grown == nullptr || grown->bytes == nullptr) {
        return nullptr;
    }
    if (block_ != nullptr) {
        Kept::shared().add(std::move(block_));
    }
    block_ = std::move(grown);
    return block_->bytes.get();
}
