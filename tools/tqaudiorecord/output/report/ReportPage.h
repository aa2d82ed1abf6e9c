#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "picture/Envelope.h"
#include "picture/Picture.h"

namespace tqrecorder {

/// A file that a report plays.
struct ReportFile {
    std::string url;
    std::string name;
    std::string text;          ///< its format for people
    std::string whyNotPlayed;  ///< by no common browser; empty where they do
    double at = 0;             ///< seconds on the report's time axis
    double seconds = 0;
};

/// The mix or a track.
struct ReportLane {
    std::string name;
    bool isMix = false;
    std::string format;  ///< for people
    double at = 0;       ///< seconds on the report's time axis
    double seconds = 0;
    double peak = 0;  ///< full scale is 1
    double rms = 0;
    bool isLoudnessMeasured = false;
    std::optional<double> loudness;  ///< LUFS
    double truePeak = 0;             ///< full scale is 1
    std::uint64_t gaps = 0;
    double gapSeconds = 0;
    std::vector<tqpicture::EnvelopeColumn> envelope;  ///< over the whole axis
    tqpicture::Png levels;
    std::vector<ReportFile> files;
};

/// All events of one kind.
struct ReportEvent {
    std::string text;
    bool isFailure = false;
    std::uint64_t count = 0;
    std::vector<double> seconds;  ///< the first of them
};

/// What a page says.
struct Report {
    std::string title;
    std::string date;
    double seconds = 0;
    double amplitude = 1;     ///< at the edges of all waveforms
    double topHertz = 22050;  ///< of all spectrograms
    std::vector<ReportLane> lanes;
    std::vector<ReportEvent> events;
    std::uint64_t lostBlocks = 0;
    std::uint64_t lostBytes = 0;
    std::vector<std::string> leftOut;   ///< what was not recorded and why
    std::vector<std::string> accounts;  ///< what became of the frames
    std::vector<std::string> problems;
    std::vector<std::string> files;  ///< others that were written
};

/// Columns of waveforms and spectrograms, and rows of the latter.
inline constexpr int kReportColumns = 1200;
inline constexpr int kReportRows = 128;
/// The darkest colour of spectrograms, dBFS.
inline constexpr double kReportFloorDb = -100;

/// The whole page, which asks no server for anything: pictures and script are in it, and the sound
/// is that of the files beside it. Nothing that a program says becomes markup. [any thread]
[[nodiscard]] std::string reportPage(const Report& report);

}  // namespace tqrecorder
