#pragma once

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
/// taken. All outputs of a recording share one of these.
class ProcessNames {
  public:
    [[nodiscard]] const std::string& additionOf(const Process& process);
    /// Of one that was asked about.
    [[nodiscard]] const std::string& additionOf(int processId) const;
    /// Whether the process has the names as given. False for one that was not asked about.
    [[nodiscard]] bool isFirst(int processId) const;
    /// The process sounds. Who had the names as given, and was silent, gives them up to the first.
    void hear(const Process& process);
    /// Whether any process has sounded: no name changes any more then.
    [[nodiscard]] bool isHeard() const { return isHeard_; }

  private:
    struct Named {
        std::string program;
        std::string addition;
    };
    [[nodiscard]] std::string free(const std::string& program);

    std::map<int, Named> names_;
    std::set<std::string> taken_;
    bool isHeard_ = false;
};

}  // namespace tqrecorder
