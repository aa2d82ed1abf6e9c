#include "output/report/ReportText.h"

#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>

#include "output/files/FileFormats.h"
#include "picture/Drawing.h"

namespace tqrecorder {

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : tqpicture::printable(std::string(text))) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string relativeUrl(const std::string& page, const std::string& file) {
    namespace fs = std::filesystem;
    std::error_code failure;
    const fs::path folder = fs::absolute(page, failure).lexically_normal().parent_path();
    const std::string path =
        fs::absolute(file, failure).lexically_normal().lexically_relative(folder).string();
    std::string url;
    for (const char c : path) {
        const auto code = static_cast<unsigned char>(c);
        if ((code < 0x80 && std::isalnum(code) != 0) ||
            std::string_view("-._~/").find(c) != std::string_view::npos) {
            url += c;
        } else {
            std::array<char, 4> number{};
            std::snprintf(number.data(), number.size(), "%%%02X", code);
            url += number.data();
        }
    }
    return url;
}

std::string base64(std::span<const unsigned char> bytes) {
    constexpr std::string_view kLetters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t place = 0; place < bytes.size(); place += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - place);
        std::uint32_t three = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            three = (three << 8U) | (index < count ? bytes[place + index] : 0U);
        }
        for (std::size_t letter = 0; letter < 4; ++letter) {
            text += letter <= count ? kLetters[(three >> (18U - 6U * letter)) & 63U] : '=';
        }
    }
    return text;
}

std::string fixed(double number, int decimals) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", decimals, number);
    return text.data();
}

std::string clockText(double seconds) {
    const auto tenths = static_cast<std::int64_t>(std::floor(std::max(0.0, seconds) * 10 + 1e-6));
    const std::int64_t whole = tenths / 10;
    std::array<char, 64> text{};
    if (whole >= 3600) {
        std::snprintf(text.data(), text.size(), "%d:%02d:%02d.%d", static_cast<int>(whole / 3600),
                      static_cast<int>(whole / 60 % 60), static_cast<int>(whole % 60),
                      static_cast<int>(tenths % 10));
    } else {
        std::snprintf(text.data(), text.size(), "%d:%02d.%d", static_cast<int>(whole / 60),
                      static_cast<int>(whole % 60), static_cast<int>(tenths % 10));
    }
    return text.data();
}

std::string levelText(double amplitude, std::string_view unit) {
    return amplitude > 0 ? fixed(20 * std::log10(amplitude), 1) + " " + std::string(unit)
                         : "silent";
}

bool holdsSeveral(const FileFormat* kind) {
    return kind != nullptr && kind->isMatroska();
}

std::string whyNotPlayed(const FileFormat* kind, std::string_view format) {
    if (holdsSeveral(kind)) {
        return "browsers do not play the streams of a Matroska file apart from each other";
    }
    if (kind == nullptr || kind->isBare()) {
        return "browsers play no bare samples";
    }
    if (kind->name == "w64") {
        return "browsers do not know Wave64";
    }
    const bool isWave = kind->name == "wav" || kind->name == "rf64";
    if (isWave && format.find("64-bit float") != std::string_view::npos) {
        return "browsers do not know samples of 64-bit float";
    }
    return {};
}

}  // namespace tqrecorder
