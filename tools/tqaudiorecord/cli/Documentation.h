#pragma once

#include <string>
#include <string_view>

namespace tqrecorder {

/// Replaces every @NAME@ by what the option table and the list of formats give for that name; other
/// text stays. The names:
///   MANUAL_OPTIONS        options of the manual page, in roff
///   ZSH_OPTIONS           one argument of _arguments a line
///   BASH_OPTIONS          all options, between blanks
///   BASH_WITH_ARGUMENT    a case pattern: options whose next word is their value
///   BASH_FILE, BASH_FOLDER, BASH_FORMAT, BASH_MICROPHONE, BASH_UNKNOWN
///                         case patterns: those of them whose value is completed in that way
///   FORMATS               names of the formats, between blanks
[[nodiscard]] std::string filledTemplate(std::string_view text);

/// The table of all options for docs/recorder.md.
[[nodiscard]] std::string markdownOptions();

}  // namespace tqrecorder
