#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/Records.h"
#include "output/files/FileFormats.h"
#include "output/files/FileNames.h"
#include "output/files/PartFile.h"

namespace tqrecorder {

/// A file that was written, for the summary and for the picture.
struct WrittenFile {
    std::string path;
    std::string text;  ///< its format for people
    double seconds = 0;
    std::uint64_t gaps = 0;  ///< holes filled with silence, of its whole stream
    int processId = 0;
    std::string name;                  ///< "mix" or the track's
    std::uint64_t beganAt = 0;         ///< host time of its stream's first frame, microseconds
    double startSeconds = 0;           ///< of its stream that are in files before it
    const FileFormat* kind = nullptr;  ///< static, whatever the path ends with
};

/// The files that a split has completed so far. What has still to write up to the split's place in
/// the sound holds it too: it is over when nobody but the one who asked does.
using SplitFiles = std::shared_ptr<std::vector<WrittenFile>>;

/// Whether a block is more than silence.
[[nodiscard]] bool hasSound(std::span<const std::byte> frames, const BlockFormat& format);

/// The files that one output makes one after the other: their numbers, and when they take their
/// names, which is with the first sound in any of them once a program sounds; without any they take
/// those that are free, and what only the microphone was heard in goes to another where they are
/// not.
/// Their name as it was asked for is locked from the first file to finish(), so that a second
/// recorder is told whichever of them is being written. [one host thread at a time]; waits for the
/// disk.
class FileChain {
  public:
    /// `isNumbered` says that the first file has a number as well. `programs` tells whether any has
    /// sounded; null where there is no other sound than theirs.
    FileChain(std::string path, bool isNumbered, bool mayReplace,
              std::shared_ptr<const ProcessNames> programs = nullptr);

    /// Makes the next file. Null when that failed, with a line in `error`.
    [[nodiscard]] PartFile* next(std::string& error);
    /// The one under way; null where there is none.
    [[nodiscard]] const PartFile* current() const { return part_.get(); }
    /// Removes the one under way.
    void drop() { part_.reset(); }
    /// Is to be called by that path, from the first file on, unless another recording has a name.
    void moveTo(std::string path);
    /// The one under way is complete, and is called what `file` says but for the path. One without
    /// a frame goes.
    void complete(WrittenFile file, bool isEmpty);
    /// That was written to the one under way.
    void wrote(std::span<const std::byte> frames, const BlockFormat& format);
    [[nodiscard]] bool isHeard() const { return isHeard_; }
    /// Files that follow have numbers, from 2 on behind one without.
    void numberFromNowOn();
    /// Those behind `cut`, which completes the one under way, have numbers. Gives that one; nothing
    /// where it waits for sound that is worth its name, or could not be completed.
    [[nodiscard]] std::optional<WrittenFile> split(const std::function<void()>& cut);
    void finish();

    void complain(const std::string& problem) { problems_.push_back(problem); }
    [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }
    /// Those that are complete and have their names.
    [[nodiscard]] const std::vector<WrittenFile>& files() const { return files_; }

  private:
    struct Silent {
        WrittenFile file;
        std::shared_ptr<PartFile> part;
    };
    void followPrograms();
    void heard();
    [[nodiscard]] std::string lockNumbered();
    [[nodiscard]] std::string nextPath();
    /// What was heard and finds no way to its name stays beside it.
    void takeName(PartFile& part);
    void list(WrittenFile file, std::shared_ptr<PartFile> part);
    void nameAndList(Silent& complete);
    void nameBeside(Silent& voice);

    std::string path_;
    bool isNumbered_;
    bool mayReplace_;
    std::shared_ptr<const ProcessNames> programs_;
    unsigned number_ = 0;
    bool hasSound_ = false;  // whosever it is
    bool isHeard_ = false;   // it is worth names that are taken
    std::shared_ptr<PartFile> part_;
    std::shared_ptr<PartFile> lock_;  // the file that has no number, or would have none
    std::vector<Silent> silent_;      // complete, and waiting for sound that is worth their names
    std::vector<WrittenFile> files_;
    std::vector<std::shared_ptr<PartFile>> parts_;  // theirs, until finish()
    std::vector<std::string> problems_;
};

}  // namespace tqrecorder
