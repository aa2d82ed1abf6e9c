#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "core/Records.h"

namespace tqrecorder {

/// `addition` goes in before the extension: "out.wav", "-2" gives "out-2.wav". What would be longer
/// than a name can be loses letters before the addition.
[[nodiscard]] std::string withAddition(std::string_view path, std::string_view addition);

/// "-001" and so on.
[[nodiscard]] std::string numberAddition(unsigned number);

/// What may stand in a file name: letters of any script, digits, dot, minus; anything else of
/// ASCII, what is no UTF-8, and what steers a terminal or turns the direction of writing becomes an
/// underscore, several in a row one. At most 60 bytes of whole letters; "unnamed" for nothing.
[[nodiscard]] std::string fileNamePart(std::string_view text);

/// What is added to the file names of each recorded process. The first that sounds gets the names
/// as they were given; until one does the first that delivers anything has them, so that there is a
/// name where all is silence. Every other one gets its program's name, with a number when that is
/// taken: of several of one program the first that sounds has none. All outputs of a recording
/// share one of these.
class ProcessNames {
  public:
    [[nodiscard]] const std::string& additionOf(const Process& process);
    /// Of one that was asked about.
    [[nodiscard]] const std::string& additionOf(int processId) const;
    /// Whether the process has the names as given. False for one that was not asked about.
    [[nodiscard]] bool isFirst(int processId) const;
    /// The process sounds. One that was silent gives up what the first that sounds is to have.
    void hear(const Process& process);
    /// Whether the process has sounded, so that nobody else gets its names.
    [[nodiscard]] bool hasSounded(int processId) const;
    /// Whether any process has sounded.
    [[nodiscard]] bool isHeard() const { return hearings_ > 0; }
    /// How many processes have sounded. Names are as they were as long as that is.
    [[nodiscard]] std::size_t hearings() const { return hearings_; }
    /// Whether it may still have to give its names up. One that was asked about.
    [[nodiscard]] bool mayLoseNames(int processId) const;
    /// Its files have their names, and keep them. One that was asked about.
    void settle(int processId) { names_.at(processId).isSettled = true; }

  private:
    struct Named {
        std::string program;
        std::string addition;
        bool hasSounded = false;
        bool isSettled = false;  // nobody else gets its names

        [[nodiscard]] bool isPlain() const;
    };
    [[nodiscard]] std::string free(const std::string& program);

    std::map<int, Named> names_;
    std::set<std::string> taken_;
    std::size_t hearings_ = 0;
};

}  // namespace tqrecorder
