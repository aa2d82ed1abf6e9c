#pragma once

#include <span>
#include <string>
#include <string_view>

// Text for a page.

namespace tqrecorder {

/// For the page's text and its attributes. What is no UTF-8, and control characters, become "?".
[[nodiscard]] std::string escaped(std::string_view text);

/// Where `file` is as seen from the page at `page`, for its links: relative, every byte that means
/// something in an address written as its number.
[[nodiscard]] std::string relativeUrl(const std::string& page, const std::string& file);

/// Bytes in letters, digits, plus and slash.
[[nodiscard]] std::string base64(std::span<const unsigned char> bytes);

/// "1:02:03.4", "0:05.0".
[[nodiscard]] std::string clockText(double seconds);

/// As many decimals as asked for, with a point in every language.
[[nodiscard]] std::string fixed(double number, int decimals);

/// "-3.1 dBFS" of an amplitude of full scale 1; "silent" for none.
[[nodiscard]] std::string levelText(double amplitude, std::string_view unit);

struct FileFormat;

/// Whether a file of that kind has the mix and all tracks in it.
[[nodiscard]] bool holdsSeveral(const FileFormat* kind);

/// Why browsers do not play a file of that kind (null for one that is not known) whose samples are
/// of that format (as people read it), as a clause; empty where the common ones do.
[[nodiscard]] std::string whyNotPlayed(const FileFormat* kind, std::string_view format);

}  // namespace tqrecorder
