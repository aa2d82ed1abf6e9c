// The shared library as it is installed.

#include <AudioToolbox/AudioToolbox.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <string>

#include "TQAudioRecordResolver.h"
#include "TQAudioUnitRecordResolveManager.h"

namespace {

OSStatus (*savedNewGraph)(AUGraph*) = nullptr;
int graphsSeen = 0;

OSStatus seeNewGraph(AUGraph* graph) {
    ++graphsSeen;
    return savedNewGraph(graph);
}

const ElfW(Dyn) * dynamicTable() {
    Dl_info info{};
    void* map = nullptr;
    dladdr1(reinterpret_cast<void*>(&tqreplay_rebind_symbols), &info, &map, RTLD_DL_LINKMAP);
    return static_cast<link_map*>(map)->l_ld;
}

ElfW(Xword) value(ElfW(Sxword) tag) {
    for (const ElfW(Dyn)* entry = dynamicTable(); entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == tag) {
            return entry->d_un.d_val;
        }
    }
    return 0;
}

TEST(ResolverLibrary, IsBoundAtLoadAndNeverUnloaded) {
    EXPECT_NE(value(DT_FLAGS_1) & DF_1_NODELETE, 0U);
    EXPECT_NE(value(DT_FLAGS_1) & DF_1_NOW, 0U);
}

TEST(ResolverLibrary, OffersItsOwnNamesOnly) {
    void* library = dlopen("libTQAudioRecordResolver.so.1", RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_NE(dlsym(library, "tqreplay_rebind_symbols"), nullptr);
    EXPECT_NE(dlsym(library, "tqreplay_rebind_report"), nullptr);
    EXPECT_EQ(dlsym(library, "tqhook_dlopen"), nullptr);
    EXPECT_EQ(dlsym(library, "tqhook_real_dlopen"), nullptr);
}

TEST(ResolverLibrary, RedirectsTheProgramsCallsOfThePlatformAndNotThePlatformsOwn) {
    TQRebinding record{"NewAUGraph", reinterpret_cast<void*>(&seeNewGraph),
                       reinterpret_cast<void**>(&savedNewGraph)};
    ASSERT_EQ(tqreplay_rebind_symbols(&record, 1), 0);
    AUGraph graph = nullptr;
    EXPECT_EQ(NewAUGraph(&graph), noErr);
    EXPECT_EQ(graphsSeen, 1);
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(savedNewGraph), &info), 0);
    EXPECT_NE(std::string(info.dli_fname).find("libtqplatform"), std::string::npos);
    EXPECT_EQ(DisposeAUGraph(graph), noErr);
}

int instancesSeen = 0;
OSStatus (*savedInstanceNew)(AudioComponent, AudioComponentInstance*) = nullptr;

OSStatus seeInstanceNew(AudioComponent component, AudioComponentInstance* instance) {
    ++instancesSeen;
    return savedInstanceNew(component, instance);
}

TEST(ResolverLibrary, UnitsThatAGraphMakesAreThePlatformsOwnAffair) {
    TQRebinding record{"AudioComponentInstanceNew", reinterpret_cast<void*>(&seeInstanceNew),
                       reinterpret_cast<void**>(&savedInstanceNew)};
    ASSERT_EQ(tqreplay_rebind_symbols(&record, 1), 0);
    AUGraph graph = nullptr;
    AUNode node = 0;
    const AudioComponentDescription description{kAudioUnitType_Output, kAudioUnitSubType_RemoteIO,
                                                kAudioUnitManufacturer_Apple, 0, 0};
    ASSERT_EQ(NewAUGraph(&graph), noErr);
    ASSERT_EQ(AUGraphAddNode(graph, &description, &node), noErr);
    ASSERT_EQ(AUGraphOpen(graph), noErr);
    EXPECT_EQ(instancesSeen, 0);
    AudioComponentInstance own = nullptr;
    ASSERT_EQ(AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &description), &own),
              noErr);
    EXPECT_EQ(instancesSeen, 1);
    AudioComponentInstanceDispose(own);
    DisposeAUGraph(graph);
}

}  // namespace
