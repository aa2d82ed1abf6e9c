// What follows from the row of an option.

#include <sstream>

#include "cli/OptionTable.h"

namespace tqrecorder {

std::string_view titleOf(OptionGroup group) {
    switch (group) {
        case OptionGroup::kOutput:
            return "Output";
        case OptionGroup::kEnding:
            return "Ending";
        case OptionGroup::kView:
            return "Seeing";
        case OptionGroup::kControl:
            return "Control";
    }
    return {};
}

std::string numberText(double number) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text.precision(10);
    text << number;
    return text.str();
}

bool OptionEntry::takesArgument() const {
    return !valueName.empty() && !std::holds_alternative<SwitchWithNumber>(target) &&
           !std::holds_alternative<SwitchWithText>(target);
}

bool OptionEntry::isRepeatable() const {
    return std::holds_alternative<std::vector<std::string> Options::*>(target);
}

bool OptionEntry::isNumber() const {
    return std::holds_alternative<SwitchWithNumber>(target) ||
           std::holds_alternative<double Options::*>(target) ||
           std::holds_alternative<std::optional<double> Options::*>(target);
}

std::string OptionEntry::defaultText() const {
    const Options fresh;
    if (const auto* both = std::get_if<SwitchWithNumber>(&target)) {
        return numberText(fresh.*(both->number));
    }
    if (const auto* field = std::get_if<double Options::*>(&target)) {
        return numberText(fresh.**field);
    }
    return {};
}

std::string OptionEntry::shortForm() const {
    return letter == 0 ? std::string() : std::string("-") + letter;
}

std::string OptionEntry::longForm() const {
    return "--" + std::string(name);
}

}  // namespace tqrecorder
