#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Bytes.h"
#include "LogRecorder.h"
#include "audio_hook_config.h"
#include "support/TemporaryFolder.h"

namespace korva_audio_utils {

inline const auto kPage = static_cast<std::size_t>(getpagesize());

/// A page that starts with these bytes.
inline Bytes Page(Bytes start) {
    start.resize(kPage);
    return start;
}

/// A store that is not initialised yet, and the files that it will have.
class AudioHookConfigTest : public testing::Test {
  protected:
    int Init(AudioHookConfigImpl& config) { return config.init(folder_.path().c_str()); }
    Bytes ConfigBytes() const { return ReadBytes(configPath_); }
    Bytes CountBytes() const { return ReadBytes(countPath_); }
    static void ExpectState(AudioHookConfigImpl& config, int enterCount, int retryCount) {
        const PreLaunchState state = config.getPreLaunchState();
        EXPECT_EQ(state.enterCount, enterCount);
        EXPECT_EQ(state.retryCount, retryCount);
    }
    /// The utility lines that init and later calls wrote, without those of the files.
    std::vector<std::string> StoreLines() const {
        std::vector<std::string> lines = log_.Infos();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("mmap success") || line.starts_with("Success create");
        });
        return lines;
    }

    TemporaryFolder folder_;
    std::string configPath_ = folder_.file("korva_audio_hook_config.flag");
    std::string countPath_ = folder_.file("korva_audio_hook_func_count.flag");
    LogRecorder log_;
    AudioHookConfigImpl config_;
};

}  // namespace korva_audio_utils
