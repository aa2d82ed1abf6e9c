#include "output/files/FileNames.h"

#include <cctype>
#include <filesystem>

namespace tqrecorder {

std::string withAddition(std::string_view path, std::string_view addition) {
    const std::filesystem::path whole(path);
    const std::string name =
        whole.stem().string() + std::string(addition) + whole.extension().string();
    return whole.has_parent_path() ? (whole.parent_path() / name).string() : name;
}

std::string numberAddition(unsigned number) {
    const std::string digits = std::to_string(number);
    return "-" + std::string(digits.size() < 3 ? 3 - digits.size() : 0, '0') + digits;
}

std::string fileNamePart(std::string_view text) {
    constexpr std::size_t kLongest = 60;
    std::string result;
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        const bool allowed = code < 0x80 && (std::isalnum(code) != 0 || c == '.' || c == '-');
        if (allowed) {
            result += c;
        } else if (result.empty() || result.back() != '_') {
            result += '_';
        }
        if (result.size() == kLongest) {
            break;
        }
    }
    // A leading dot would hide the file.
    const std::size_t first = result.find_first_not_of("._");
    const std::size_t last = result.find_last_not_of("._");
    return first == std::string::npos ? "unnamed" : result.substr(first, last - first + 1);
}

const std::string& ProcessNames::additionOf(const Process& process) {
    const auto [entry, isNew] = additions_.try_emplace(process.id);
    if (isNew && additions_.size() > 1) {
        const std::string base = "-" + fileNamePart(process.name);
        entry->second = base;
        for (int number = 2; !taken_.insert(entry->second).second; ++number) {
            entry->second = base + "-" + std::to_string(number);
        }
    }
    return entry->second;
}

bool ProcessNames::isFirst(int processId) const {
    const auto found = additions_.find(processId);
    return found != additions_.end() && found->second.empty();
}

}  // namespace tqrecorder
