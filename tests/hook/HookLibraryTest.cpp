// The shared library as programs see it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "hook/tq_hook.h"

namespace {

const link_map* library() {
    Dl_info info{};
    void* map = nullptr;
    dladdr1(reinterpret_cast<void*>(&tqhook_rebind), &info, &map, RTLD_DL_LINKMAP);
    return static_cast<const link_map*>(map);
}

std::vector<ElfW(Xword)> values(ElfW(Sxword) tag) {
    std::vector<ElfW(Xword)> found;
    for (const ElfW(Dyn)* entry = library()->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == tag) {
            found.push_back(entry->d_un.d_val);
        }
    }
    return found;
}

// Every name that the library defines for others. The texts stand right behind the symbols.
std::set<std::string> exportedNames() {
    const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(values(DT_SYMTAB).front());
    const auto* texts = reinterpret_cast<const char*>(values(DT_STRTAB).front());
    std::set<std::string> names;
    for (const ElfW(Sym)* symbol = symbols; reinterpret_cast<const char*>(symbol) < texts;
         ++symbol) {
        // An absolute symbol is the name of a version.
        if (symbol->st_shndx != SHN_UNDEF && symbol->st_shndx != SHN_ABS) {
            names.insert(texts + symbol->st_name);
        }
    }
    return names;
}

TEST(HookLibrary, OffersWhatItsHeaderDeclaresAndNothingElse) {
    EXPECT_EQ(exportedNames(), (std::set<std::string>{"tqhook_exempt_images", "tqhook_front_images",
                                                      "tqhook_rebind", "tqhook_report"}));
}

TEST(HookLibrary, IsBoundAtLoadAndNeverUnloaded) {
    ASSERT_EQ(values(DT_FLAGS_1).size(), 1U);
    EXPECT_NE(values(DT_FLAGS_1)[0] & DF_1_NODELETE, 0U);
    EXPECT_NE(values(DT_FLAGS_1)[0] & DF_1_NOW, 0U);
}

// The loader's stand-in calls on behalf of the program: a path of ours would be searched for it.
TEST(HookLibrary, AddsNoSearchPathOfItsOwn) {
    EXPECT_TRUE(values(DT_RUNPATH).empty());
    EXPECT_TRUE(values(DT_RPATH).empty());
}

TEST(HookLibrary, NeedsNoOtherLibraryOfTheProject) {
    const auto* texts = reinterpret_cast<const char*>(values(DT_STRTAB).front());
    for (const ElfW(Xword) needed : values(DT_NEEDED)) {
        const std::string name = texts + needed;
        EXPECT_FALSE(name.starts_with("libtq") || name.starts_with("libTQ")) << name;
    }
}

pid_t (*savedParent)() = nullptr;

TEST(HookLibrary, RedirectsCallsOfTheProgram) {
    pid_t (*replacement)() = [] { return savedParent() + 1; };
    const tqhook_rebinding record{"getppid", reinterpret_cast<void*>(replacement),
                                  reinterpret_cast<void**>(&savedParent)};
    ASSERT_EQ(tqhook_rebind(&record, 1, nullptr), 0);
    EXPECT_EQ(getppid(), savedParent() + 1);
}

}  // namespace
