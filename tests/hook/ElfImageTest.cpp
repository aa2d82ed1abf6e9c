#include "hook/elf/ElfImage.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <limits>
#include <random>

#include "FileImage.h"
#include "HostRunner.h"
#include "common/ElfNames.h"
#include "hook/elf/LoadedImages.h"

namespace {

using tqhook::Definition;
using tqhook::ElfImage;
using tqhook::Slot;
using tqhook::SlotKind;

// Asks everything that can be asked, and says how many slots there were.
std::size_t readEverything(const tqhook::ImageLayout& layout) {
    const ElfImage image(layout);
    std::size_t slots = 0;
    std::size_t letters = 0;
    image.forEachSlot([&](const Slot& slot) {
        ++slots;
        letters += image.symbolName(slot.symbol).size();
        letters += image.definesSymbol(slot.symbol) ? 1 : 0;
    });
    for (const char* name : {"t_add", "t_pick", "late_add", "p_call", "", "no_such_name"}) {
        letters += image.definition(name).has_value() ? 1 : 0;
    }
    letters += image.canonicalStub("t_add") != 0 ? 1 : 0;
    for (const std::string_view needed : image.neededLibraries()) {
        letters += needed.size();
    }
    EXPECT_LT(letters, std::numeric_limits<std::size_t>::max());
    return slots;
}

std::size_t countSlots(const ElfImage& image, SlotKind kind, std::string_view name) {
    std::size_t count = 0;
    image.forEachSlot([&](const Slot& slot) {
        count += slot.kind == kind && image.symbolName(slot.symbol) == name ? 1 : 0;
    });
    return count;
}

TEST(ElfImage, FindsTheFunctionsThatALibraryDefines) {
    const FileImage file(hostLibrary("target"));
    const ElfImage image(file.layout());
    ASSERT_TRUE(image.definition("t_add").has_value());
    EXPECT_FALSE(image.definition("t_add")->isIndirect);
    ASSERT_TRUE(image.definition("t_pick").has_value());
    EXPECT_TRUE(image.definition("t_pick")->isIndirect);
    EXPECT_FALSE(image.definition("t_ad").has_value());
    EXPECT_FALSE(image.definition("").has_value());
}

TEST(ElfImage, FindsFunctionsThroughTheOldHashTable) {
    const FileImage file(hostLibrary("late_target_sysv"));
    ASSERT_EQ(file.dynamicEntry(DT_GNU_HASH), nullptr);
    const ElfImage image(file.layout());
    EXPECT_TRUE(image.definition("late_add").has_value());
    EXPECT_FALSE(image.definition("t_add").has_value());
}

TEST(ElfImage, DoesNotOfferWhatAnImageOnlyAsksFor) {
    const FileImage file(hostLibrary("plugin_lazy"));
    const ElfImage image(file.layout());
    EXPECT_FALSE(image.definition("t_add").has_value());
    EXPECT_TRUE(image.definition("p_call").has_value());
}

TEST(ElfImage, ListsEachKindOfSlot) {
    const FileImage lazy(hostLibrary("plugin_lazy"));
    const ElfImage image(lazy.layout());
    EXPECT_EQ(countSlots(image, SlotKind::call, "t_add"), 1U);
    EXPECT_EQ(countSlots(image, SlotKind::data, "t_add"), 2U);
    EXPECT_EQ(countSlots(image, SlotKind::call, "dlsym"), 1U);
}

TEST(ElfImage, ListsTheLibrariesThatAnImageNeeds) {
    const FileImage file(hostLibrary("plugin_lazy"));
    const auto needed = ElfImage(file.layout()).neededLibraries();
    EXPECT_NE(std::find(needed.begin(), needed.end(), "libhook_target.so"), needed.end());
}

// The reader that checks everything and the one that trusts the loader see the same table.
TEST(ElfImage, NeededLibrariesOfALoadedImageReadTheSameUnchecked) {
    std::size_t names = 0;
    for (const tqhook::ImageLayout& layout : tqhook::loadedImages().images) {
        std::vector<std::string_view> unchecked;
        const ElfW(Phdr) header{.p_type = PT_DYNAMIC,
                                .p_flags = PF_R,
                                .p_offset = 0,
                                .p_vaddr = layout.dynamic.begin - layout.base,
                                .p_paddr = 0,
                                .p_filesz = layout.dynamic.end - layout.dynamic.begin,
                                .p_memsz = layout.dynamic.end - layout.dynamic.begin,
                                .p_align = 8};
        tqcommon::forEachDynamicName(
            tqcommon::MappedDynamic(layout.base, &header, 1), DT_NEEDED,
            [&unchecked](std::string_view name) { unchecked.push_back(name); });
        EXPECT_EQ(unchecked, ElfImage(layout).neededLibraries()) << layout.name;
        names += unchecked.size();
    }
    EXPECT_GT(names, 2U);
}

TEST(ElfImage, VersionsKeptForOldProgramsAreNoDefinitions) {
    void* const library = dlopen(hostLibrary("versioned").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    void* const changed = dlsym(library, "v_changed");
    ASSERT_NE(dlvsym(library, "v_changed", "V_1"), changed);
    ASSERT_NE(dlvsym(library, "v_kept", "V_1"), nullptr);
    const FileImage file(hostLibrary("versioned"));
    const ElfImage image(file.layout());
    const auto* const map = static_cast<const link_map*>(library);
    ASSERT_TRUE(image.definition("v_changed").has_value());
    EXPECT_EQ(image.definition("v_changed")->address - file.layout().base,
              reinterpret_cast<std::uintptr_t>(changed) - map->l_addr);
    EXPECT_FALSE(image.definition("v_kept").has_value());
    EXPECT_TRUE(image.offers("v_kept")) << "who asks for that version is answered";
    EXPECT_TRUE(image.offers("v_changed"));
    EXPECT_FALSE(image.offers("v_none"));
}

TEST(ElfImage, TellsTheStubOfAFixedAddressProgram) {
    const FileImage fixed(hostProgram("host_fixed_lazy_plain"));
    EXPECT_NE(ElfImage(fixed.layout()).canonicalStub("t_add"), 0U);
    const FileImage moving(hostProgram("host_pie_lazy_plain"));
    EXPECT_EQ(ElfImage(moving.layout()).canonicalStub("t_add"), 0U);
}

TEST(ElfImage, ImageCutAnywhereIsReadWithinItsEnd) {
    for (const char* library : {"target", "plugin_lazy", "late_target_sysv"}) {
        const FileImage whole(hostLibrary(library));
        for (std::size_t size = 8; size < whole.size(); size += 56) {
            const FileImage part(whole, size);
            readEverything(part.layout());
        }
    }
}

TEST(ElfImage, DynamicTableThatPointsAnywhereIsReadWithinTheImage) {
    const FileImage whole(hostLibrary("plugin_lazy"));
    const std::array<std::uintptr_t, 9> values{0,
                                               1,
                                               7,
                                               whole.size() - 1,
                                               whole.size() - 8,
                                               whole.size(),
                                               std::numeric_limits<std::uintptr_t>::max(),
                                               std::numeric_limits<std::uintptr_t>::max() - 23,
                                               std::uintptr_t{1} << 63U};
    const std::array<ElfW(Sxword), 13> tags{
        DT_SYMTAB, DT_STRTAB, DT_STRSZ,  DT_GNU_HASH,  DT_VERSYM, DT_JMPREL, DT_PLTRELSZ,
        DT_PLTREL, DT_RELA,   DT_RELASZ, DT_RELACOUNT, DT_NEEDED, DT_RELAENT};
    for (const ElfW(Sxword) tag : tags) {
        for (const std::uintptr_t value : values) {
            const FileImage damaged(whole, whole.size());
            ElfW(Dyn)* entry = damaged.dynamicEntry(tag);
            ASSERT_NE(entry, nullptr) << tag;
            entry->d_un.d_val = value;
            readEverything(damaged.layout());
        }
    }
}

TEST(ElfImage, DynamicTableWithoutAnEndIsCutAtItsSize) {
    const FileImage whole(hostLibrary("plugin_lazy"));
    const FileImage damaged(whole, whole.size());
    while (ElfW(Dyn)* entry = damaged.dynamicEntry(DT_NULL)) {
        entry->d_tag = DT_DEBUG;
    }
    EXPECT_EQ(readEverything(damaged.layout()), readEverything(whole.layout()));
}

TEST(ElfImage, ReversedDynamicRangeHoldsNothing) {
    FileImage damaged(hostLibrary("plugin_lazy"));
    std::swap(damaged.layout().dynamic.begin, damaged.layout().dynamic.end);
    EXPECT_EQ(readEverything(damaged.layout()), 0U);
}

TEST(ElfImage, ImageWithoutSegmentsHoldsNothing) {
    FileImage damaged(hostLibrary("plugin_lazy"));
    damaged.layout().segments.clear();
    EXPECT_EQ(readEverything(damaged.layout()), 0U);
}

// Fills a hash table with one word and sees that look-ups still end.
void fillHashTable(const FileImage& file, ElfW(Sxword) tag, std::size_t firstWord,
                   std::uint32_t word) {
    const ElfW(Dyn)* entry = file.dynamicEntry(tag);
    ASSERT_NE(entry, nullptr);
    auto* words = reinterpret_cast<std::uint32_t*>(file.bytes() + entry->d_un.d_val);
    for (std::size_t i = firstWord; i < 24; ++i) {
        words[i] = word;
    }
    readEverything(file.layout());
}

TEST(ElfImage, HashTablesOfOneNumberThroughoutEndTheSearch) {
    for (const std::uint32_t word : {0U, 1U, 2U, 3U, 0x7fffffffU, 0xffffffffU, 0xfffffffeU}) {
        for (std::size_t firstWord = 0; firstWord < 6; ++firstWord) {
            const FileImage modern(hostLibrary("target"));
            fillHashTable(modern, DT_GNU_HASH, firstWord, word);
            const FileImage old(hostLibrary("late_target_sysv"));
            fillHashTable(old, DT_HASH, firstWord, word);
        }
    }
}

TEST(ElfImage, CircleInTheOldHashTableEndsTheSearch) {
    const FileImage file(hostLibrary("late_target_sysv"));
    auto* words =
        reinterpret_cast<std::uint32_t*>(file.bytes() + file.dynamicEntry(DT_HASH)->d_un.d_val);
    const std::uint32_t buckets = words[0];
    const std::uint32_t symbols = words[1];
    for (std::uint32_t i = 0; i < buckets; ++i) {
        words[2 + i] = 1;
    }
    for (std::uint32_t i = 0; i < symbols; ++i) {
        words[2 + buckets + i] = 1;
    }
    EXPECT_FALSE(ElfImage(file.layout()).definition("no_such_name").has_value());
}

TEST(ElfImage, RandomDamageIsReadWithinTheImage) {
    std::mt19937 random(20240613);
    for (const char* library : {"target", "plugin_lazy", "plugin_relr", "late_target_sysv"}) {
        const FileImage whole(hostLibrary(library));
        for (int round = 0; round < 400; ++round) {
            const FileImage damaged(whole, whole.size());
            // The tables stand in the first and the last pages; most damage should hit them.
            for (int hit = 0; hit < 24; ++hit) {
                const bool inDynamic = hit % 3 == 0;
                const std::uintptr_t begin =
                    inDynamic ? damaged.layout().dynamic.begin - damaged.layout().base : 0x190;
                const std::size_t place = begin + random() % (inDynamic ? 0x180 : 0x600);
                if (place < damaged.size()) {
                    damaged.bytes()[place] = static_cast<std::uint8_t>(random());
                }
            }
            readEverything(damaged.layout());
        }
    }
}

}  // namespace
