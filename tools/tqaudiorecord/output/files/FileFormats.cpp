#include "output/files/FileFormats.h"

#include <sndfile.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>

namespace tqrecorder {
namespace {

constexpr std::array<FileFormat, 11> kFormats{{
    {"wav", "wav", "WAV, 16-bit; becomes RF64 by itself past 4 GiB", SF_FORMAT_RF64, 0, true, 0},
    {"w64", "w64", "Wave64, 16-bit, of any length", SF_FORMAT_W64, 0, false, 0},
    {"rf64", "rf64", "RF64, 16-bit, of any length", SF_FORMAT_RF64, 0, false, 0},
    {"flac", "flac", "FLAC, 16-bit, lossless", SF_FORMAT_FLAC, SF_FORMAT_PCM_16, false, 0},
    {"ogg", "ogg", "Ogg Vorbis", SF_FORMAT_OGG, SF_FORMAT_VORBIS, false, 0},
    {"opus", "opus", "Ogg Opus; converted to 48000 Hz", SF_FORMAT_OGG, SF_FORMAT_OPUS, false,
     48000},
    {"raw", "raw", "bare samples, 16-bit little-endian stereo at 44100 Hz", 0, 0, false, 0},
    {"mka", "mka", "Matroska: the mix and every track as streams of one file, as FLAC", 0, 0, false,
     0, MatroskaCoding::kFlac},
    {"mka-pcm", "mka", "the same, samples as they are", 0, 0, false, 0, MatroskaCoding::kPcm},
    {"mka-opus", "mka", "the same, as Opus; converted to 48000 Hz", 0, 0, false, 0,
     MatroskaCoding::kOpus},
    {"mka-vorbis", "mka", "the same, as Vorbis", 0, 0, false, 0, MatroskaCoding::kVorbis},
}};

constexpr std::size_t kNameColumn = 12;
constexpr std::size_t kExtensionColumn = 6;

std::string padded(std::string_view text, std::size_t column) {
    return std::string(text) + std::string(column - text.size(), ' ');
}

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

}  // namespace

std::span<const FileFormat> fileFormats() {
    return kFormats;
}

const FileFormat* formatNamed(std::string_view name) {
    const std::string wanted = lower(name);
    const auto found = std::find_if(kFormats.begin(), kFormats.end(),
                                    [&](const FileFormat& f) { return f.name == wanted; });
    return found == kFormats.end() ? nullptr : &*found;
}

const FileFormat* formatOfPath(std::string_view path) {
    std::string extension = lower(std::filesystem::path(path).extension().string());
    if (extension.empty()) {
        return nullptr;
    }
    extension.erase(0, 1);
    const auto found = std::find_if(kFormats.begin(), kFormats.end(), [&](const FileFormat& f) {
        return f.extension == extension || (f.name == "ogg" && extension == "oga") ||
               (f.name == "wav" && extension == "wave");
    });
    return found == kFormats.end() ? nullptr : &*found;
}

std::string listOfFormats() {
    std::string text;
    for (const FileFormat& format : kFormats) {
        text += padded(format.name, kNameColumn) + "." +
                padded(format.extension, kExtensionColumn) + std::string(format.description) + "\n";
    }
    return text;
}

const FileFormat& trackFormat() {
    return kFormats.front();
}

}  // namespace tqrecorder
