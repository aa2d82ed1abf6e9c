#include "cli/Documentation.h"

#include <functional>
#include <map>
#include <set>

#include "cli/OptionTable.h"
#include "output/files/FileFormats.h"

namespace tqrecorder {
namespace {

constexpr std::size_t kRoffLine = 100;

std::string replaced(std::string text, std::string_view from, std::string_view to) {
    for (std::size_t place = 0; (place = text.find(from, place)) != std::string::npos;
         place += to.size()) {
        text.replace(place, from.size(), to);
    }
    return text;
}

std::string joined(const std::vector<std::string>& words, std::string_view between) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : std::string(between)) + word;
    }
    return text;
}

std::string formatNames() {
    std::vector<std::string> names;
    for (const FileFormat& format : fileFormats()) {
        names.emplace_back(format.name);
    }
    return joined(names, " ");
}

/// Both forms, the short one first.
std::vector<std::string> formsOf(const OptionEntry& option) {
    std::vector<std::string> forms;
    if (option.letter != 0) {
        forms.push_back(option.shortForm());
    }
    forms.push_back(option.longForm());
    return forms;
}

// ---- roff

/// `**bold**` and `*italic*` as font changes; a hyphen is one that can be copied into a shell.
std::string roff(std::string_view text) {
    std::string result;
    bool isBold = false;
    bool isItalic = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.substr(i, 2) == "**") {
            isBold = !isBold;
            result += isBold ? "\\fB" : "\\fR";
            ++i;
        } else if (text[i] == '*') {
            isItalic = !isItalic;
            result += isItalic ? "\\fI" : "\\fR";
        } else if (text[i] == '-') {
            result += "\\-";
        } else {
            result += text[i];
        }
    }
    return result;
}

/// In lines that none begins with what roff takes for a request.
std::string roffLines(const std::string& text) {
    std::string lines;
    std::size_t column = 0;
    std::size_t place = 0;
    while (place < text.size()) {
        const std::size_t end = std::min(text.find(' ', place), text.size());
        const std::string word = text.substr(place, end - place);
        if (column > 0 && column + 1 + word.size() > kRoffLine) {
            lines += '\n';
            column = 0;
        }
        if (column > 0) {
            lines += ' ';
        } else if (word.front() == '.' || word.front() == '\'') {
            lines += "\\&";
        }
        lines += word;
        column += word.size() + 1;
        place = end + 1;
    }
    return lines + '\n';
}

std::string manualOptions() {
    std::string text;
    const OptionEntry* before = nullptr;
    for (const OptionEntry& option : optionTable()) {
        if (before == nullptr || before->group != option.group) {
            text += ".SS " + std::string(titleOf(option.group)) + "\n";
        }
        before = &option;
        std::vector<std::string> forms;
        for (const std::string& form : formsOf(option)) {
            forms.push_back("**" + form + "**");
        }
        std::string head = joined(forms, ", ");
        if (!option.valueName.empty()) {
            const std::string value = "*" + std::string(option.valueName) + "*";
            head += option.takesArgument() ? " " + value : "[=" + value + "]";
        }
        text += ".TP\n" + roff(head) + "\n";
        text += roffLines(
            roff(replaced(std::string(option.manual), "{default}", option.defaultText())));
    }
    return text;
}

// ---- shells

std::string bashOptions() {
    std::vector<std::string> all;
    for (const OptionEntry& option : optionTable()) {
        for (std::string& form : formsOf(option)) {
            all.push_back(std::move(form));
        }
    }
    return joined(all, " ");
}

std::string bashPattern(const std::function<bool(const OptionEntry&)>& isWanted) {
    std::vector<std::string> all;
    for (const OptionEntry& option : optionTable()) {
        if (option.takesArgument() && isWanted(option)) {
            for (std::string& form : formsOf(option)) {
                all.push_back(std::move(form));
            }
        }
    }
    return joined(all, " | ");
}

std::string bashPattern(const std::set<Completion>& kinds) {
    return bashPattern(
        [&kinds](const OptionEntry& option) { return kinds.contains(option.completion); });
}

