#include "output/files/FileNames.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <filesystem>
#include <utility>

#include "ipc/Printable.h"

namespace tqrecorder {
namespace {

/// No longer than that, and without a part of a letter at its end.
std::string cut(std::string text, std::size_t most) {
    if (text.size() > most) {
        while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0U) == 0x80U) {
            --most;
        }
        text.resize(most);
    }
    return text;
}

/// Of a program's first.
std::string plainAddition(const std::string& program) {
    return "-" + fileNamePart(program);
}

}  // namespace

std::string withAddition(std::string_view path, std::string_view addition) {
    const std::filesystem::path whole(path);
    const std::string end = std::string(addition) + whole.extension().string();
    const std::string stem = whole.stem().string();
    // What has to be added later must not make a name that the system refuses then.
    const std::string name =
        (end.size() < NAME_MAX ? cut(stem, NAME_MAX - end.size()) : stem) + end;
    return whole.has_parent_path() ? (whole.parent_path() / name).string() : name;
}

std::string numberAddition(unsigned number) {
    const std::string digits = std::to_string(number);
    return "-" + std::string(digits.size() < 3 ? 3 - digits.size() : 0, '0') + digits;
}

std::string fileNamePart(std::string_view text) {
    constexpr std::size_t kLongest = 60;
    std::string result;
    // Behind it all that is not ASCII is whole letters, which steer nothing.
    for (const char c : printable(text)) {
        const auto code = static_cast<unsigned char>(c);
        if (code >= 0x80 || std::isalnum(code) != 0 || c == '.' || c == '-') {
            result += c;
        } else if (result.empty() || result.back() != '_') {
            result += '_';
        }
        if (result.size() > kLongest) {
            result = cut(std::move(result), kLongest);
            break;
        }
    }
    // A leading dot would hide the file.
    const std::size_t first = result.find_first_not_of("._");
    const std::size_t last = result.find_last_not_of("._");
    return first == std::string::npos ? "unnamed" : result.substr(first, last - first + 1);
}

std::string ProcessNames::free(const std::string& program) {
    const std::string base = plainAddition(program);
    std::string addition = base;
    for (int number = 2; !taken_.insert(addition).second; ++number) {
        addition = base + "-" + std::to_string(number);
    }
    return addition;
}

bool ProcessNames::Named::isPlain() const {
    return addition.empty() || addition == plainAddition(program);
}

const std::string& ProcessNames::additionOf(const Process& process) {
    const auto [entry, isNew] = names_.try_emplace(process.id, Named{process.name, {}});
    if (isNew && names_.size() > 1) {
        entry->second.addition = free(process.name);
    }
    return entry->second.addition;
}

const std::string& ProcessNames::additionOf(int processId) const {
    return names_.at(processId).addition;
}

bool ProcessNames::isFirst(int processId) const {
    const auto found = names_.find(processId);
    return found != names_.end() && found->second.addition.empty();
}

bool ProcessNames::hasSounded(int processId) const {
    const auto found = names_.find(processId);
    return found != names_.end() && found->second.hasSounded;
}

bool ProcessNames::mayLoseNames(int processId) const {
    const Named& named = names_.at(processId);
    return !named.isSettled && named.isPlain();
}

void ProcessNames::hear(const Process& process) {
    const bool isNew = !names_.contains(process.id);
    (void)additionOf(process);
    Named& named = names_.at(process.id);
    if (std::exchange(named.hasSounded, true)) {
        return;
    }
    named.isSettled = true;
    const std::string wanted = hearings_++ == 0 ? std::string() : plainAddition(named.program);
    const auto owner = std::find_if(names_.begin(), names_.end(), [&wanted](const auto& one) {
        return one.second.addition == wanted && !one.second.isSettled;
    });
    if (owner == names_.end() || (named.isPlain() && !wanted.empty())) {
        return;
    }
    const std::string before = std::exchange(named.addition, wanted);
    // Files that have its name by now cannot change it with those of the one that gives it up.
    if (isNew) {
        taken_.erase(before);
    }
    owner->second.addition = free(owner->second.program);
    if (!isNew) {
        taken_.erase(before);
    }
}

}  // namespace tqrecorder
