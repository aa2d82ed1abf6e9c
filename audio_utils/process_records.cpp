#include "process_records.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cstring>

#include "common/ProcessStart.h"

namespace korva_audio_utils {

namespace {

using tqcommon::GuardRecord;

/// A number that every exec draws anew and that children keep.
std::uint64_t ProgramImage() noexcept {
    std::uint64_t image = 0;
    if (const auto* const random = reinterpret_cast<const void*>(::getauxval(AT_RANDOM))) {
        std::memcpy(&image, random, sizeof image);
    }
    return image;
}

struct flock LockOf(std::size_t index) noexcept {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(index);
    lock.l_len = 1;
    return lock;
}

}  // namespace

ProcessRecords::Found ProcessRecords::inspect() {
    Found found;
    for (std::size_t index = 0; index < tqcommon::kGuardRecords; ++index) {
        GuardRecord& record = at(index);
        if (record.process == 0) {
            continue;
        }
        if (isHeldByOther(index)) {
            found.isFirstHeld = found.isFirstHeld || index == 0;
            continue;
        }
        // A process that is there without its lock has become another program by exec. This very
        // program is met here only by a second store of the same process.
        const auto process = static_cast<pid_t>(record.process);
        const bool isThere = tqcommon::processStart(process) == record.started;
        const bool isHere = isThere && process == ::getpid() && record.image == ProgramImage();
        const bool isDeath = record.excused == 0 && (!isThere || isHere);
        if (isDeath) {
            found.insideAtDeath += record.roads + (index > 0 ? record.callbacks : 0);
        }
        found.isFirstADeath = found.isFirstADeath && (isDeath || index > 0);
        record = GuardRecord{};
    }
    return found;
}

std::optional<std::size_t> ProcessRecords::take() noexcept {
    for (std::size_t index = 0; index < tqcommon::kGuardRecords; ++index) {
        if (at(index).process == 0 && lock(index)) {
            const pid_t process = ::getpid();
            at(index) = {static_cast<std::uint32_t>(process),
                         0,
                         0,
                         0,
                         tqcommon::processStart(process),
                         ProgramImage()};
            return index;
        }
    }
    return std::nullopt;
}

bool ProcessRecords::isHeldByOther(std::size_t index) const noexcept {
    struct flock lock = LockOf(index);
    return ::fcntl(file_.fd(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

bool ProcessRecords::lock(std::size_t index) const noexcept {
    const struct flock lock = LockOf(index);
    return ::fcntl(file_.fd(), F_SETLK, &lock) == 0;
}

}  // namespace korva_audio_utils
