#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

TEST(TemporaryFolderTest, IsEmptyAndItsOwn) {
    const TemporaryFolder one;
    const TemporaryFolder other;
    EXPECT_NE(one.path(), other.path());
    EXPECT_TRUE(fs::is_empty(one.path()));
}

TEST(TemporaryFolderTest, GoesWithAllThatIsInItAlsoWithoutTheRightToWrite) {
    fs::path path;
    {
        const TemporaryFolder folder;
        path = folder.path();
        std::ofstream(folder.file("b")) << "text";
        fs::create_directory(folder.file("a"));
        EXPECT_THAT(folder.names(), testing::ElementsAre("a", "b"));
        EXPECT_EQ(contentOf(folder.file("b")), "text");
        fs::permissions(path, fs::perms::owner_read | fs::perms::owner_exec);
    }
    EXPECT_FALSE(fs::exists(path));
}
