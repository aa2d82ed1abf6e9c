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

/// What is added to the file names of each recorded process. The first that delivers sound gets
/// the names as they were given, which is the command itself unless it is a mere launcher; every
/// other one gets its program's name, with a number when that is taken. All outputs of a recording
/// share one of these.
class ProcessNames {
  public:
    [[nodiscard]] const std::string& additionOf(const Process& process);
    /// Whether the process has the names as given. False for one that was not asked about.
    [[nodiscard]] bool isFirst(int processId) const;

  private:
    std::map<int, std::string> additions_;
    std::set<std::string> taken_;
};

}  // namespace tqrecorder
