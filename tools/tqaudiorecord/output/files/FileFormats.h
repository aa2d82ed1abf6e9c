#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tqrecorder {

/// How the streams of a Matroska file are coded.
enum class MatroskaCoding { kNone, kFlac, kPcm, kOpus, kVorbis };

/// A kind of file that the mix can be written to.
struct FileFormat {
    std::string_view name;         ///< as `--format` takes it
    std::string_view extension;    ///< without the dot
    std::string_view description;  ///< for people
    int container = 0;             ///< libsndfile's major format; 0 for bare samples
    int encoding = 0;              ///< libsndfile's encoding; 0 takes that of the blocks
    bool growsIntoRf64 = false;    ///< becomes RF64 where it passes 4 GiB
    int onlyRate = 0;              ///< Hz, what it is converted to; 0 takes any
    MatroskaCoding coding = MatroskaCoding::kNone;  ///< of a file with many streams

    [[nodiscard]] bool isMatroska() const { return coding != MatroskaCoding::kNone; }
    /// Bare samples without a header.
    [[nodiscard]] bool isBare() const { return container == 0 && !isMatroska(); }
};

/// All of them, in the order they are listed.
[[nodiscard]] std::span<const FileFormat> fileFormats();
/// Null when there is none.
[[nodiscard]] const FileFormat* formatNamed(std::string_view name);
/// By the extension of `path`, in any case; null when it has none that is known.
[[nodiscard]] const FileFormat* formatOfPath(std::string_view path);
/// One line each, for `--list-formats`.
[[nodiscard]] std::string listOfFormats();
/// What tracks are written as.
[[nodiscard]] const FileFormat& trackFormat();

}  // namespace tqrecorder
