// The documents that are made from the option table: each says what the table says.

#include "cli/Documentation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>

#include "cli/CommandLine.h"
#include "cli/OptionTable.h"

namespace tqrecorder {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string fileText(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// As the build makes it from the file of that name in the recorder's source.
std::string made(const std::string& name) {
    return filledTemplate(fileText(std::string(TQ_RECORDER_SOURCE) + "/" + name + ".in"));
}

/// "-o" and "--output" of every option.
std::vector<std::string> allForms() {
    std::vector<std::string> forms;
    for (const OptionEntry& entry : optionTable()) {
        forms.push_back(entry.longForm());
        if (entry.letter != 0) {
            forms.push_back(entry.shortForm());
        }
    }
    return forms;
}

bool hasWord(const std::string& text, const std::string& word) {
    return std::regex_search(text, std::regex("[^a-z-]" + word + "[^a-z-]"));
}

TEST(DocumentationTest, TheTableHasEveryOptionOnce) {
    std::vector<std::string> forms = allForms();
    EXPECT_GE(forms.size(), 24U);
    std::sort(forms.begin(), forms.end());
    EXPECT_EQ(std::adjacent_find(forms.begin(), forms.end()), forms.end());
}

TEST(DocumentationTest, TheHelpHasEveryOptionWithItsDefault) {
    const std::string help = parseCommandLine({"--help"}).output;
    for (const OptionEntry& entry : optionTable()) {
        const std::regex line("\n  (-" + std::string(1, entry.letter == 0 ? '.' : entry.letter) +
                              ",)?" + entry.longForm() + "[^a-z-][^\n]*");
        std::smatch match;
        ASSERT_TRUE(std::regex_search(help, match, line)) << entry.name;
        EXPECT_THAT(match.str(), HasSubstr(std::string(entry.brief)));
        if (!entry.defaultText().empty()) {
            EXPECT_THAT(match.str(), testing::EndsWith(" [" + entry.defaultText() + "]"));
        }
    }
}

TEST(DocumentationTest, TheManualPageHasEveryOptionWithItsDefault) {
    std::string page = made("man/tqaudiorecord.1");
    page.erase(std::remove(page.begin(), page.end(), '\\'), page.end());
    for (const OptionEntry& entry : optionTable()) {
        const std::size_t head = page.find("fB" + entry.longForm() + "fR");
        ASSERT_NE(head, std::string::npos) << entry.name;
        const std::string text = page.substr(head, page.find("\n.", head) - head);
        EXPECT_THAT(text, HasSubstr("\n")) << "no text for " << entry.name;
        if (!entry.defaultText().empty()) {
            EXPECT_THAT(text, HasSubstr(entry.defaultText() + " ")) << entry.name;
        }
    }
    EXPECT_THAT(page, Not(HasSubstr("{default}")));
    EXPECT_THAT(page, Not(HasSubstr("**")));
}

TEST(DocumentationTest, TheCompletionsHaveEveryOption) {
    for (const char* name : {"completion/tqaudiorecord.bash", "completion/_tqaudiorecord"}) {
        const std::string text = made(name);
        for (const std::string& form : allForms()) {
            EXPECT_TRUE(hasWord(text, form)) << name << " " << form;
        }
        EXPECT_THAT(text, HasSubstr("wav w64 rf64 flac ogg opus raw"));
    }
}

TEST(DocumentationTest, NoPlaceOfATemplateStaysEmpty) {
    const std::regex place("@[A-Z_]*@");
    for (const char* name :
         {"man/tqaudiorecord.1", "completion/tqaudiorecord.bash", "completion/_tqaudiorecord"}) {
        const std::string text = made(name);
        EXPECT_GT(text.size(), 100U) << name;
        EXPECT_FALSE(std::regex_search(text, place)) << name;
    }
}

TEST(DocumentationTest, ALineOfTheManualPageIsNoRequestByAccident) {
    std::istringstream page(made("man/tqaudiorecord.1"));
    for (std::string line; std::getline(page, line);) {
        EXPECT_TRUE(std::regex_search(line, std::regex("^([^.']|$|\\.[A-Z]|\\.br|\\.nf|\\.fi)")))
            << line;
    }
}

TEST(DocumentationTest, TheRecordersPageHasTheTable) {
    // When this fails, put the expected table there.
    EXPECT_THAT(fileText(TQ_RECORDER_PAGE), HasSubstr("\n" + markdownOptions() + "\n"));
}

}  // namespace
}  // namespace tqrecorder