/// Inside single quotes and the brackets of a description.
std::string zshText(std::string_view text) {
    return replaced(replaced(replaced(std::string(text), "]", "\\]"), ":", "\\:"), "'", "'\\''");
}

std::string zshAction(const OptionEntry& option) {
    switch (option.completion) {
        case Completion::kFile:
        case Completion::kFileOrMicrophone:
            return "_files";
        case Completion::kPngFile:
            return "_files -g \"*.png\"";
        case Completion::kFolder:
            return "_files -/";
        case Completion::kFormat:
            return "(" + formatNames() + ")";
        case Completion::kNothing:
            break;
    }
    return {};
}

/// Those that cannot stand beside the option: its own forms, and whatever it or they exclude.
std::string zshExcluded(const OptionEntry& option) {
    if (std::holds_alternative<Information>(option.target)) {
        return option.name == "list-formats" ? "" : "(- *)";
    }
    if (option.isRepeatable()) {
        return "*";
    }
    std::vector<std::string> all;
    for (const OptionEntry& other : optionTable()) {
        if (other.name == option.name || other.name == option.excludes ||
            other.excludes == option.name) {
            for (std::string& form : formsOf(other)) {
                all.push_back(std::move(form));
            }
        }
    }
    return all.size() > 1 ? "(" + joined(all, " ") + ")" : "";
}

std::string zshOptions() {
    std::string text;
    for (const OptionEntry& option : optionTable()) {
        const std::string excluded = zshExcluded(option);
        const std::string what = "[" + zshText(option.brief) + "]";
        std::string value;
        if (!option.valueName.empty()) {
            value = (option.takesArgument() ? ":" : "::") + zshText(option.valueName) + ":" +
                    zshAction(option);
        }
        const std::string name = option.takesArgument() || option.valueName.empty()
                                     ? option.longForm()
                                     : option.longForm() + "=-";
        const std::string names = option.letter == 0
                                      ? "'" + excluded + name
                                      : (excluded.empty() ? "" : "'" + excluded + "'") + "{" +
                                            option.shortForm() + "," + name + "}'";
        text += std::string(text.empty() ? "" : "    ") + names + what + value + "' \\\n";
    }
    return text;
}

}  // namespace

std::string filledTemplate(std::string_view text) {
    static const std::map<std::string_view, std::function<std::string()>> kParts{
        {"@MANUAL_OPTIONS@\n", &manualOptions},
        {"@ZSH_OPTIONS@\n", &zshOptions},
        {"@BASH_OPTIONS@", &bashOptions},
        {"@BASH_WITH_ARGUMENT@",
         [] { return bashPattern([](const OptionEntry&) { return true; }); }},
        {"@BASH_FILE@",
         [] {
             return bashPattern({Completion::kFile, Completion::kPngFile});
         }},
        {"@BASH_FOLDER@", [] { return bashPattern({Completion::kFolder}); }},
        {"@BASH_FORMAT@", [] { return bashPattern({Completion::kFormat}); }},
        {"@BASH_MICROPHONE@", [] { return bashPattern({Completion::kFileOrMicrophone}); }},
        {"@BASH_UNKNOWN@", [] { return bashPattern({Completion::kNothing}); }},
        {"@FORMATS@", &formatNames}};
    std::string result(text);
    for (const auto& [name, part] : kParts) {
        result = replaced(std::move(result), name, part());
    }
    return result;
}

std::string markdownOptions() {
    std::string text = "| option | what | default | range |\n|---|---|---|---|\n";
    for (const OptionEntry& option : optionTable()) {
        std::string forms = "`" + joined(formsOf(option), "`, `");
        if (!option.valueName.empty()) {
            forms += (option.takesArgument() ? " " : "[=") + std::string(option.valueName) +
                     (option.takesArgument() ? "" : "]");
        }
        text += "| " + forms + "` | " + std::string(option.brief) + " | " + option.defaultText() +
                " | " +
                (option.isNumber() ? numberText(option.lowest) + " to " + numberText(option.highest)
                                   : "") +
                " |\n";
    }
    return text;
}

}  // namespace tqrecorder
