#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <variant>

#include "cli/Contradictions.h"
#include "cli/OptionTable.h"
#include "cli/SubCommands.h"
#include "output/files/FileFormats.h"

namespace tqrecorder {
namespace {

constexpr const char* kUsage =
    "Usage: tqaudiorecord [OPTIONS] [--] COMMAND [ARG...]\n"
    "       tqaudiorecord --list\n"
    "       tqaudiorecord guard status|arm|disarm COMMAND\n"
    "       tqaudiorecord ctl [--pid N] save [SECONDS]|pause|resume|split|stop|\n"
    "                     status [--json]|duck [DB]|unduck\n\n"
    "Runs COMMAND and records the sound that it and what it starts play, until the last of them "
    "ends,\n"
    "until --duration, or until SIGINT or SIGTERM. SIGUSR1 saves a --replay, SIGUSR2 pauses and "
    "goes on; ctl does the same,\n"
    "and more, with an answer.\n";

constexpr const char* kFooter =
    "\nExit code: 0, 1 for wrong usage, 2 when the recording failed, else COMMAND's own.\n"
    "The manual page tqaudiorecord(1) tells more.\n";

/// A number within bounds. A text that is no number is refused like one out of them.
CLI::Validator between(double lowest, double highest) {
    const auto check = [lowest, highest](const std::string& text) -> std::string {
        double value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest) {
            return {};
        }
        return "a number from " + numberText(lowest) + " to " + numberText(highest) +
               " is wanted, not " + text;
    };
    return {check, ""};
}

/// Options as in a manual page: their names and what they take.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_option_name(const CLI::Option* option, bool positional) const override {
        const std::string name = CLI::Formatter::make_option_name(option, positional);
        const std::size_t value = name.find('{');
        return value == std::string::npos
                   ? name
                   : name.substr(0, value) + "[=" + option->get_type_name() + "]";
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_items_expected_max() == 0 ? "" : " " + option->get_type_name();
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        const std::string standard = option->get_default_str();
        return option->get_description() + (standard.empty() ? "" : " [" + standard + "]");
    }
};

/// An empty path usually comes from an unset variable of a script; found here, it costs no
/// recording.
CLI::Validator notEmpty() {
    return CLI::Validator(
        [](std::string& text) { return text.empty() ? std::string("is empty") : std::string(); },
        "");
}

/// The parser and where it puts what it finds.
class Parser {
  public:
    Parser() : app_("", "tqaudiorecord") {
        app_.prefix_command();
        app_.set_help_flag("");
        app_.formatter(std::make_shared<HelpFormatter>());
        for (const OptionEntry& entry : optionTable()) {
            add(entry);
        }
        for (const OptionEntry& entry : optionTable()) {
            connect(entry);
        }
    }

    CommandLine parse(std::vector<std::string> arguments) {
        std::reverse(arguments.begin(), arguments.end());
        try {
            app_.parse(std::move(arguments));
        } catch (const CLI::ParseError& problem) {
            return wrongUsage(problem.what());
        }
        std::vector<std::string> rest = app_.remaining();
        const bool marked = !rest.empty() && rest.front() == "--";
        if (marked) {
            rest.erase(rest.begin());
        } else if (!rest.empty() && rest.front().size() > 1 && rest.front().front() == '-') {
            return wrongUsage("there is no option " + rest.front());
        }
        if (!wanted_.empty()) {
            return print(text(*wanted_.begin()));
        }
        if (!marked && !rest.empty() && rest.front() == "guard") {
            return guardCommand(rest);
        }
        if (!marked && !rest.empty() && rest.front() == "ctl") {
            return controlCommand(std::move(rest));
        }
        if (result_.isListWanted) {
            return listCommand(rest);
        }
        if (rest.empty() || rest.front().empty()) {
            return wrongUsage("no COMMAND to record");
        }
        takeSwitches();
        result_.command = std::move(rest);
        const bool areTimesGiven = isGiven("attack") || isGiven("release");
        if (std::string problem = contradictionIn(result_, areTimesGiven); !problem.empty()) {
            return wrongUsage(problem);
        }
        CommandLine result;
        result.proceed = true;
        result.options = result_;
        return result;
    }

  private:
    void add(const OptionEntry& entry) {
        CLI::Option* option = std::visit(
            [this, &entry](const auto& target) { return added(entry, target); }, entry.target);
        option->group(std::string(titleOf(entry.group)));
        if (!entry.valueName.empty()) {
            option->type_name(std::string(entry.valueName));
        }
        if (entry.isNumber()) {
            option->default_str(entry.defaultText())->check(between(entry.lowest, entry.highest));
        }
        options_.emplace(entry.name, option);
    }

