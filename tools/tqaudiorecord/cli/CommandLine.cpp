#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <utility>

#include "output/FileFormats.h"

namespace tqrecorder {
namespace {

constexpr int kUsageError = 1;
constexpr double kLongestSeconds = 1e7;

constexpr const char* kUsage =
    "Usage: tqaudiorecord [OPTIONS] [--] COMMAND [ARG...]\n"
    "       tqaudiorecord guard status|arm|disarm COMMAND\n\n"
    "Runs COMMAND and records the sound it plays through the platform's audio units, until it\n"
    "ends, until --duration, or until SIGINT or SIGTERM. SIGUSR1 saves a --replay.\n";

constexpr const char* kFooter =
    "\nExit code: 0, 1 for wrong usage, 2 when the recording failed, else COMMAND's own.\n"
    "The manual page tqaudiorecord(1) tells more.\n";

/// A number within bounds; what is no number at all is out of them, too.
CLI::Validator between(double lowest, double highest) {
    const auto check = [lowest, highest](const std::string& text) -> std::string {
        double value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= lowest && value <= highest) {
            return {};
        }
        std::ostringstream problem;
        problem.precision(10);
        problem << "a number from " << lowest << " to " << highest << " is wanted, not " << text;
        return problem.str();
    };
    return {check, ""};
}

/// Options as in a manual page: their names and what they take.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_option_name(const CLI::Option* option, bool positional) const override {
        const std::string name = CLI::Formatter::make_option_name(option, positional);
        return name == "--duck{-12}" ? "--duck[=DB]" : name;
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_items_expected_max() == 0 ? "" : " " + option->get_type_name();
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        const std::string standard = option->get_default_str();
        return option->get_description() + (standard.empty() ? "" : " [" + standard + "]");
    }
};

