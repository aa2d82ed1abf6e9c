#pragma once

#include <gtest/gtest.h>

#include "bridges/programs/ProgramRun.h"

namespace programruns {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kCanPreload = false;
#else
inline constexpr bool kCanPreload = true;
#endif

/// Skips where the recorder's library cannot be loaded into programs.
inline void skipUnlessPreloading() {
    if (!kCanPreload) {
        GTEST_SKIP() << "a sanitizer's library cannot be preloaded into a program built without it";
    }
}

/// Of tests that record programs.
class RecordedRun : public testing::Test {
  protected:
    void SetUp() override { skipUnlessPreloading(); }
};

}  // namespace programruns
