#include "hook/rebind/SlotChoice.h"

#include <gtest/gtest.h>

#include <memory>

#include "FileImage.h"
#include "HostRunner.h"

namespace {

using tqhook::ElfImage;
using tqhook::Slot;
using tqhook::SlotKind;
using tqhook::SlotWrite;
using tqhook::SymbolEntry;
using tqhook::SymbolTable;

class Answer : public tqhook::BindingOracle {
  public:
    explicit Answer(bool elsewhere) : elsewhere_(elsewhere) {}
    [[nodiscard]] bool bindsElsewhere(const ElfImage&, const SymbolEntry&) const override {
        return elsewhere_;
    }

  private:
    bool elsewhere_;
};

class SlotChoice : public testing::Test {
  protected:
    static constexpr std::uintptr_t kOriginal = 0x1111'0000;
    static constexpr std::uintptr_t kDefinition = 0x2222'0000;
    static constexpr std::uintptr_t kFirst = 0x3333'0000;
    static constexpr std::uintptr_t kNewest = 0x4444'0000;

    SlotChoice() {
        SymbolEntry entry;
        entry.name = "t_add";
        entry.prepend(pointer(kFirst), nullptr);
        entry.prepend(pointer(kNewest), nullptr);
        entry.settle(pointer(kOriginal), pointer(kDefinition));
        std::vector<SymbolEntry> entries;
        entries.push_back(std::move(entry));
        table_ = std::make_unique<SymbolTable>(std::move(entries));
    }
    static void* pointer(std::uintptr_t address) { return reinterpret_cast<void*>(address); }
    // Sets every slot of t_add to one value.
    void fill(std::uintptr_t value) {
        const ElfImage image(file_.layout());
        image.forEachSlot([&](const Slot& slot) {
            if (image.symbolName(slot.symbol) == "t_add") {
                *reinterpret_cast<std::uintptr_t*>(slot.address) = value;
            }
        });
    }
    std::vector<SlotWrite> choose(bool elsewhere = false) {
        return chooseSlots(ElfImage(file_.layout()), *table_, Answer(elsewhere));
    }
    std::uintptr_t codeAddress() { return ElfImage(file_.layout()).definition("p_call")->address; }

    FileImage file_{hostLibrary("plugin_lazy")};
    std::unique_ptr<SymbolTable> table_;
};

TEST_F(SlotChoice, SlotsOfTheOriginalLeadToTheNewestReplacement) {
    fill(kOriginal);
    const auto writes = choose();
    ASSERT_EQ(writes.size(), 3U);
    for (const SlotWrite& write : writes) {
        EXPECT_EQ(write.value, pointer(kNewest));
        EXPECT_FALSE(write.wasUnbound);
    }
}

TEST_F(SlotChoice, SlotsThatAnotherToolPassedOverLeadToTheReplacementToo) {
    fill(kDefinition);
    EXPECT_EQ(choose().size(), 3U);
}

TEST_F(SlotChoice, SlotsOfAnOlderReplacementLeadToTheNewest) {
    fill(kFirst);
    EXPECT_EQ(choose().size(), 3U);
}

TEST_F(SlotChoice, SlotsThatHoldTheNewestAreLeft) {
    fill(kNewest);
    EXPECT_TRUE(choose().empty());
}

TEST_F(SlotChoice, EmptySlotsStayEmpty) {
    fill(0);
    EXPECT_TRUE(choose().empty());
}

TEST_F(SlotChoice, SlotsOfAnUnknownFunctionAreLeft) {
    fill(0x7777'0000);
    EXPECT_TRUE(choose().empty());
}

TEST_F(SlotChoice, CallSlotThatIsNotBoundYetIsChosenAndMarked) {
    fill(codeAddress());
    const auto writes = choose();
    ASSERT_EQ(writes.size(), 1U);
    EXPECT_EQ(writes[0].kind, SlotKind::call);
    EXPECT_TRUE(writes[0].wasUnbound);
}

TEST_F(SlotChoice, CallSlotThatWillBindToAnotherLibraryIsLeft) {
    fill(codeAddress());
    EXPECT_TRUE(choose(true).empty());
}

TEST_F(SlotChoice, SymbolWithoutAnOriginalIsLeft) {
    SymbolEntry entry;
    entry.name = "t_add";
    entry.prepend(pointer(kNewest), nullptr);
    std::vector<SymbolEntry> entries;
    entries.push_back(std::move(entry));
    table_ = std::make_unique<SymbolTable>(std::move(entries));
    fill(codeAddress());
    EXPECT_TRUE(choose().empty());
}

TEST_F(SlotChoice, LibraryThatDefinesARedirectedSymbolIsABackend) {
    const FileImage target(hostLibrary("target"));
    EXPECT_TRUE(isBackend(ElfImage(target.layout()), *table_));
    EXPECT_FALSE(isBackend(ElfImage(file_.layout()), *table_));
}

TEST_F(SlotChoice, LibraryThatDefinesTheSymbolOfAFrontIsNone) {
    const FileImage target(hostLibrary("target"));
    for (const char* const symbol : {"t_nothing", "t_add"}) {
        auto exempt = std::make_shared<tqhook::Exemptions>();
        exempt->addFront(symbol);
        const SymbolTable table(table_->entries(), exempt);
        EXPECT_EQ(isBackend(ElfImage(target.layout()), table), symbol == std::string("t_nothing"));
    }
}

TEST_F(SlotChoice, MainProgramIsNeverABackend) {
    FileImage target(hostLibrary("target"));
    target.layout().isMainProgram = true;
    EXPECT_FALSE(isBackend(ElfImage(target.layout()), *table_));
}

TEST_F(SlotChoice, BackendKeepsItsOwnCalls) {
    const FileImage target(hostLibrary("target"));
    const ElfImage image(target.layout());
    image.forEachSlot(
        [](const Slot& slot) { *reinterpret_cast<std::uintptr_t*>(slot.address) = kOriginal; });
    EXPECT_TRUE(chooseSlots(image, *table_, Answer(false)).empty());
}

}  // namespace
