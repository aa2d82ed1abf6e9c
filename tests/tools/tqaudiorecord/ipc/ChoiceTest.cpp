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
