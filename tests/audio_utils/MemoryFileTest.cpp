#include "Bytes.h"
#include "memory_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "FailSystemCall.h"
#include "LogRecorder.h"
#include "common/Descriptor.h"
#include "support/TemporaryFolder.h"

namespace korva_audio_utils {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const auto kPage = static_cast<std::size_t>(getpagesize());

/// The text that %p gives.
std::string Pointer(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

std::string MapLine(const MemoryFile& file) {
    return "mmap success, path: " + file.path() + ", size: " + std::to_string(file.size()) +
           ", addr: " + Pointer(file.data());
}

std::string CreateLine(const MemoryFile& file) {
    return "Success create memory file:" + file.path() + ", fd:" + std::to_string(file.fd());
}

class MemoryFileTest : public testing::Test {
  protected:
    std::string Fill(std::size_t length) {
        Bytes bytes(length);
        for (std::size_t k = 0; k < length; ++k) {
            bytes[k] = static_cast<unsigned char>(k % 251 + 1);
        }
        WriteBytes(path_, bytes);
        return path_;
    }
    /// Puts an object behind the descriptor that can be resized and read but not written to.
    static void MakeUnwritable(const MemoryFile& file, std::size_t length) {
        const int sealed = memfd_create("sealed", MFD_ALLOW_SEALING);
        ASSERT_GE(sealed, 0);
        ASSERT_EQ(::ftruncate(sealed, static_cast<off_t>(length)), 0);
        ASSERT_EQ(fcntl(sealed, F_ADD_SEALS, F_SEAL_WRITE), 0);
        ASSERT_EQ(dup2(sealed, file.fd()), file.fd());
        ::close(sealed);
    }
    std::string UnmapLine(const void* data, std::size_t size) const {
        return "munmap pre mmap failed, addr: " + Pointer(data) + ", size:" + std::to_string(size) +
               " path: " + path_;
    }
    static unsigned char ByteAt(const MemoryFile& file, std::size_t offset) {
        return static_cast<const unsigned char*>(file.data())[offset];
    }

    TemporaryFolder folder_;
    std::string path_ = folder_.file("file.flag");
    LogRecorder log_;
};

std::uint32_t LowWord(const void* pointer) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pointer));
}

/// Bounds the file size of this process, so that growth fails, with the signal as hosts have it.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(std::size_t bytes) {
        getrlimit(RLIMIT_FSIZE, &old_);
        const rlimit limit{bytes, old_.rlim_max};
        std::signal(SIGXFSZ, SIG_DFL);
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &old_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit old_{};
};

TEST_F(MemoryFileTest, NewFileBecomesOnePageOfZerosAndIsMapped) {
    MemoryFile file(path_.c_str());
    ASSERT_TRUE(file.isUsable());
    EXPECT_EQ(file.size(), kPage);
    EXPECT_EQ(static_cast<std::size_t>(file.getActualFileSize()), kPage);
    EXPECT_EQ(ReadBytes(path_), Bytes(kPage, 0));
    EXPECT_EQ(ByteAt(file, kPage - 1), 0);
    EXPECT_THAT(log_.Errors(), IsEmpty());
    EXPECT_THAT(log_.Infos(), ElementsAre(MapLine(file), CreateLine(file)));
}

TEST_F(MemoryFileTest, NumbersOfTheStandardStreamsAreNotTaken) {
    ASSERT_EQ(close(STDIN_FILENO), 0);  // as services do
    MemoryFile file(path_.c_str());
    EXPECT_GT(file.fd(), STDERR_FILENO);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    EXPECT_TRUE(file.isUsable());
    EXPECT_THAT(log_.Errors(), IsEmpty());
}

