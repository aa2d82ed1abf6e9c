// Every message of the recorder stands in the page that says what to do about it, and nothing else
// does.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/TemporaryFolder.h"

namespace tqrecorder::test {
namespace {

namespace fs = std::filesystem;

/// Words for other pages: options, formats, the texts that are made from them.
const std::set<std::string> kOtherPages{"Documentation.cpp", "FileFormats.cpp", "OptionTable.cpp",
                                        "document_options.cpp"};

/// What --report writes is for its page.
bool isForAnotherPage(const fs::path& file) {
    return kOtherPages.contains(file.filename().string()) ||
           file.parent_path().filename() == "report";
}

bool isQuoteOfACharacter(std::string_view source, std::size_t at) {
    // Between digits it separates them.
    return source[at] == '\'' &&
           (at == 0 || std::isalnum(static_cast<unsigned char>(source[at - 1])) == 0);
}

/// The texts in a source file, those that only blanks part as one.
std::vector<std::string> textsIn(std::string_view source) {
    std::vector<std::string> texts;
    bool isJoined = false;
    for (std::size_t at = 0; at < source.size(); ++at) {
        if (source.substr(at, 2) == "//" || source.substr(at, 8) == "#include") {
            at = std::min(source.find('\n', at), source.size());
        } else if (isQuoteOfACharacter(source, at)) {
            at = source.find('\'', at + (source[at + 1] == '\\' ? 3 : 2));
            isJoined = false;
        } else if (source[at] == '"') {
            std::string text;
            for (++at; source[at] != '"'; ++at) {
                const bool isEscaped = source[at] == '\\';
                at += isEscaped ? 1 : 0;
                text += isEscaped && source[at] == 'n' ? '\n' : source[at];
            }
            if (isJoined) {
                texts.back() += text;
            } else {
                texts.push_back(text);
            }
            isJoined = true;
        } else if (std::isspace(static_cast<unsigned char>(source[at])) == 0) {
            isJoined = false;
        }
    }
    return texts;
}

/// With one blank where there are several or a line's end, and without any around it.
std::string plain(const std::string& text) {
    std::istringstream words(text);
    std::string all;
    for (std::string word; words >> word;) {
        all += (all.empty() ? "" : " ") + word;
    }
    return all;
}

std::size_t wordsIn(const std::string& text) {
    std::istringstream words(text);
    std::size_t count = 0;
    for (std::string word; words >> word;) {
        count += std::isalpha(static_cast<unsigned char>(word.front())) != 0 ? 1 : 0;
    }
    return count;
}

bool isHelp(const std::string& text) {
    return text.starts_with("Usage: ") || text.starts_with("\nExit code: ");
}

/// By file.
std::map<std::string, std::vector<std::string>> textsOfTheRecorder() {
    std::map<std::string, std::vector<std::string>> all;
    for (const auto& entry : fs::recursive_directory_iterator(TQ_RECORDER_SOURCE)) {
        const std::string extension = entry.path().extension().string();
        if ((extension == ".cpp" || extension == ".h") && !isForAnotherPage(entry.path())) {
            all[entry.path().string()] = textsIn(contentOf(entry.path().string()));
        }
    }
    return all;
}

/// The messages of the page, which stand in backquotes.
std::vector<std::string> messagesOfThePage() {
    std::vector<std::string> all;
    std::istringstream lines(contentOf(TQ_MESSAGES_PAGE));
    for (std::string line; std::getline(lines, line);) {
        // Behind the first column it says what to do.
        const std::string column = line.substr(0, line.find(" | ", 2));
        for (std::size_t at = 0;
             line.starts_with("| `") && (at = column.find('`', at)) != std::string::npos;) {
            const std::size_t end = column.find('`', at + 1);
            all.push_back(column.substr(at + 1, end - at - 1));
            at = end + 1;
        }
    }
    return all;
}

TEST(MessagesTest, EveryMessageStandsInThePage) {
    std::string page;
    for (const std::string& message : messagesOfThePage()) {
        page += " " + plain(message);
    }
    std::size_t messages = 0;
    for (const auto& [file, texts] : textsOfTheRecorder()) {
        for (const std::string& text : texts) {
            if (wordsIn(text) < 4 || isHelp(text)) {
                continue;
            }
            ++messages;
            constexpr std::string_view kName = "tqaudiorecord: ";
            std::string wanted = plain(text.starts_with(kName) ? text.substr(kName.size()) : text);
            // Numbers that the page has as they are written.
            const std::size_t number = wanted.find("%.1f");
            wanted = number == std::string::npos ? wanted : plain(wanted.substr(0, number));
            EXPECT_NE(page.find(wanted), std::string::npos)
                << file << " says \"" << wanted << "\", and docs/messages.md has no row for it";
        }
    }
    EXPECT_GT(messages, 80U);
}

TEST(MessagesTest, ThePageHasNoMessageThatIsNeverSaid) {
    // A message may be put together of texts that follow each other.
    std::string all;
    for (const auto& [file, texts] : textsOfTheRecorder()) {
        for (const std::string& text : texts) {
            all += text;
        }
        all += "\n";
    }
    const std::string said = plain(all);
    for (const std::string& message : messagesOfThePage()) {
        for (std::size_t begin = 0; begin < message.size();) {
            const std::size_t end = std::min(message.find("...", begin), message.size());
            const std::string piece = plain(message.substr(begin, end - begin));
            if (wordsIn(piece) >= 4) {
                EXPECT_NE(said.find(piece), std::string::npos)
                    << "docs/messages.md has \"" << piece << "\" of \"" << message << "\"";
            }
            begin = end + 3;
        }
    }
}

}  // namespace
}  // namespace tqrecorder::test
