#pragma once

#include <sys/types.h>

#include <string>

#include "common/Descriptor.h"

namespace tqrecorder {

/// A file that is written beside its name ("out.wav" as ".out.wav.tqaudiorecord") and takes the
/// name when it is worth it: what had the name stays until then. Locked as long as it is open, also
/// under its name, so that a second recorder is told. A device is written as it is. [one host
/// thread at a time]; waits for the disk.
class PartFile {
  public:
    /// Makes it. `mayReplace` says that it takes the name from a file that has it; else it goes to
    /// the next free name. See problem().
    PartFile(std::string path, bool mayReplace);
    /// Removes what has neither taken its name nor is kept.
    ~PartFile();
    PartFile(PartFile&&) = delete;
    PartFile& operator=(PartFile&&) = delete;

    /// One line when it could not be made.
    [[nodiscard]] const std::string& problem() const { return problem_; }
    /// The name that it has or will take.
    [[nodiscard]] const std::string& path() const { return path_; }
    /// To write through; the caller's own.
    [[nodiscard]] tqcommon::Descriptor descriptor() const;

    /// Keeps it where it is and no longer open, nor locked.
    void letGo();

    /// Is to be called that, which nobody else writes, instead. What has its name keeps it where it
    /// may not have the new one, and where the file was moved or replaced.
    void moveTo(std::string path);
    /// Empty when it has its name now or had it before; else one line, and the file may have gone
    /// to another name, which path() tells.
    [[nodiscard]] std::string takeName();
    /// The same, and keep() where it has no name then; the line says that.
    [[nodiscard]] std::string takeNameOrKeep();
    /// The same for what only the microphone was heard in, where another file has the name and
    /// keeps it: the line says so.
    [[nodiscard]] std::string takeNameBeside();
    [[nodiscard]] bool hasName() const { return hasName_; }
    /// Stays beside its name, whose place it could not take, write-protected so that no recording
    /// is written over it. Gives where that is.
    [[nodiscard]] const std::string& keep();
    /// Whether something else has the name.
    [[nodiscard]] bool isNameTaken() const;
    /// False when the file that had taken its name was deleted, moved or replaced since.
    [[nodiscard]] bool isStillThere() const;

  private:
    void movePart(const std::string& part);
    [[nodiscard]] bool open();
    [[nodiscard]] bool isAt(const std::string& place) const;

    std::string path_;
    std::string target_;  ///< where a link at the path leads to, else the path
    std::string part_;    ///< empty for a device
    bool mayReplace_;
    bool hasName_ = false;
    bool isKept_ = false;
    dev_t device_ = 0;
    ino_t number_ = 0;
    tqcommon::Descriptor file_;
    std::string problem_;
};

/// Why a recording may not be written to that path, one line; empty when it may: a file that is
/// there is not replaced unless `mayReplace`, and never one that another recorder writes.
[[nodiscard]] std::string whyNotWritten(const std::string& path, bool mayReplace);

/// Where a path leads that is a link, also to a file that is not there; else the path.
[[nodiscard]] std::string linkTarget(const std::string& path);

/// The path, or with the lowest number from 2 on before its extension the first that is free and
/// not being written.
[[nodiscard]] std::string freePath(const std::string& path);

}  // namespace tqrecorder
