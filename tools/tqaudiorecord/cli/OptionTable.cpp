#include "cli/OptionTable.h"

#include <array>

namespace tqrecorder {
namespace {

constexpr double kLongestSeconds = 1e7;
constexpr double kLongestReplaySeconds = 3600;
constexpr double kQuietestDecibels = -96;

using enum OptionGroup;

constexpr std::array kTable{
    OptionEntry{
        .group = kOutput,
        .letter = 'o',
        .name = "output",
        .valueName = "FILE",
        .target = &Options::output,
        .brief = "The mix; - is standard output, the format follows the extension",
        .manual = "The mix: 44100 Hz, 16 bits, stereo. The extension chooses the format. Without "
                  "this option and **--tracks** it goes to PROGRAM-DATE-TIME.flac in the music "
                  "folder of the user (see **xdg-user-dir**(1)). **-** is standard output, as WAV "
                  "of unknown length "
                  "or with **--format raw** as bare samples; what *COMMAND* prints then goes to "
                  "standard error. A reader that goes away ends the recording.",
        .completion = Completion::kFile,
    },
    OptionEntry{
        .group = kOutput,
        .name = "overwrite",
        .target = &Options::overwrite,
        .brief = "Replace files that are there (else they are refused)",
        .manual = "Replace files that are there; without it a file that is there, and a folder "
                  "that holds tracks, is refused before *COMMAND* is started. A file is replaced "
                  "when there is sound for it, not before.",
    },
    OptionEntry{
        .group = kOutput,
        .name = "format",
        .valueName = "NAME",
        .target = &Options::format,
        .brief = "Overrides the extension (see --list-formats)",
        .manual = "Overrides the extension.",
        .takesEmptyText = true,
        .completion = Completion::kFormat,
    },
    OptionEntry{
        .group = kOutput,
        .name = "list-formats",
        .target = Information::kFormats,
        .brief = "List the formats and end",
        .manual = "List the formats and end.",
    },
    OptionEntry{
        .group = kOutput,
        .name = "tracks",
        .valueName = "DIR",
        .target = &Options::tracksFolder,
        .brief = "One file per track, in the track's own format",
        .manual =
            "One file per track, in the track's own format, after ducking and "
            "compression; named by track and host unit. A file begins where the track does; how "
            "long that is after the mix stands in its Broadcast-Wave time reference and in "
            "the file of **--events**. There is silence where the unit did not play later. "
            "Where a track goes on in another format, another file begins.",
        .completion = Completion::kFolder,
    },
    OptionEntry{
        .group = kOutput,
        .name = "tracks-format",
        .valueName = "NAME",
        .target = &Options::tracksFormat,
        .brief = "What tracks are written as (see --list-formats); WAV unless told",
        .manual =
            "What tracks are written as: one of **--list-formats** without those of Matroska. WAV "
            "unless told, which like the other kinds of bare samples has them as they are. FLAC "
            "has 24 bits of what has more.",
        .needs = "tracks",
        .completion = Completion::kFormat,
    },
    OptionEntry{
        .group = kOutput,
        .name = "from-start",
        .target = &Options::tracksFromStart,
        .brief = "Files of tracks begin with the recording, with silence",
        .manual = "Files of tracks begin with the recording, with silence until the track does, "
                  "for editors that know no time reference.",
        .needs = "tracks",
    },
    OptionEntry{
        .group = kOutput,
        .name = "events",
        .valueName = "FILE",
        .target = &Options::eventsFile,
        .brief = "The library's events as JSON lines",
        .manual = "The library's events, one JSON object a line: host_time_us, category, code, "
                  "message, process, pid, kind (success, routine or failure), and text, which says "
                  "what happened.",
        .completion = Completion::kFile,
    },
    OptionEntry{
        .group = kOutput,
        .name = "picture",
        .valueName = "FILE",
        .target = &Options::pictureFile,
        .brief = "Waveform and spectrogram of mix and tracks, as PNG",
        .manual = "Waveform and spectrogram of every mix and track on one time axis, with the "
                  "events marked, as PNG; drawn at the end from what was kept in memory.",
        .completion = Completion::kPngFile,
    },
    OptionEntry{
        .group = kOutput,
        .name = "report",
        .valueName = "FILE",
        .target = &Options::reportFile,
        .brief = "A page to look at and listen to all of it, as HTML",
        .manual = "One HTML page to be opened from the disk: waveform and spectrogram of every mix "
                  "and track, their loudness (EBU R128) and true peak, the events by name, losses, "
                  "gaps and what was not recorded, and playback of the files that are written "
                  "beside it, with mute and solo for each track.",
        .completion = Completion::kFile,
    },
    OptionEntry{
        .group = kOutput,
        .name = "max-file-time",
        .valueName = "SECONDS",
        .target = &Options::maximumFileSeconds,
        .brief = "Go on in a new numbered file after that",
        .manual = "Go on in a new file after that, without a frame lost or twice: out-001.wav, "
                  "out-002.wav ...",
        .lowest = 0.1,
        .highest = kLongestSeconds,
    },
    OptionEntry{
        .group = kOutput,
        .name = "replay",
        .valueName = "SECONDS",
        .target = &Options::replaySeconds,
        .brief = "Keep only the last SECONDS, in memory; ctl save and SIGUSR1 save them",
        .manual = "Keep only the last *SECONDS* of the mix, and with **--tracks** of each track, "
                  "in memory. **ctl save** and SIGUSR1 save them to the next free number: "
                  "out-001.wav and so on. The end of the recording saves nothing.",
        .lowest = 0.1,
        .highest = kLongestReplaySeconds,
    },
    OptionEntry{
        .group = kOutput,
        .name = "no-overlap",
        .target = ClearsField{&Options::replayOverlaps},
        .brief = "A save of the replay has only what was not saved before",
        .manual = "A save of the replay has only what was not saved before.",
        .needs = "replay",
    },
    OptionEntry{
        .group = kOutput,
        .name = "live",
        .target = &Options::live,
        .brief = "Mix and tracks as sources of the sound server meanwhile",
        .manual = "The mix and every track appear in PulseAudio or PipeWire as sources of their "
                  "own while they are recorded, named as in *game: music*. With this alone no file "
                  "is written.",
    },
    OptionEntry{
        .group = kOutput,
        .name = "only",
        .valueName = "NAME",
        .target = &Options::only,
        .brief = "Record only programs and tracks of that name; again for more",
        .manual = "Record only programs and tracks of that name, a pattern as shells have them for "
                  "files (**'*music*'**), whatever the case of its letters. It stands for a track "
                  "by its whole name (**'pulse-*'**), by what the program calls it, or by the "
                  "program's name. May be given several times. What is left out plays, ducked "
                  "like the rest, and takes no track; the summary names it.",
    },
    OptionEntry{
        .group = kOutput,
        .name = "not",
        .valueName = "NAME",
        .target = &Options::without,
        .brief = "Leave programs and tracks of that name out; again for more",
        .manual = "Leave programs and tracks of that name out, patterns as with **--only**, over "
                  "which it wins. May be given several times.",
    },
    OptionEntry{
        .group = kEnding,
        .letter = 'd',
        .name = "duration",
        .valueName = "SECONDS",
        .target = &Options::durationSeconds,
        .brief = "Record that long",
        .manual = "Record that long.",
        .lowest = 0.001,
        .highest = kLongestSeconds,
    },
    OptionEntry{
        .group = kEnding,
        .name = "host-goes-on",
        .target = ClearsField{&Options::endsHost},
        .brief = "Leave COMMAND running when the recording ends (else SIGTERM, SIGKILL 5 s later)",
        .manual = "Leave *COMMAND* running when the recording ends before it does. It runs in a "
                  "process group of its own then, which keeps Ctrl-C from it: it may write to the "
                  "terminal and change it, and reading from it fails. Without this option the end "
                  "of the recording (Ctrl-C, **ctl stop**, **--duration**) sends it SIGTERM, and "
                  "SIGKILL when it is still there five seconds later, which a line says.",
    },
    OptionEntry{
        .group = kEnding,
        .name = "end-with",
        .valueName = "WHO",
        .target = &Options::endsWith,
        .brief = "The recording ends with: command, or tree (the last that COMMAND started)",
        .manual = "**tree**, the default: the recording ends when *COMMAND* and all that it has "
                  "started and that plays have ended, also where *COMMAND* starts the game in the "
                  "background and ends at once. What has not played yet is waited for during the "
                  "first 20 seconds of its life, and no longer than 20 seconds in all. "
                  "**command**: it ends with *COMMAND*.",
    },
    OptionEntry{
        .group = kView,
        .name = "list",
        .target = &Options::isListWanted,
        .brief = "List what the recordings that are running have, and end",
        .manual = "List what the user's recordings that are running have, and end: the tracks of "
                  "each by number, with name, program, format, level and length.",
    },
    OptionEntry{
        .group = kView,
        .letter = 'q',
        .name = "quiet",
        .target = &Options::quiet,
        .brief = "Say nothing but problems",
        .manual = "Say nothing but problems.",
    },
    OptionEntry{
        .group = kView,
        .letter = 'v',
        .name = "verbose",
        .target = &Options::verbose,
        .brief = "The library's log as well",
        .manual = "Show the library's log as well.",
        .excludes = "quiet",
    },
    OptionEntry{
        .group = kView,
        .letter = 'h',
        .name = "help",
        .target = Information::kHelp,
        .brief = "Show this text and end",
        .manual = "Show the options and end.",
    },
    OptionEntry{
        .group = kView,
        .name = "version",
        .target = Information::kVersion,
        .brief = "Show the version and end",
        .manual = "Show the version and end.",
    },
    OptionEntry{
        .group = kControl,
        .name = "mic",
        .valueName = "DEVICE",
        .target = SwitchWithText{&Options::microphone, &Options::microphoneName},
        .brief = "Record the microphone as a track of its own (see tqplatform-devices)",
        .manual =
            "Record the microphone as a track of its own, number 8, on the time of the mix: the "
            "default one of the sound server, or *DEVICE* as **tqplatform-devices** lists it. "
            "It is not in the mix. Without **--tracks** and **--mic-in-mix** its file lies beside "
            "the mix: out-microphone.wav.",
    },
    OptionEntry{
        .group = kControl,
        .name = "mic-in-mix",
        .target = &Options::microphoneInMix,
        .brief = "The microphone is in the mix as well",
        .manual = "The microphone is in the mix as well.",
        .needs = "mic",
    },
    OptionEntry{
        .group = kControl,
        .name = "duck",
        .valueName = "DB",
        .target = SwitchWithNumber{&Options::duck, &Options::duckDecibels},
        .brief = "Turn COMMAND's own output down by DB",
        .manual = "Turn *COMMAND*'s own output down, by {default} dB unless told. With "
                  "**--compress** as well the lower of the two gains counts.",
        .lowest = kQuietestDecibels,
        .highest = 0,
    },
    OptionEntry{
        .group = kControl,
        .name = "duck-on",
        .valueName = "SOURCE",
        .target = &Options::duckOn,
        .brief = "Duck only while SOURCE is loud: a WAV file, or microphone",
        .manual = "Duck only while *SOURCE* is loud: a WAV file, or **microphone**.",
        .needs = "duck",
        .completion = Completion::kFileOrMicrophone,
    },
    OptionEntry{
        .group = kControl,
        .name = "compress",
        .target = &Options::compress,
        .brief = "Compress COMMAND's own output",
        .manual = "Compress *COMMAND*'s own output.",
    },
    OptionEntry{
        .group = kControl,
        .name = "compress-threshold",
        .valueName = "DB",
        .target = &Options::compressThresholdDecibels,
        .brief = "Level from which on, in dBFS",
        .manual = "Level from which on, in dBFS; {default} unless told.",
        .lowest = kQuietestDecibels,
        .highest = 0,
        .needs = "compress",
    },
    OptionEntry{
        .group = kControl,
        .name = "attack",
        .valueName = "SECONDS",
        .target = &Options::attackSeconds,
        .brief = "How fast ducking and compression set in",
        .manual = "How fast ducking and compression set in; {default} unless told.",
        .lowest = 0,
        .highest = 10,
    },
    OptionEntry{
        .group = kControl,
        .name = "release",
        .valueName = "SECONDS",
        .target = &Options::releaseSeconds,
        .brief = "How fast they let go",
        .manual = "How fast they let go; {default} unless told.",
        .lowest = 0,
        .highest = 60,
    },
    OptionEntry{
        .group = kControl,
        .name = "no-arm",
        .target = ClearsField{&Options::armGuard},
        .brief = "Do not arm COMMAND's crash guard",
        .manual = "Do not arm the crash guard.",
    },
    OptionEntry{
        .group = kControl,
        .name = "ring",
        .valueName = "SECONDS",
        .target = &Options::ringSeconds,
        .brief = "Sound that the shared memory between COMMAND and the recorder holds",
        .manual = "Sound that the shared memory holds; {default} unless told.",
        .lowest = 0.1,
        .highest = 600,
    },
};

}  // namespace

std::span<const OptionEntry> optionTable() {
    return kTable;
}

}  // namespace tqrecorder
