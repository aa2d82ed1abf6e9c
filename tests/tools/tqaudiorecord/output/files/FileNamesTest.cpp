#include "output/files/FileNames.h"

#include <gtest/gtest.h>

namespace tqrecorder::test {
namespace {

TEST(FileNamesTest, TakeAdditionsBeforeTheExtension) {
    EXPECT_EQ(withAddition("a/b.c/out.wav", "-x"), "a/b.c/out-x.wav");
    EXPECT_EQ(withAddition("out", "-x"), "out-x");
    EXPECT_EQ(numberAddition(7), "-007");
    EXPECT_EQ(numberAddition(1234), "-1234");
}

TEST(FileNamesTest, StayWithinWhatTheSystemTakes) {
    EXPECT_EQ(withAddition("a/" + std::string(251, 'n') + ".wav", "-002"),
              "a/" + std::string(247, 'n') + "-002.wav");
    // A letter of two bytes goes as a whole.
    EXPECT_EQ(withAddition(std::string(246, 'n') + "\xc3\xa4\xc3\xa4.wav", "-002"),
              std::string(246, 'n') + "-002.wav");
}

TEST(FileNamesTest, AreMadeOfHarmlessLetters) {
    EXPECT_EQ(fileNamePart("../etc/passwd"), "etc_passwd");
    EXPECT_EQ(fileNamePart("Unit 0x55 <a>"), "Unit_0x55_a");
    EXPECT_EQ(fileNamePart(" \n"), "unnamed");
    EXPECT_EQ(fileNamePart(std::string(300, 'x')).size(), 60U);
}

TEST(FileNamesTest, KeepLettersOfEveryScript) {
    EXPECT_EQ(fileNamePart("Игра"), "Игра");
    EXPECT_EQ(fileNamePart("ゲーム/Überfall"), "ゲーム_Überfall");
    // 60 bytes end within the 21st letter.
    EXPECT_EQ(fileNamePart("a" + std::string("音音音音音音音音音音音音音音音音音音音音音")),
              "a音音音音音音音音音音音音音音音音音音音");
}

TEST(FileNamesTest, HaveNothingThatSteersOrIsNoLetter) {
    // A change of direction, a control character of two bytes, half a letter, an overlong slash.
    EXPECT_EQ(fileNamePart("ab\xe2\x80\xae"
                           "cd"),
              "ab_cd");
    EXPECT_EQ(fileNamePart("ab\xc2\x9b"
                           "cd"),
              "ab_cd");
    EXPECT_EQ(fileNamePart("Игр\xd0"), "Игр");
    EXPECT_EQ(fileNamePart("a\xc0\xaf"
                           "b"),
              "a_b");
}

TEST(ProcessNamesTest, TheFirstThatSoundsHasTheNamesAsGiven) {
    ProcessNames names;
    const Process launcher{1, 1001, "launcher", true};
    const Process game{2, 1002, "game", false};
    const Process other{3, 1003, "game", false};
    EXPECT_EQ(names.additionOf(launcher), "");
    EXPECT_EQ(names.additionOf(game), "-game");
    EXPECT_TRUE(names.isFirst(launcher.id));
    EXPECT_FALSE(names.isHeard());
    names.hear(game);
    EXPECT_TRUE(names.isHeard());
    EXPECT_EQ(names.additionOf(launcher.id), "-launcher");
    EXPECT_EQ(names.additionOf(game.id), "");
    EXPECT_TRUE(names.isFirst(game.id));
    // Whoever sounds later takes nothing from it.
    names.hear(launcher);
    EXPECT_EQ(names.additionOf(other), "-game");
    EXPECT_TRUE(names.isFirst(game.id));
}

TEST(ProcessNamesTest, OneThatNobodyAskedAboutMayBeTheFirstToSound) {
    ProcessNames names;
    const Process launcher{1, 1001, "game", true};
    EXPECT_EQ(names.additionOf(launcher), "");
    names.hear({2, 1002, "game", false});
    EXPECT_TRUE(names.isFirst(2));
    EXPECT_EQ(names.additionOf(1), "-game");
    EXPECT_EQ(names.additionOf({3, 1003, "game", false}), "-game-2");
}

TEST(ProcessNamesTest, OfOneProgramsProcessesTheFirstThatSoundsHasNoNumber) {
    for (const bool isNew : {false, true}) {
        SCOPED_TRACE(isNew);
        ProcessNames names;
        const Process shop{1, 1001, "shop", true};
        const Process launcher{2, 1002, "game", false};
        const Process game{3, 1003, "game", false};
        names.hear(shop);
        EXPECT_EQ(names.additionOf(launcher), "-game");
        EXPECT_TRUE(names.mayLoseNames(launcher.id));
        EXPECT_FALSE(names.mayLoseNames(shop.id));
        if (!isNew) {
            EXPECT_EQ(names.additionOf(game), "-game-2");
            EXPECT_FALSE(names.mayLoseNames(game.id)) << "nobody wants it";
        }
        names.hear(game);
        EXPECT_EQ(names.additionOf(game.id), "-game");
        EXPECT_NE(names.additionOf(launcher.id), "-game");
        EXPECT_FALSE(names.mayLoseNames(game.id));
        EXPECT_FALSE(names.mayLoseNames(launcher.id));
        // Whoever sounds later takes nothing from it.
        const std::string kept = names.additionOf(launcher.id);
        names.hear(launcher);
        EXPECT_EQ(names.additionOf(launcher.id), kept);
        EXPECT_EQ(names.additionOf(game.id), "-game");
    }
}

TEST(ProcessNamesTest, WhatIsSettledIsNobodyElses) {
    ProcessNames names;
    names.hear({1, 1001, "shop", true});
    (void)names.additionOf({2, 1002, "game", false});
    names.settle(2);
    EXPECT_FALSE(names.mayLoseNames(2));
    names.hear({3, 1003, "game", false});
    EXPECT_EQ(names.additionOf(2), "-game");
    EXPECT_EQ(names.additionOf(3), "-game-2");
}

}  // namespace
}  // namespace tqrecorder::test
