#include "ipc/Choice.h"

#include <gtest/gtest.h>

namespace {

using tqrecorder::Choice;

TEST(Choice, WithoutPatternsWantsEverything) {
    EXPECT_TRUE(Choice{}.isAll());
    EXPECT_TRUE(Choice{}.wants("alsa-1 default", "game"));
    EXPECT_FALSE(Choice{}.excludes("game"));
}

TEST(Choice, APatternStandsForATrackByAnyOfItsNames) {
    for (const std::string pattern :
         {"alsa-1 default", "ALSA-*", "default", "de?ault", "*[Ff]ault", "Game"}) {
        EXPECT_TRUE((Choice{{pattern}, {}}).wants("alsa-1 default", "game")) << pattern;
        EXPECT_FALSE((Choice{{}, {pattern}}).wants("alsa-1 default", "game")) << pattern;
    }
    for (const std::string pattern : {"alsa", "fault", "default*x", "alsa-2 *"}) {
        EXPECT_FALSE((Choice{{pattern}, {}}).wants("alsa-1 default", "game")) << pattern;
        EXPECT_TRUE((Choice{{}, {pattern}}).wants("alsa-1 default", "game")) << pattern;
    }
}

// Tests run in the language "C", as programs do that never asked for their user's.
TEST(Choice, LettersAreThoseOfUtf8WhateverTheProgramsLanguage) {
    const std::string track = "pulse-1 \xc3\x84rger \xd0\x9c";  // "Ärger М"
    for (const std::string pattern :
         {"\xc3\xa4rger*", "?rger ?", "* \xd0\xbc", "*[\xc3\xa4x]rger*"}) {
        EXPECT_TRUE((Choice{{pattern}, {}}).wants(track, "game")) << pattern;
    }
    EXPECT_FALSE((Choice{{"\xc3\xb6rger*"}, {}}).wants(track, "game")) << "another letter";
}

TEST(Choice, NamesAreMatchedAsTheyAreShown) {
    EXPECT_TRUE((Choice{{"a b?c"}, {}})
                    .wants("pulse-1 a\nb\xff"
                           "c",
                           "game"));
    EXPECT_TRUE((Choice{{}, {"my game"}}).excludes("my\tgame"));
}

TEST(Choice, OneOfManyPatternsIsEnoughAndWhatIsLeftOutWins) {
    const Choice choice{{"*music*", "*speech*"}, {"*loud*"}};
    EXPECT_TRUE(choice.wants("pulse-1 game: music", "game"));
    EXPECT_TRUE(choice.wants("pulse-2 speech", "game"));
    EXPECT_FALSE(choice.wants("pulse-3 loud music", "game"));
    EXPECT_FALSE(choice.wants("pulse-4 steps", "game"));
    EXPECT_FALSE(choice.isAll());
}

TEST(Choice, AProgramIsLeftOutAsAWholeByItsOwnNameAlone) {
    const Choice choice{{"*music*"}, {"chat"}};
    EXPECT_TRUE(choice.excludes("chat"));
    EXPECT_FALSE(choice.wants("pulse-1 music", "chat"));
    EXPECT_FALSE(choice.excludes("game"));
}

}  // namespace
