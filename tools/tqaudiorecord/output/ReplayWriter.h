#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/Records.h"
#include "output/ReplayMemory.h"
#include "output/files/FileSeries.h"

namespace tqrecorder {

/// Where clips of a replay go.
struct ReplayPlan {
    FileSeries::Plan mix;      ///< an empty path for none
    std::string tracksFolder;  ///< empty for none
    double seconds = 0;
    bool overlaps = false;  ///< else what was saved is not saved again: files go on
    const FileFormat* tracksKind = &trackFormat();
};

/// What is saved of a stream, with silence where it was not played.
struct StreamClip {
    int track = 0;     ///< the mix is 0
    std::string unit;  ///< empty for the mix
    BlockFormat format;
    std::int64_t begin = 0;  ///< frames since the stream began
    std::int64_t end = 0;
    std::int64_t first = 0;            ///< that is kept
    std::int64_t last = 0;             ///< behind it
    std::optional<KeptBytes> bytes{};  ///< none where nothing was played then
};

struct ProcessClip {
    int processId = 0;
    std::string addition;  ///< to the names of its files
    double seconds = 0;
    std::vector<StreamClip> streams;
};

struct ReplaySave {
    std::uint64_t ticket = 0;  ///< never 0
    std::vector<ProcessClip> processes;
};

/// What became of one.
struct ReplaySaved {
    std::uint64_t ticket = 0;
    std::vector<WrittenFile> files{};
    std::vector<std::string> problems{};
    std::vector<int> failed{};  ///< processes of which not all could be written
};

/// Whether the user does not want to wait for it any longer. Asked for several times a second.
using IsGivenUp = std::function<bool()>;

/// Writes a clip to new numbered files, or all of it to one Matroska file. [any thread]; takes as
/// long as coding and the disk do. Once it is given up the file under way is completed with what it
/// has, no other is begun, and problems name each that is short or missing.
[[nodiscard]] ReplaySaved writeReplay(const ReplayPlan& plan, const ReplaySave& save,
                                      const IsGivenUp& isGivenUp);

}  // namespace tqrecorder
