#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <variant>

#include "cli/OptionTable.h"
#include "ipc/Choice.h"
#include "ipc/ControlText.h"
#include "output/files/FileFormats.h"

namespace tqrecorder {
namespace {

constexpr int kUsageError = 1;

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
            return wrong(problem.what());
        }
        std::vector<std::string> rest = app_.remaining();
        const bool marked = !rest.empty() && rest.front() == "--";
        if (marked) {
            rest.erase(rest.begin());
        } else if (!rest.empty() && rest.front().size() > 1 && rest.front().front() == '-') {
            return wrong("there is no option " + rest.front());
        }
        if (!wanted_.empty()) {
            return print(text(*wanted_.begin()));
        }
        if (!marked && !rest.empty() && rest.front() == "guard") {
            return guard(rest);
        }
        if (!marked && !rest.empty() && rest.front() == "ctl") {
            return control(rest);
        }
        if (result_.isListWanted) {
            return list(rest);
        }
        if (rest.empty() || rest.front().empty()) {
            return wrong("no COMMAND to record");
        }
        takeSwitches();
        result_.command = std::move(rest);
        if (std::string problem = contradiction(); !problem.empty()) {
            return wrong(problem);
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

    static CommandLine list(const std::vector<std::string>& words) {
        if (!words.empty()) {
            return wrong("--list takes no COMMAND: it asks the recorders that are running");
        }
        CommandLine result;
        result.proceed = true;
        result.options.action = Options::Action::kList;
        result.options.control.kind = ControlCommand::Kind::kList;
        return result;
    }

    CommandLine guard(const std::vector<std::string>& words) {
        static const std::map<std::string, Options::Action> kActions{
            {"status", Options::Action::kGuardStatus},
            {"arm", Options::Action::kGuardArm},
            {"disarm", Options::Action::kGuardDisarm}};
        const auto action = words.size() > 1 ? kActions.find(words[1]) : kActions.end();
        if (action == kActions.end()) {
            return wrong("guard wants status, arm or disarm (a program of that name: -- guard)");
        }
        if (words.size() != 3 || words[2].empty()) {
            return wrong("guard " + words[1] + " wants one COMMAND");
        }
        CommandLine result;
        result.proceed = true;
        result.options.action = action->second;
        result.options.command = {words[2]};
        return result;
    }

    CommandLine control(std::vector<std::string> words) {
        CommandLine result;
        result.proceed = true;
        result.options.action = Options::Action::kControl;
        if (words.size() > 2 && words[1] == "--pid") {
            int pid = 0;
            if (!CLI::detail::lexical_cast(words[2], pid) || pid < 1) {
                return wrong("ctl --pid wants the process number of a recorder, not " + words[2]);
            }
            result.options.controlPid = pid;
            words.erase(words.begin() + 1, words.begin() + 3);
        }
        std::string text = words.size() > 1 ? words[1] : "";
        const std::string argument = words.size() > 2 ? words[2] : "";
        const bool takesNumber = text == "save" || text == "duck";
        const bool isJson = text == "status" && argument == "--json";
        double number = 0;
        if (takesNumber && !argument.empty() && !CLI::detail::lexical_cast(argument, number)) {
            return wrong("ctl " + text + ": a number is wanted, not " + argument);
        }
        if (!argument.empty() && (takesNumber || isJson)) {
            text += isJson ? " json" : " " + numberText(number);
        }
        const auto command = commandFromText(text);
        using Kind = ControlCommand::Kind;
        if (!command || command->kind == Kind::kTogglePause || command->kind == Kind::kFiles ||
            command->kind == Kind::kList || words.size() > 3 ||
            (words.size() == 3 && !takesNumber && !isJson)) {
            return wrong(
                "ctl wants save [SECONDS], pause, resume, split, stop, status [--json], duck [DB] "
                "or unduck (a program of that name: -- ctl)");
        }
        result.options.control = *command;
        return result;
    }

    std::string contradiction() const {
        const Options& o = result_;
        const bool toPipe = o.output == "-";
        if (!o.format.empty() && formatNamed(o.format) == nullptr) {
            return "--format: there is no format " + o.format + " (see --list-formats)";
        }
        const FileFormat* const ofTracks = formatNamed(o.tracksFormat);
        if (ofTracks == nullptr) {
            return "--tracks-format: there is no format " + o.tracksFormat +
                   " (see --list-formats)";
        }
        if (ofTracks->isMatroska()) {
            return "--tracks-format " + o.tracksFormat +
                   ": one file holds all tracks; name it with --output";
        }
        // Without any place for sound the recorder chooses one for the mix.
        const bool hasMix = !o.output.empty() || o.tracksFolder.empty();
        if (!o.format.empty() && !hasMix) {
            return "--format is for --output, which is missing";
        }
        if (toPipe && !o.format.empty() && o.format != "wav" && o.format != "raw") {
            return "--output -: standard output takes wav or raw, not " + o.format;
        }
        if (!o.output.empty() && !toPipe && o.format.empty() && formatOfPath(o.output) == nullptr) {
            return "--output " + o.output + ": no format has that extension (see --list-formats)";
        }
        if (o.replaySeconds &&
            (toPipe || !o.pictureFile.empty() || !o.reportFile.empty() || o.maximumFileSeconds)) {
            return "--replay goes with neither --output -, --picture, --report nor "
                   "--max-file-time";
        }
        const FileFormat* const ofMix =
            o.format.empty() ? formatOfPath(o.output) : formatNamed(o.format);
        const bool holdsTracks = !toPipe && ofMix != nullptr && ofMix->isMatroska();
        if (o.microphone && !o.microphoneInMix && o.tracksFolder.empty() && !holdsTracks &&
            (toPipe || o.replaySeconds)) {
            return "--mic has no file there: --tracks or --mic-in-mix is wanted";
        }
        if (o.maximumFileSeconds && toPipe && o.tracksFolder.empty()) {
            return "--max-file-time is for files, and --output - is none";
        }
        if (o.endsWith != "command" && o.endsWith != "tree") {
            return "--end-with wants command or tree, not " + o.endsWith;
        }
        if ((isGiven("attack") || isGiven("release")) && !o.duck && !o.compress) {
            return "--attack and --release want --duck or --compress";
        }
        if (isTooLong({o.only, o.without})) {
            return "--only and --not take 1000 names each at most, of 50000 bytes in all";
        }
        return samePath();
    }

    static bool isTooLong(const Choice& choice) {
        std::size_t bytes = 0;
        for (const auto& patterns : {choice.only, choice.without}) {
            for (const std::string& pattern : patterns) {
                bytes += pattern.size();
            }
        }
        return choice.only.size() > kMostPatterns || choice.without.size() > kMostPatterns ||
               bytes > kMostPatternBytes;
    }

    std::string samePath() const {
        std::map<std::filesystem::path, const char*> seen;
        for (const auto& [path, name] :
             {std::pair(&result_.output, "--output"), std::pair(&result_.eventsFile, "--events"),
              std::pair(&result_.pictureFile, "--picture"),
              std::pair(&result_.reportFile, "--report"),
              std::pair(&result_.tracksFolder, "--tracks")}) {
            if (path->empty() || (*path == "-" && path == &result_.output)) {
                continue;
            }
            if (*path == "-") {
                return std::string(name) + ": only --output writes to standard output";
            }
            const auto [entry, isNew] =
                seen.emplace(std::filesystem::path(*path).lexically_normal(), name);
            if (!isNew) {
                return std::string(entry->second) + " and " + name + " name the same file";
            }
        }
        return {};
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

    static CommandLine wrong(std::string problem) {
        std::replace(problem.begin(), problem.end(), '\n', ' ');
        CommandLine result;
        result.exitCode = kUsageError;
        result.error = "tqaudiorecord: " + problem + "; try tqaudiorecord --help";
        return result;
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
