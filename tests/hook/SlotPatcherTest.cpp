#include "hook/rebind/SlotPatcher.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <sstream>

namespace {

using tqhook::ImageLayout;
using tqhook::PatchResult;
using tqhook::SlotKind;
using tqhook::SlotWrite;

// Three pages: two that are read-only after relocation, the third shared with writable data.
class SlotPatcher : public testing::Test {
  protected:
    SlotPatcher()
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          memory_(mmap(nullptr, page_ * 3, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                       0)) {
        begin_ = reinterpret_cast<std::uintptr_t>(memory_);
        layout_.segments.push_back({{begin_, begin_ + page_ * 3}, PF_R | PF_W});
        layout_.relro = {begin_ + 64, begin_ + page_ * 2 + 128};
        mprotect(memory_, page_ * 2, PROT_READ);
    }
    ~SlotPatcher() override { munmap(memory_, page_ * 3); }

    [[nodiscard]] static SlotWrite writeAt(std::uintptr_t address) {
        return {SlotKind::pointer, address, reinterpret_cast<void*>(0x1234), nullptr, false};
    }
    [[nodiscard]] static std::string protectionOf(std::uintptr_t address) {
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            std::istringstream text(line);
            std::uintptr_t begin = 0;
            std::uintptr_t end = 0;
            char dash = 0;
            std::string protection;
            text >> std::hex >> begin >> dash >> end >> protection;
            if (address >= begin && address < end) {
                return protection;
            }
        }
        return "";
    }

    std::size_t page_;
    void* memory_;
    std::uintptr_t begin_ = 0;
    ImageLayout layout_;
};

TEST_F(SlotPatcher, ReadOnlyPagesAreWrittenAndReadOnlyAfterwards) {
    const std::array writes{writeAt(begin_ + 128), writeAt(begin_ + page_ + 8)};
    EXPECT_EQ(patchSlots(layout_, writes), PatchResult::done);
    EXPECT_EQ(tqhook::slotValue(begin_ + 128), reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(tqhook::slotValue(begin_ + page_ + 8), reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(protectionOf(begin_), "r--p");
    EXPECT_EQ(protectionOf(begin_ + page_), "r--p");
}

TEST_F(SlotPatcher, SharedLastPageStaysWritable) {
    const std::array writes{writeAt(begin_ + page_ * 2 + 8), writeAt(begin_ + 128)};
    EXPECT_EQ(patchSlots(layout_, writes), PatchResult::done);
    EXPECT_EQ(tqhook::slotValue(begin_ + page_ * 2 + 8), reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(protectionOf(begin_ + page_ * 2), "rw-p");
}

TEST_F(SlotPatcher, PagesWithoutWritesKeepTheirProtection) {
    mprotect(memory_, page_, PROT_READ | PROT_WRITE);
    const std::array writes{writeAt(begin_ + page_ + 8)};
    EXPECT_EQ(patchSlots(layout_, writes), PatchResult::done);
    EXPECT_EQ(protectionOf(begin_), "rw-p");
    EXPECT_EQ(protectionOf(begin_ + page_), "r--p");
}

TEST_F(SlotPatcher, MemoryThatCannotBeMadeWritableIsRefusedUntouched) {
    // A page that cannot be had: what the tables call read-only after relocation is not mapped.
    const std::uintptr_t before = begin_ + page_;
    munmap(reinterpret_cast<void*>(before), page_);
    const std::array writes{writeAt(begin_ + 128), writeAt(before + 8)};
    EXPECT_EQ(patchSlots(layout_, writes), PatchResult::refused);
    EXPECT_EQ(tqhook::slotValue(begin_ + 128), nullptr);
}

TEST_F(SlotPatcher, SlotInMemoryThatWasNeverWritableIsLeft) {
    layout_.relro = {};
    layout_.segments[0].flags = PF_R | PF_X;
    const std::array writes{writeAt(begin_ + 128)};
    EXPECT_EQ(patchSlots(layout_, writes), PatchResult::done);
    EXPECT_EQ(tqhook::slotValue(begin_ + 128), nullptr);
}

TEST_F(SlotPatcher, NothingToWriteChangesNothing) {
    EXPECT_EQ(patchSlots(layout_, {}), PatchResult::done);
    EXPECT_EQ(protectionOf(begin_), "r--p");
}

}  // namespace