TEST_F(MemoryFileTest, NewFileIsReadableWritableAndExecutableByItsOwnerOnly) {
    umask(0);
    MemoryFile file(path_.c_str());
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(MemoryFileTest, ShortFileIsPaddedWithZerosAndKeepsItsBytes) {
    MemoryFile file(Fill(100).c_str());
    ASSERT_TRUE(file.isUsable());
    EXPECT_EQ(file.size(), kPage);
    EXPECT_EQ(ByteAt(file, 99), 100);
    EXPECT_EQ(ByteAt(file, 100), 0);
}

TEST_F(MemoryFileTest, FileThatIsNoWholeNumberOfPagesIsRoundedUp) {
    MemoryFile file(Fill(kPage + 1).c_str());
    ASSERT_TRUE(file.isUsable());
    EXPECT_EQ(file.size(), 2 * kPage);
    EXPECT_EQ(ByteAt(file, kPage), kPage % 251 + 1);
    EXPECT_EQ(ByteAt(file, 2 * kPage - 1), 0);
}

TEST_F(MemoryFileTest, FileOfTwoPagesIsMappedAsItIs) {
    Fill(2 * kPage);
    const Bytes before = ReadBytes(path_);
    MemoryFile file(path_.c_str());
    ASSERT_TRUE(file.isUsable());
    EXPECT_EQ(file.size(), 2 * kPage);
    EXPECT_EQ(ReadBytes(path_), before);
}

TEST_F(MemoryFileTest, StoresReachTheFileWithoutAFlush) {
    MemoryFile file(path_.c_str());
    std::memcpy(file.data(), "abcd", 4);
    const Bytes bytes = ReadBytes(path_);
    EXPECT_EQ(bytes[0], 'a');
    EXPECT_EQ(bytes[3], 'd');
}

TEST_F(MemoryFileTest, FileWhoseFolderIsMissingCannotBeOpened) {
    const std::string missing = folder_.file("missing/file.flag");
    MemoryFile file(missing.c_str());
    EXPECT_EQ(file.fd(), -1);
    EXPECT_EQ(file.size(), 0U);
    EXPECT_EQ(file.data(), nullptr);
    EXPECT_FALSE(file.isUsable());
    EXPECT_THAT(log_.Errors(), ElementsAre("Open file(" + missing + ") failed with invalid fd"));
    EXPECT_THAT(log_.Infos(), IsEmpty());
}

TEST_F(MemoryFileTest, FolderInPlaceOfTheFileCannotBeOpened) {
    MemoryFile file(folder_.path().c_str());
    EXPECT_EQ(file.fd(), -1);
    EXPECT_FALSE(file.isUsable());
    EXPECT_EQ(log_.Errors().size(), 1U);
}

TEST_F(MemoryFileTest, NullPathCannotBeOpened) {
    MemoryFile file(nullptr);
    EXPECT_EQ(file.fd(), -1);
    EXPECT_THAT(log_.Errors(), ElementsAre("Open file() failed with invalid fd"));
}

TEST_F(MemoryFileTest, FileThatFailedToOpenRefusesEveryOperation) {
    MemoryFile file(folder_.file("missing/file.flag").c_str());
    log_.Clear();
    EXPECT_FALSE(file.truncate(1));
    EXPECT_FALSE(file.truncate(0));
    EXPECT_FALSE(file.msync(SyncFlag::Sync));
    EXPECT_EQ(file.getActualFileSize(), 0);
    EXPECT_THAT(log_.All(), IsEmpty());
    file.doCleanMemoryCache();
    EXPECT_THAT(log_.All(), IsEmpty());
}

TEST_F(MemoryFileTest, OpenedFileThatCannotBeMappedStillLogsItsCreation) {
    const std::string pipe = folder_.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    MemoryFile file(pipe.c_str());
    EXPECT_FALSE(file.isUsable());
    EXPECT_GE(file.fd(), 0);
    EXPECT_EQ(file.size(), 0U);
    EXPECT_THAT(log_.Errors(),
                ElementsAre("truncate 0 -> " + std::to_string(kPage) + " on " + pipe));
    EXPECT_THAT(log_.Infos(), ElementsAre(CreateLine(file)));
}

TEST_F(MemoryFileTest, TruncateToTheCurrentSizeDoesNothing) {
    MemoryFile file(path_.c_str());
    log_.Clear();
    EXPECT_TRUE(file.truncate(kPage));
    EXPECT_THAT(log_.All(), IsEmpty());
}

TEST_F(MemoryFileTest, TruncateWithinThePageKeepsTheLengthAndRemaps) {
    MemoryFile file(path_.c_str());
    std::memcpy(file.data(), "abcd", 4);
    log_.Clear();
    EXPECT_TRUE(file.truncate(160));
    EXPECT_EQ(file.size(), kPage);
    EXPECT_EQ(static_cast<std::size_t>(file.getActualFileSize()), kPage);
    EXPECT_EQ(ByteAt(file, 0), 'a');
    EXPECT_THAT(log_.Infos(), ElementsAre(MapLine(file)));
    EXPECT_THAT(log_.Errors(), IsEmpty());
}

TEST_F(MemoryFileTest, TruncateToZeroIsOnePage) {
    MemoryFile file(Fill(2 * kPage).c_str());
    EXPECT_TRUE(file.truncate(0));
    EXPECT_EQ(file.size(), kPage);
    EXPECT_EQ(static_cast<std::size_t>(file.getActualFileSize()), kPage);
}

TEST_F(MemoryFileTest, TruncateGrowsWithZerosAndKeepsWhatWasThere) {
    MemoryFile file(Fill(kPage).c_str());
    EXPECT_TRUE(file.truncate(2 * kPage + 1));
    EXPECT_EQ(file.size(), 3 * kPage);
    EXPECT_EQ(ByteAt(file, kPage - 1), (kPage - 1) % 251 + 1);
    EXPECT_EQ(ByteAt(file, kPage), 0);
    EXPECT_EQ(ByteAt(file, 3 * kPage - 1), 0);
    static_cast<unsigned char*>(file.data())[3 * kPage - 1] = 9;
    EXPECT_EQ(ReadBytes(path_).back(), 9);
}

TEST_F(MemoryFileTest, TruncateWritesTheNewTailOutInsteadOfLeavingAHole) {
    MemoryFile file(path_.c_str());
    ASSERT_TRUE(file.truncate(64 * kPage));
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    ASSERT_EQ(::fsync(file.fd()), 0);
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_GE(static_cast<std::size_t>(status.st_blocks) * 512, 64 * kPage);
}

TEST_F(MemoryFileTest, TruncateShrinksToWholePages) {
    MemoryFile file(Fill(3 * kPage).c_str());
    EXPECT_TRUE(file.truncate(kPage + 5));
    EXPECT_EQ(file.size(), 2 * kPage);
    EXPECT_EQ(ReadBytes(path_).size(), 2 * kPage);
    EXPECT_EQ(ByteAt(file, 2 * kPage - 1), (2 * kPage - 1) % 251 + 1);
}

TEST_F(MemoryFileTest, RefusedTruncateRestoresTheSizeAndKeepsTheMapping) {
    MemoryFile file(path_.c_str());
    std::memcpy(file.data(), "abcd", 4);
    void* const data = file.data();
    log_.Clear();
    {
        const FileSizeLimit limit(kPage);
        EXPECT_FALSE(file.truncate(4 * kPage));
    }
    EXPECT_EQ(file.size(), kPage);
    EXPECT_EQ(file.data(), data);
    EXPECT_EQ(ByteAt(file, 0), 'a');
    EXPECT_THAT(log_.Errors(), ElementsAre("truncate " + std::to_string(kPage) + " -> " +
                                           std::to_string(4 * kPage) + " on " + path_));
}

TEST_F(MemoryFileTest, SizeThatCannotBeRoundedUpIsRefusedLikeAnyFailedTruncate) {
    MemoryFile file(path_.c_str());
    log_.Clear();
    const FileSizeLimit limit(16 * kPage);
    EXPECT_FALSE(file.truncate(std::numeric_limits<std::size_t>::max() - 1));
    EXPECT_EQ(file.size(), kPage);
    EXPECT_EQ(ReadBytes(path_).size(), kPage);
    EXPECT_EQ(log_.Errors().size(), 1U);
}

TEST_F(MemoryFileTest, FailedZeroFillIsLoggedAndKeepsTheOldMapping) {
    MemoryFile file(path_.c_str());
    std::memcpy(file.data(), "abcd", 4);
    void* const data = file.data();
    log_.Clear();
    MakeUnwritable(file, kPage);
    EXPECT_FALSE(file.truncate(3 * kPage));
    EXPECT_EQ(file.size(), 3 * kPage);
    EXPECT_EQ(file.data(), data);
    EXPECT_EQ(ByteAt(file, 0), 'a');
    EXPECT_THAT(log_.Errors(), ElementsAre("Write zero failed on " + std::to_string(file.fd()),
                                           "ZeroFillFile error, path: " + path_));
}

TEST_F(MemoryFileTest, CleanAfterAFailedZeroFillUnmapsNoMoreThanWasMapped) {
    MemoryFile file(path_.c_str());
    MakeUnwritable(file, kPage);
    ASSERT_FALSE(file.truncate(2 * kPage));
    // The page behind the mapping belongs to somebody else, if not already then to this test.
    auto* const behind = static_cast<char*>(file.data()) + kPage;
    ::mmap(behind, kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE,
           -1, 0);
    unsigned char resident = 0;
    ASSERT_EQ(::mincore(behind, kPage, &resident), 0);
    file.doCleanMemoryCache();
    EXPECT_EQ(::mincore(behind, kPage, &resident), 0);
}

TEST_F(MemoryFileTest, FailedSeekIsLoggedAndFailsTheTruncate) {
    const auto child = [&] {
        MemoryFile file(path_.c_str());
        log_.Clear();
        FailSystemCall(SYS_lseek, static_cast<std::uint32_t>(file.fd()));
        const bool refused = !file.truncate(2 * kPage);
        const std::vector<std::string> expected{"Seek failed on " + std::to_string(file.fd()),
                                                "ZeroFillFile error, path: " + path_};
        std::_Exit(refused && log_.Errors() == expected ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

TEST_F(MemoryFileTest, FailedUnmapOfTruncateIsLoggedAndTheFileIsMappedAnew) {
    const auto child = [&] {
        MemoryFile file(path_.c_str());
        void* const old = file.data();
        log_.Clear();
        FailSystemCall(SYS_munmap, LowWord(old));
        const bool done = file.truncate(2 * kPage) && file.data() != old;
        const std::vector<std::string> expected{UnmapLine(old, kPage)};
        std::_Exit(done && log_.Errors() == expected ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

TEST_F(MemoryFileTest, FailedUnmapOfCleanIsLoggedAndTheFileIsClosed) {
    const auto child = [&] {
        MemoryFile file(path_.c_str());
        void* const old = file.data();
        log_.Clear();
        FailSystemCall(SYS_munmap, LowWord(old));
        file.doCleanMemoryCache();
        const std::vector<std::string> expected{UnmapLine(old, kPage)};
        const bool clean = file.data() == nullptr && file.fd() == -1;
        std::_Exit(clean && log_.Errors() == expected ? 0 : 1);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

TEST_F(MemoryFileTest, MmapReplacesTheMapping) {
    MemoryFile file(path_.c_str());
    std::memcpy(file.data(), "abcd", 4);
    log_.Clear();
    EXPECT_TRUE(file.mmap());
    EXPECT_EQ(ByteAt(file, 3), 'd');
    EXPECT_THAT(log_.Infos(), ElementsAre(MapLine(file)));
}

TEST_F(MemoryFileTest, FailedMmapIsLoggedAndLeavesNoMapping) {
    MemoryFile file(path_.c_str());
    log_.Clear();
    const int readOnly = ::open(path_.c_str(), O_RDONLY);
    ASSERT_GE(readOnly, 0);
    ASSERT_EQ(dup2(readOnly, file.fd()), file.fd());
    EXPECT_FALSE(file.mmap());
    EXPECT_EQ(file.data(), nullptr);
    EXPECT_THAT(log_.Errors(),
                ElementsAre("mmap failed, path: " + path_ + ", size: " + std::to_string(kPage)));
    log_.Clear();
    EXPECT_FALSE(file.msync(SyncFlag::Sync));
    EXPECT_THAT(log_.All(), IsEmpty());
    ::close(readOnly);
}

TEST_F(MemoryFileTest, TruncateWhoseMmapFailsUnmapsAndCloses) {
    MemoryFile file(path_.c_str());
    ASSERT_TRUE(file.truncate(3 * kPage));
    MakeUnwritable(file, 3 * kPage);
    log_.Clear();
    EXPECT_FALSE(file.truncate(kPage));
    EXPECT_EQ(file.fd(), -1);
    EXPECT_EQ(file.data(), nullptr);
    EXPECT_THAT(log_.Errors(),
                ElementsAre("mmap failed, path: " + path_ + ", size: " + std::to_string(kPage)));
}

TEST_F(MemoryFileTest, MsyncFlushesInBothWays) {
    MemoryFile file(path_.c_str());
    EXPECT_TRUE(file.msync(SyncFlag::Sync));
    EXPECT_TRUE(file.msync(SyncFlag::Async));
    EXPECT_TRUE(file.msync(static_cast<SyncFlag>(7)));
    EXPECT_EQ(static_cast<int>(SyncFlag::Sync), 0);
}

TEST_F(MemoryFileTest, FailedMsyncIsLogged) {
    MemoryFile file(path_.c_str());
    // Somebody takes the mapping away.
    ASSERT_EQ(::munmap(file.data(), kPage), 0);
    log_.Clear();
    EXPECT_FALSE(file.msync(SyncFlag::Async));
    EXPECT_THAT(log_.Errors(),
                ElementsAre("msync failed, path: " + path_ + ", size: " + std::to_string(kPage)));
}

TEST_F(MemoryFileTest, CleanUnmapsAndCloses) {
    MemoryFile file(path_.c_str());
    const int fd = file.fd();
    file.doCleanMemoryCache();
    EXPECT_EQ(file.fd(), -1);
    EXPECT_EQ(file.data(), nullptr);
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), -1);
    EXPECT_THAT(log_.Errors(), IsEmpty());
}

TEST_F(MemoryFileTest, FailedCloseIsLoggedAndKeepsTheDescriptor) {
    MemoryFile file(path_.c_str());
    const int fd = file.fd();
    ASSERT_EQ(::close(fd), 0);
    file.doCleanMemoryCache();
    EXPECT_EQ(file.fd(), fd);
    EXPECT_THAT(log_.Errors(), ElementsAre("close fd: " + std::to_string(fd) + " failed"));
}

TEST_F(MemoryFileTest, DestructorClosesTheDescriptor) {
    int fd = -1;
    {
        MemoryFile file(path_.c_str());
        fd = file.fd();
    }
    EXPECT_EQ(::lseek(fd, 0, SEEK_CUR), -1);
}

TEST_F(MemoryFileTest, DestructorSwallowsWhatTheLogHandlerThrows) {
    {
        MemoryFile file(path_.c_str());
        ASSERT_EQ(::close(file.fd()), 0);
        setLogHandler([](LogPriority, const char*, const char*) { throw std::runtime_error("x"); });
    }
    setLogHandler(nullptr);
}

TEST_F(MemoryFileTest, ConstructorInterruptedByTheLogHandlerLeavesNoDescriptorOpen) {
    setLogHandler([](LogPriority, const char*, const char*) { throw std::runtime_error("x"); });
    const auto nextNumber = [] {
        const int number = tqcommon::outOfTheWay(::dup(STDIN_FILENO));
        ::close(number);
        return number;
    };
    const int next = nextNumber();
    EXPECT_THROW(MemoryFile(path_.c_str()), std::runtime_error);
    EXPECT_EQ(nextNumber(), next);
}

}  // namespace
}  // namespace korva_audio_utils