    static std::string names(const OptionEntry& entry) {
        return (entry.letter == 0 ? "" : entry.shortForm() + ",") + entry.longForm();
    }
    CLI::Option* added(const OptionEntry& entry, Information information) {
        return app_.add_flag_callback(
            names(entry), [this, information] { wanted_.insert(information); },
            std::string(entry.brief));
    }
    CLI::Option* added(const OptionEntry& entry, bool Options::*field) {
        return app_.add_flag(names(entry), result_.*field, std::string(entry.brief));
    }
    CLI::Option* added(const OptionEntry& entry, ClearsField target) {
        return app_.add_flag_callback(
            names(entry), [this, target] { result_.*(target.field) = false; },
            std::string(entry.brief));
    }
    CLI::Option* added(const OptionEntry& entry, const SwitchWithNumber&) {
        // Bound to a text: the parser would count a flag that is bound to a number.
        return app_.add_flag(names(entry) + "{" + entry.defaultText() + "}", flagTexts_[entry.name],
                             std::string(entry.brief));
    }
    CLI::Option* added(const OptionEntry& entry, const SwitchWithText&) {
        return app_.add_flag(names(entry) + "{}", flagTexts_[entry.name], std::string(entry.brief));
    }
    CLI::Option* added(const OptionEntry& entry, std::string Options::*field) {
        CLI::Option* option =
            app_.add_option(names(entry), result_.*field, std::string(entry.brief));
        return entry.takesEmptyText ? option : option->check(notEmpty());
    }
    CLI::Option* added(const OptionEntry& entry, std::vector<std::string> Options::*field) {
        // One value each time: the next word may be COMMAND.
        return app_.add_option(names(entry), result_.*field, std::string(entry.brief))
            ->allow_extra_args(false)
            ->check(notEmpty());
    }
    CLI::Option* added(const OptionEntry& entry, double Options::*field) {
        return app_.add_option(names(entry), result_.*field, std::string(entry.brief));
    }
    CLI::Option* added(const OptionEntry& entry, std::optional<double> Options::*field) {
        return app_.add_option_function<double>(
            names(entry), [this, field](const double& value) { result_.*field = value; },
            std::string(entry.brief));
    }

    /// What the option needs and excludes; both have to be registered already.
    void connect(const OptionEntry& entry) {
        if (!entry.needs.empty()) {
            options_.at(entry.name)->needs(options_.at(entry.needs));
        }
        if (!entry.excludes.empty()) {
            options_.at(entry.name)->excludes(options_.at(entry.excludes));
        }
    }
    void takeSwitches() {
        for (const OptionEntry& entry : optionTable()) {
            const auto* target = std::get_if<SwitchWithNumber>(&entry.target);
            if (target != nullptr && isGiven(entry.name)) {
                result_.*(target->isOn) = true;
                result_.*(target->number) = std::strtod(flagTexts_.at(entry.name).c_str(), nullptr);
            }
            const auto* text = std::get_if<SwitchWithText>(&entry.target);
            if (text != nullptr && isGiven(entry.name)) {
                result_.*(text->isOn) = true;
                result_.*(text->text) = flagTexts_.at(entry.name);
            }
        }
    }
    [[nodiscard]] bool isGiven(std::string_view name) const {
        return options_.at(name)->count() > 0;
    }

    std::string helpText() {
        std::string text = app_.help();
        // What the parser says in front of the first group is our own usage.
        text.erase(0, text.find("\n" + std::string(titleOf(OptionGroup::kOutput))));
        for (std::size_t place = 0; (place = text.find("\n\n\n", place)) != std::string::npos;) {
            text.erase(place, 1);
        }
        return kUsage + text + kFooter;
    }

    std::string text(Information information) {
        switch (information) {
            case Information::kHelp:
                return helpText();
            case Information::kVersion:
                return "tqaudiorecord " TQ_VERSION "\n";
            case Information::kFormats:
                break;
        }
        return listOfFormats();
    }

    static CommandLine print(std::string text) {
        CommandLine result;
        result.output = std::move(text);
        return result;
    }

    CLI::App app_;
    Options result_;
    std::map<std::string_view, CLI::Option*> options_;
    std::map<std::string_view, std::string> flagTexts_;  ///< of switches with a number
    std::set<Information> wanted_;
};

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& arguments) {
    return Parser().parse(arguments);
}

}  // namespace tqrecorder
