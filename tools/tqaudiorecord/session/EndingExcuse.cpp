#include "session/EndingExcuse.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>

#include "common/Descriptor.h"
#include "common/GuardRecords.h"
#include "common/ProcessStart.h"

namespace tqrecorder {
namespace {

using tqcommon::GuardRecord;

/// In the file of records that the process has open, which is found without knowing its caches.
void excuseIn(const std::string& path, pid_t process) {
    const tqcommon::Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    std::array<GuardRecord, tqcommon::kGuardRecords> records{};
    if (file.get() < 0 || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        pread(file.get(), records.data(), sizeof records, 0) != sizeof records) {
        return;
    }
    for (std::size_t index = 0; index < records.size(); ++index) {
        if (records[index].process == static_cast<std::uint32_t>(process) &&
            records[index].started == tqcommon::processStart(process)) {
            const std::uint32_t excused = 1;
            const std::size_t place = index * sizeof(GuardRecord) + offsetof(GuardRecord, excused);
            // One that cannot be written leaves the guard as careful as before.
            (void)!pwrite(file.get(), &excused, sizeof excused, static_cast<off_t>(place));
        }
    }
}

}  // namespace

void excuseEnding(pid_t process) {
    namespace fs = std::filesystem;
    if (process <= 0) {
        return;
    }
    std::error_code error;
    const fs::path folder = "/proc/" + std::to_string(process) + "/fd";
    for (fs::directory_iterator each(folder, error), end; !error && each != end;
         each.increment(error)) {
        std::error_code unreadable;
        if (fs::read_symlink(each->path(), unreadable).filename() == tqcommon::kGuardRecordsFile) {
            excuseIn(each->path(), process);
        }
    }
}

}  // namespace tqrecorder
