#include "output/files/PartFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <utility>

#include "output/files/FileNames.h"

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;

constexpr const char* kBusy = ": another recorder is writing it";

/// The lock of a file under way. True also where the file system knows no locks.
bool lock(int file) {
    return flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

bool isBusy(const std::string& path) {
    const tqcommon::Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return file && !lock(file.get());
}

/// Whether a recording that could not take its name was left there: it is write-protected then.
bool isKept(const std::string& part) {
    struct stat status {};
    return lstat(part.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           (status.st_mode & S_IWUSR) == 0 && !isBusy(part);
}

/// A name that nobody gives to a file of his own, and that no recording is kept under.
std::string partOf(const std::string& target) {
    constexpr std::size_t kLongest = 200;  // the system takes 255 bytes
    const fs::path whole(target);
    std::string name = whole.filename().string();
    if (name.size() > kLongest) {
        const std::size_t mark = std::hash<std::string>{}(name);
        name = name.substr(0, kLongest) + std::to_string(mark);
    }
    const std::string first = (whole.parent_path() / ("." + name + ".tqaudiorecord")).string();
    std::string part = first;
    for (unsigned number = 2; isKept(part); ++number) {
        part = first + "-" + std::to_string(number);
    }
    return part;
}

/// Whether what was found under that name is what a recorder leaves: through a link, or shared with
/// another name, it may be anybody's document.
bool isLeftByARecorder(int file) {
    struct stat status {};
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink <= 1 &&
           status.st_uid == geteuid();
}

/// Whether a recorder that was killed left it, and nobody has it open any more.
bool isLeft(const std::string& part) {
    constexpr int kHow = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const tqcommon::Descriptor file(::open(part.c_str(), kHow));
    return file && isLeftByARecorder(file.get()) && lock(file.get());
}

/// Fails with EEXIST where something has the name.
bool renameToFree(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    // Some file systems know no such renaming.
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    std::error_code failure;
    if (fs::exists(fs::symlink_status(to, failure))) {
        errno = EEXIST;
        return false;
    }
    return ::rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

PartFile::PartFile(std::string path, bool mayReplace)
    : path_(std::move(path)), target_(linkTarget(path_)), mayReplace_(mayReplace) {
    if (!open() && problem_.empty()) {
        problem_ = path_ + ": " + std::strerror(errno);
    }
}

PartFile::~PartFile() {
    if (!hasName_ && !isKept_ && isAt(part_)) {
        ::unlink(part_.c_str());
    }
}

bool PartFile::open() {
    // The file beside the name has a shorter one: only the name itself would be refused, at the
    // end.
    if (fs::path(target_).filename().string().size() > NAME_MAX) {
        errno = ENAMETOOLONG;
        return false;
    }
    struct stat status {};
    if (stat(target_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        // A device; of a folder the system says what it is.
        file_ = tqcommon::Descriptor(::open(target_.c_str(), O_RDWR | O_CLOEXEC));
        hasName_ = static_cast<bool>(file_);
        return hasName_;
    }
    const std::string part = partOf(target_);
    if (isBusy(target_) || isBusy(part)) {
        problem_ = path_ + kBusy;
        return false;
    }
    part_ = part;
    do {
        constexpr int kHow = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
        file_ = tqcommon::Descriptor(::open(part_.c_str(), kHow, 0666));
        if (!file_ && errno != ELOOP && errno != EISDIR) {
            return false;
        }
        if (!file_ || !isLeftByARecorder(file_.get())) {
            problem_ = path_ + ": " + part_ + " is in the way and no recording of yours";
            file_.reset();
            part_.clear();
            return false;
        }
        if (!lock(file_.get())) {
            problem_ = path_ + kBusy;
            file_.reset();
            return false;
        }
        struct stat opened {};
        if (fstat(file_.get(), &opened) != 0) {
            return false;
        }
        device_ = opened.st_dev;
        number_ = opened.st_ino;
        // Between the two calls it may have got its name from a recorder that has ended since.
    } while (!isAt(part_));
    // What is in it was left by a recorder that was killed before there was any sound.
    return ftruncate(file_.get(), 0) == 0;
}

bool PartFile::isAt(const std::string& place) const {
    struct stat here {};
    return !part_.empty() && stat(place.c_str(), &here) == 0 && here.st_dev == device_ &&
           here.st_ino == number_;
}

void PartFile::letGo() {
    file_.reset();
}

tqcommon::Descriptor PartFile::descriptor() const {
    return tqcommon::Descriptor(fcntl(file_.get(), F_DUPFD_CLOEXEC, 3));
}

void PartFile::moveTo(std::string path) {
    if (part_.empty()) {
        return;
    }
    std::string target = linkTarget(path);
    std::string part = partOf(target);
    if (hasName_) {
        const bool isDone =
            isAt(target_) && (mayReplace_ ? ::rename(target_.c_str(), target.c_str()) == 0
                                          : renameToFree(target_, target));
        if (!isDone) {
            return;
        }
    } else {
        movePart(part);
    }
    path_ = std::move(path);
    target_ = std::move(target);
}

/// What stays under its own name would be in the way of who gets that name.
void PartFile::movePart(const std::string& part) {
    constexpr unsigned kMostNames = 1000;
    std::string to = part;
    bool isDone = renameToFree(part_, to) ||
                  (errno == EEXIST && isLeft(to) && ::rename(part_.c_str(), to.c_str()) == 0);
    for (unsigned number = 2; !isDone && number < kMostNames; ++number) {
        to = part + "-" + std::to_string(number);
        isDone = renameToFree(part_, to);
    }
    if (isDone) {
        part_ = std::move(to);
    }
}

std::string PartFile::takeName() {
    if (hasName_) {
        return {};
    }
    const bool isDone =
        mayReplace_ ? ::rename(part_.c_str(), target_.c_str()) == 0 : renameToFree(part_, target_);
    hasName_ = isDone;
    if (isDone) {
        return {};
    }
    const std::string wanted = path_;
    while (errno == EEXIST && !hasName_) {
        path_ = target_ = freePath(wanted);
        hasName_ = renameToFree(part_, target_);
    }
    return hasName_
               ? wanted + ": another file has taken that name meanwhile; the recording is " + path_
               : wanted + ": " + std::strerror(errno);
}

std::string PartFile::takeNameOrKeep() {
    std::string problem = takeName();
    return problem.empty() || hasName_ ? problem
                                       : problem + "; what was recorded is kept as " + keep();
}

std::string PartFile::takeNameBeside() {
    mayReplace_ = false;
    const std::string wanted = path_;
    std::string problem = takeNameOrKeep();
    return !hasName_ ? problem
                     : wanted +
                           ": stays as it was, since only the microphone was heard; the new "
                           "recording is " +
                           path_;
}

const std::string& PartFile::keep() {
    isKept_ = true;
    struct stat status {};
    if (isAt(part_) && stat(part_.c_str(), &status) == 0) {
        (void)chmod(part_.c_str(), status.st_mode & 0555U);
    }
    return part_;
}

bool PartFile::isNameTaken() const {
    std::error_code failure;
    return !hasName_ && fs::exists(fs::symlink_status(target_, failure));
}

bool PartFile::isStillThere() const {
    return !hasName_ || part_.empty() || isAt(target_);
}

std::string whyNotWritten(const std::string& path, bool mayReplace) {
    const std::string target = linkTarget(path);
    if (isBusy(target) || isBusy(partOf(target))) {
        return path + kBusy;
    }
    std::error_code failure;
    if (!fs::is_regular_file(target, failure)) {
        return {};
    }
    // It would be replaced whatever its mode says.
    return !mayReplace                         ? path + " is there already; --overwrite replaces it"
           : access(target.c_str(), W_OK) != 0 ? path + ": " + std::strerror(errno)
                                               : std::string();
}

std::string linkTarget(const std::string& path) {
    constexpr int kMostLinks = 16;
    fs::path place = path;
    std::error_code failure;
    for (int links = 0; links < kMostLinks && fs::is_symlink(place, failure); ++links) {
        // One that is absolute replaces the folder.
        place = place.parent_path() / fs::read_symlink(place, failure);
    }
    return place.string();
}

std::string freePath(const std::string& path) {
    std::error_code failure;
    std::string free = path;
    for (unsigned number = 2; fs::exists(fs::symlink_status(free, failure)) || isBusy(partOf(free));
         ++number) {
        free = withAddition(path, "-" + std::to_string(number));
    }
    return free;
}

}  // namespace tqrecorder
