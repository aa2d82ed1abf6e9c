#include <gtest/gtest.h>

#include <string>

#include "FaultLaunches.h"

// fork without exec while other threads play, start and stop units and graphs.

namespace {

class Forks : public FaultLaunches {
  protected:
    void SetUp() override {
#ifdef __SANITIZE_THREAD__
        GTEST_SKIP() << "the sanitizer knows no threads in the child of a process that has some";
#elif defined(__SANITIZE_ADDRESS__)
        GTEST_SKIP() << "the sanitizer's own locks stay as a child finds them: threads that it "
                        "starts may wait for one for ever, without any library of ours as well";
#endif
    }

    void expectNoneHangs(tqtest::ProgramSetup setup) const {
        setup.environment["XDG_CACHE_HOME"] = caches.string();
        setup.environment["TQ_AUDIO_DEVICE"] = "null";
        const tqtest::ProgramEnd run = tqtest::runProgram(setup);
        EXPECT_EQ(run.code, 0) << run.text();
        EXPECT_EQ(run["hanging"], "0") << run.text();
        EXPECT_EQ(run["good"], "60") << run.text();
        EXPECT_EQ(run["plays_on"], "1") << run.text();
    }
};

TEST_F(Forks, ChildrenOfAProgramWithoutTheLibraryUseUnits) {
    expectNoneHangs({.arguments = {TQ_FAULT_FORKER, "60"}});
}

TEST_F(Forks, ChildrenOfAHookedProgramUseUnits) {
    arm();
    expectNoneHangs({.arguments = {TQ_FAULT_FORKER, "60"},
                     .environment = {{"LD_PRELOAD", TQ_CAPTURE_LIBRARY}}});
}

TEST_F(Forks, ChildrenOfARecordedProgramUseUnits) {
    arm();
    expectNoneHangs({.arguments = {TQ_RECORDER, "-q", "-o", folder.file("mix.wav"), "--tracks",
                                   folder.file("tracks"), "--", TQ_FAULT_FORKER, "60"}});
}

}  // namespace
