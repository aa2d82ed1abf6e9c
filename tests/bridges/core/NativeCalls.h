#pragma once

#include <string>

#include "bridges/core/NativeApi.h"
#include "bridges/core/StreamFixture.h"
#include "support/sound/Comparison.h"

// Calls of a program into a made-up native library in the test's own process, with the whole
// library behind them.

namespace bridgetests {

using tqtest::differences;
using tqtest::markedNoise;
using tqtest::Sound;
using tqtest::SoundFormat;

/// A program whose first stream has the name `first`.
class NativeCalls : public NativeStreams {
  protected:
    NativeCalls(const tq::bridges::NativeApi& api, std::string first)
        : api_(api), first_(std::move(first)) {}

    void SetUp() override {
        NativeStreams::SetUp();
        ASSERT_EQ(tqhook_rebind(api_.rebindings.data(), api_.rebindings.size(), nullptr), 0);
    }
    /// The program has closed all its streams.
    void TearDown() override {
        // What is left would keep its name and its unit from the next test.
        playOutAll(api_.name);
        NativeStreams::TearDown();
    }

    [[nodiscard]] const std::string& firstName() const { return first_; }
    /// What the listener has heard of the first stream.
    [[nodiscard]] Sound heard(const SoundFormat& format = {}) const {
        return track(first_, format).trimmed();
    }
    /// The first stream is recorded and plays for a while.
    void playOn(int slices = 60) {
        awaitReport(first_);
        pump(slices);
    }
    /// The first stream's track holds the sound and nothing else.
    void expectHeard(const Sound& wanted) const {
        EXPECT_EQ(differences(wanted.trimmed(), heard(wanted.format)), kNothing);
    }

  private:
    const tq::bridges::NativeApi api_;
    const std::string first_;
};

}  // namespace bridgetests
