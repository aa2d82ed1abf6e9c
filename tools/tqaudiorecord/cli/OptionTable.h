#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/Options.h"

// Every option of the recorder stands in one table. The parser, the help text, the manual page, the
// completions of bash and zsh and the table in docs/recorder.md are made from it; defaults are
// those of a fresh Options.

namespace tqrecorder {

/// Options that stand together in the help text and the manual page.
enum class OptionGroup { kOutput, kEnding, kView, kControl };

/// What is printed instead of recording, in the order in which one wins over the next.
enum class Information { kHelp, kVersion, kFormats };

/// A switch that turns a field off.
struct ClearsField {
    bool Options::*field;
};

/// A switch with a number that may follow behind an equals sign.
struct SwitchWithNumber {
    bool Options::*isOn;
    double Options::*number;
};

/// A switch with a text that may follow behind an equals sign.
struct SwitchWithText {
    bool Options::*isOn;
    std::string Options::*text;
};

/// Where the value of an option goes; the kind tells what the option takes.
using OptionTarget =
    std::variant<Information, bool Options::*, ClearsField, SwitchWithNumber, SwitchWithText,
                 std::string Options::*, std::vector<std::string> Options::*, double Options::*,
                 std::optional<double> Options::*>;

/// What a shell offers behind an option.
enum class Completion { kNothing, kFile, kPngFile, kFolder, kFormat, kFileOrMicrophone };

/// One option. Texts are static.
struct OptionEntry {
    OptionGroup group{};
    char letter = 0;               ///< short form; 0 for none
    std::string_view name{};       ///< without dashes
    std::string_view valueName{};  ///< empty for a switch
    OptionTarget target{};
    std::string_view brief{};  ///< one line, for help and completions
    /// For the manual page. `**bold**` and `*italic*` as in Markdown; {default} stands for the
    /// default.
    std::string_view manual{};
    double lowest = 0;  ///< of a number
    double highest = 0;
    std::string_view needs{};     ///< name of another option
    std::string_view excludes{};  ///< name of another option
    bool takesEmptyText = false;  ///< else an empty text is refused
    Completion completion = Completion::kNothing;

    /// Whether the next argument belongs to it.
    [[nodiscard]] bool takesArgument() const;
    /// Whether it may be given again, each time with another value.
    [[nodiscard]] bool isRepeatable() const;
    /// Whether its value is a number, for which the range counts.
    [[nodiscard]] bool isNumber() const;
    /// The number it has unless told; empty where there is none.
    [[nodiscard]] std::string defaultText() const;
    /// "-o", "--output".
    [[nodiscard]] std::string shortForm() const;
    [[nodiscard]] std::string longForm() const;
};

/// All of them, group by group, in the order in which they are listed.
[[nodiscard]] std::span<const OptionEntry> optionTable();
[[nodiscard]] std::string_view titleOf(OptionGroup group);
/// As in a text: no more digits than the number needs.
[[nodiscard]] std::string numberText(double number);

}  // namespace tqrecorder