/// A script's unset variable must not cost a recording.
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
        addOutputs();
        addEnding();
        addView();
        addControl();
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
        if (help_) {
            return print(helpText());
        }
        if (version_) {
            return print("tqaudiorecord " TQ_VERSION "\n");
        }
        if (listFormats_) {
            return print(listOfFormats());
        }
        if (!marked && !rest.empty() && rest.front() == "guard") {
            return guard(rest);
        }
        if (rest.empty() || rest.front().empty()) {
            return wrong("no COMMAND to record");
        }
        options_.command = std::move(rest);
        if (std::string problem = contradiction(); !problem.empty()) {
            return wrong(problem);
        }
        CommandLine result;
        result.proceed = true;
        result.options = options_;
        return result;
    }

  private:
    void addOutputs() {
        const char* group = "Output";
        app_.add_option("-o,--output", options_.output,
                        "The mix; - is standard output, the format follows the extension")
            ->type_name("FILE")
            ->check(notEmpty())
            ->group(group);
        app_.add_option("--format", options_.format, "Overrides the extension (see --list-formats)")
            ->type_name("NAME")
            ->group(group);
        app_.add_flag("--list-formats", listFormats_, "List the formats and end")->group(group);
        app_.add_option("--tracks", options_.tracksFolder,
                        "One WAV file per track, in the track's own format")
            ->type_name("DIR")
            ->check(notEmpty())
            ->group(group);
        app_.add_option("--events", options_.eventsFile, "The library's events as JSON lines")
            ->type_name("FILE")
            ->check(notEmpty())
            ->group(group);
        app_.add_option("--picture", options_.pictureFile,
                        "Waveform and spectrogram of mix and tracks, as PNG")
            ->type_name("FILE")
            ->check(notEmpty())
            ->group(group);
        seconds("--max-file-time", options_.maximumFileSeconds, 0.1, kLongestSeconds,
                "Go on in a new numbered file after that")
            ->group(group);
        seconds("--replay", options_.replaySeconds, 0.1, 3600,
                "Keep only the last SECONDS, in memory; SIGUSR1 saves them")
            ->group(group);
    }

    void addEnding() {
        const char* group = "Ending";
        seconds("-d,--duration", options_.durationSeconds, 0.001, kLongestSeconds,
                "Record that long")
            ->group(group);
        app_.add_flag("--host-goes-on", hostGoesOn_,
                      "Leave COMMAND running when the recording ends (else it gets SIGTERM)")
            ->group(group);
    }

    void addView() {
        const char* group = "Seeing";
        CLI::Option* quiet =
            app_.add_flag("-q,--quiet", options_.quiet, "Say nothing but problems");
        quiet->group(group);
        app_.add_flag("-v,--verbose", options_.verbose, "The library's log as well")
            ->excludes(quiet)
            ->group(group);
        app_.add_flag("-h,--help", help_, "Show this text and end")->group(group);
        app_.add_flag("--version", version_, "Show the version and end")->group(group);
    }

    void addControl() {
        const char* group = "Control";
        // As text: a flag of a number is a count to the parser.
        duck_ = app_.add_flag("--duck{-12}", duckText_,
                              "Turn COMMAND's own output down by DB, -12 unless told");
        duck_->check(between(-96, 0))->group(group);
        app_.add_option("--duck-on", options_.duckOn,
                        "Duck only while SOURCE is loud: a WAV file, or microphone")
            ->type_name("SOURCE")
            ->check(notEmpty())
            ->needs(duck_)
            ->group(group);
        CLI::Option* compress =
            app_.add_flag("--compress", options_.compress, "Compress COMMAND's own output");
        compress->group(group);
        number("--compress-threshold", options_.compressThresholdDecibels, -96, 0, "DB",
               "Level from which on, in dBFS")
            ->needs(compress)
            ->group(group);
        attack_ = number("--attack", options_.attackSeconds, 0, 10, "SECONDS",
                         "How fast ducking and compression set in");
        attack_->group(group);
        release_ =
            number("--release", options_.releaseSeconds, 0, 60, "SECONDS", "How fast they let go");
        release_->group(group);
        app_.add_flag("--no-arm", noArm_, "Do not arm COMMAND's crash guard")->group(group);
        number("--ring", options_.ringSeconds, 0.1, 600, "SECONDS",
               "Sound that the shared memory between COMMAND and the recorder holds")
            ->group(group);
    }

    CLI::Option* number(const char* names, double& value, double lowest, double highest,
                        const char* unit, const char* text) {
        return app_.add_option(names, value, text)
            ->capture_default_str()
            ->check(between(lowest, highest))
            ->type_name(unit);
    }

    CLI::Option* seconds(const char* names, std::optional<double>& value, double lowest,
                         double highest, const char* text) {
        return app_
            .add_option_function<double>(
                names, [&value](const double& read) { value = read; }, text)
            ->check(between(lowest, highest))
            ->type_name("SECONDS");
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

    std::string contradiction() {
        options_.duck = duck_->count() > 0;
        if (options_.duck) {
            options_.duckDecibels = std::strtod(duckText_.c_str(), nullptr);
        }
        options_.armGuard = !noArm_;
        options_.hostEnd = hostGoesOn_ ? Options::HostEnd::kGoesOn : Options::HostEnd::kEnds;
        const Options& o = options_;
        const bool toPipe = o.output == "-";
        if (!o.format.empty() && formatNamed(o.format) == nullptr) {
            return "--format: there is no format " + o.format + " (see --list-formats)";
        }
        if (!o.format.empty() && o.output.empty()) {
            return "--format is for --output, which is missing";
        }
        if (toPipe && !o.format.empty() && o.format != "wav" && o.format != "raw") {
            return "--output -: standard output takes wav or raw, not " + o.format;
        }
        if (!o.output.empty() && !toPipe && o.format.empty() && formatOfPath(o.output) == nullptr) {
            return "--output " + o.output + ": no format has that extension (see --list-formats)";
        }
        if (o.replaySeconds && (o.output.empty() || toPipe || !o.tracksFolder.empty() ||
                                !o.pictureFile.empty() || o.maximumFileSeconds)) {
            return "--replay wants --output FILE and goes with neither --tracks, --picture nor "
                   "--max-file-time";
        }
        if (o.maximumFileSeconds && (o.output.empty() || toPipe) && o.tracksFolder.empty()) {
            return "--max-file-time wants --output FILE or --tracks";
        }
        if ((attack_->count() > 0 || release_->count() > 0) && !o.duck && !o.compress) {
            return "--attack and --release want --duck or --compress";
        }
        return samePath();
    }

    std::string samePath() const {
        std::map<std::filesystem::path, const char*> seen;
        for (const auto& [path, name] :
             {std::pair(&options_.output, "--output"), std::pair(&options_.eventsFile, "--events"),
              std::pair(&options_.pictureFile, "--picture"),
              std::pair(&options_.tracksFolder, "--tracks")}) {
            if (path->empty() || *path == "-") {
                continue;
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
        text.erase(0, text.find("\nOutput"));
        for (std::size_t place = 0; (place = text.find("\n\n\n", place)) != std::string::npos;) {
            text.erase(place, 1);
        }
        return kUsage + text + kFooter;
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
    Options options_;
    std::string duckText_;
    CLI::Option* duck_ = nullptr;
    CLI::Option* attack_ = nullptr;
    CLI::Option* release_ = nullptr;
    bool hostGoesOn_ = false;
    bool listFormats_ = false;
    bool help_ = false;
    bool version_ = false;
    bool noArm_ = false;
};

}  // namespace

CommandLine parseCommandLine(const std::vector<std::string>& arguments) {
    return Parser().parse(arguments);
}

}  // namespace tqrecorder
