#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/Descriptor.h"

namespace tqrecorder {

/// What the name of every track's file begins with.
inline constexpr std::string_view kTrackPrefix = "track-";

/// The folder that one recording writes its tracks to, locked as long as this lives. [one host
/// thread at a time]; waits for the disk.
class TracksFolder {
  public:
    explicit TracksFolder(std::string path) : path_(std::move(path)) {}

    /// Makes the folder and sees whether it can be written to, and that it is neither filled with
    /// another recording's tracks nor being filled. Gives why not, in one line.
    [[nodiscard]] std::string open(bool mayReplace);
    [[nodiscard]] const std::string& path() const { return path_; }
    /// Removes the tracks that open() found, those that are still the same files. A line each for
    /// those that cannot be removed.
    [[nodiscard]] std::vector<std::string> removeOld();

  private:
    /// A file of an earlier recording, to be replaced. A name may be another file's by then.
    struct Old {
        std::string path;
        dev_t device = 0;
        ino_t number = 0;
    };
    std::string path_;
    tqcommon::Descriptor lock_;
    std::vector<Old> old_;
};

}  // namespace tqrecorder
