#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace tqrecorder {

/// What became of a file that was written in one go.
struct WholeFile {
    std::string path;     ///< where it is; empty when it is not there
    std::string problem;  ///< one line when something failed, also where a file is there
};

/// What a recording holds, and so what its files may replace: without any sound nothing, with the
/// microphone's alone nothing either, but they get another name then.
enum class Worth { kSilence, kVoiceAlone, kSound };

/// Writes `bytes` beside the path and gives them the name when they are all there: what had the
/// name stays until then. Without `mayReplace` another name is taken where that one is not free.
/// [host thread]; waits for the disk.
[[nodiscard]] WholeFile writeWholeFile(const std::string& path, bool mayReplace, Worth worth,
                                       std::span<const std::byte> bytes);

}  // namespace tqrecorder
