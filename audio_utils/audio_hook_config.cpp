#include "audio_hook_config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "bus_handler.h"
#include "common/Descriptor.h"
#include "file_lock.h"
#include "log.h"

namespace korva_audio_utils {

namespace {

constexpr const char* kConfigFileName = "korva_audio_hook_config.flag";
constexpr const char* kCountFileName = "korva_audio_hook_func_count.flag";

constexpr std::size_t kCountFileSize = 4;

/// A folder that nobody else can put a file into, or lead elsewhere.
class OwnFolder {
  public:
    explicit OwnFolder(std::string path) : path_(std::move(path)) {
        // With a slash at its end a symbolic link would be followed.
        while (path_.size() > 1 && path_.back() == '/') {
            path_.pop_back();
        }
        fd_ = tqcommon::outOfTheWay(
            ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat status {};
        if (fd_ >= 0 && (::fstat(fd_, &status) != 0 || status.st_uid != ::geteuid() ||
                         (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    ~OwnFolder() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    OwnFolder(const OwnFolder&) = delete;
    OwnFolder& operator=(const OwnFolder&) = delete;

    /// The file is not usable where the folder is not.
    [[nodiscard]] std::unique_ptr<MemoryFile> file(const char* name, std::size_t size) const {
        auto file = std::make_unique<MemoryFile>(fd_, path_, name);
        file->truncate(size);
        return file;
    }

  private:
    std::string path_;
    int fd_ = -1;
};

/// A mapping that reaches beyond the file's end would raise SIGBUS at the first access.
bool IsSafeToAccess(const MemoryFile& file) {
    return file.isUsable() && static_cast<std::size_t>(file.getActualFileSize()) >= file.size();
}

AudioHookConfigImpl& TheConfig() {
    // getInstance makes nothing else.
    return static_cast<AudioHookConfigImpl&>(*AudioHookConfig::getInstance());
}

constinit std::atomic<AudioHookConfigImpl*> theInstance{nullptr};

/// A function of its own: every call that is guarded asks for the instance, and none but the first
/// ones shall pay for what this needs.
[[gnu::cold, gnu::noinline]] AudioHookConfigImpl* MakeInstance() {
    // No fork waits for it: the library asks for the instance while it is loaded, so that it is
    // there before the program's own threads.
    static std::mutex creation;
    const std::lock_guard lock(creation);
    AudioHookConfigImpl* current = theInstance.load(std::memory_order_relaxed);
    if (current == nullptr) {
        // Never freed: render threads may still use it while the process exits.
        current = std::make_unique<AudioHookConfigImpl>().release();
        theInstance.store(current, std::memory_order_release);
        tqcommon::ForkLock::watch();
        // Threads may play until the very end; whether they are inside then says nothing.
        std::atexit([] { TheConfig().beginOrderlyEnding(); });
        std::at_quick_exit([] { TheConfig().beginOrderlyEnding(); });
    }
    return current;
}

}  // namespace

AudioHookConfig* AudioHookConfig::getInstance() {
    AudioHookConfigImpl* const current = theInstance.load(std::memory_order_acquire);
    return current != nullptr ? current : MakeInstance();
}

/// [mutex held] While it lives, the files may be read and written by this thread.
class AudioHookConfigImpl::FileAccess {
  public:
    explicit FileAccess(bool isAside) noexcept : isAside_(isAside) {
        BusGuard::letThrough();
        if (isAside_) {
            takeBusHandlerBack();
        }
    }
    ~FileAccess() {
        if (isAside_) {
            giveBusHandlerBack();
        }
    }
    FileAccess(const FileAccess&) = delete;
    FileAccess& operator=(const FileAccess&) = delete;

  private:
    const bool isAside_;
};

int AudioHookConfigImpl::init(const char* directory) {
    const std::lock_guard lock(mutex_);
    const FileAccess access(isAside_);
    if (isInitSuccess()) {
        return 0;
    }
    if (directory == nullptr || *directory == '\0') {
        return 1;
    }
    if (!openFiles(directory)) {
        dropFiles();
        log(LogPriority::Warn, kUtilityLogTag, "No usable files in %s, the hooks stay out",
            directory);
        return 1;
    }
    {
        const FileLock otherProcesses(configFile_->fd());
        if (!parseConfigList()) {
            dropFiles();
            return 2;
        }
    }
    verdictAtInit_ = readTable().verdict();
    // From here on enter and exit write to the files. Their mappings are never moved again.
    if (!isAside_) {
        bindCounts();
    }
    initSuccess_.store(true, std::memory_order_release);
    return 0;
}

bool AudioHookConfigImpl::openFiles(const char* directory) {
    const OwnFolder folder(directory);
    configFile_ = folder.file(kConfigFileName, kConfigFileSize);
    countFile_ = folder.file(kCountFileName, kCountFileSize);
    if (!IsSafeToAccess(*configFile_) || !IsSafeToAccess(*countFile_)) {
        return false;
    }
    // Without it every launch counts in the count file alone.
    recordsFile_ = folder.file(tqcommon::kGuardRecordsFile,
                               tqcommon::kGuardRecords * sizeof(tqcommon::GuardRecord));
    if (IsSafeToAccess(*recordsFile_)) {
        records_.emplace(*recordsFile_);
    }
    return true;
}

void AudioHookConfigImpl::dropFiles() {
    configFile_.reset();
    countFile_.reset();
    ownRecord_.reset();
    records_.reset();
    recordsFile_.reset();
}

void AudioHookConfigImpl::setRetryCount(unsigned count) {
    retryCount_.store(count, std::memory_order_relaxed);
}

int AudioHookConfigImpl::enableHook(unsigned id, bool enable) {
    const std::lock_guard lock(mutex_);
    const int result = changeItem(id, &ConfigItem::enabled, enable);
    if (result == 0 && enable) {
        callbacks_.stop();
        roads_.stop();
    }
    return result;
}

int AudioHookConfigImpl::forceDisableHook(unsigned id, bool disable) {
    const std::lock_guard lock(mutex_);
    return changeItem(id, &ConfigItem::forceDisabled, disable);
}

int AudioHookConfigImpl::changeItem(unsigned id, bool ConfigItem::*flag, bool value) {
    if (!isInitSuccess()) {
        return 3;
    }
    const FileAccess access(isAside_);
    const FileLock otherProcesses(configFile_->fd());
    takeOthersChanges();
    remainingRetries_ = retryCount_.load(std::memory_order_relaxed);
    if (!items_.contains(id) && items_.size() >= kMaxItems) {
        return 4;
    }
    ConfigItem& item = items_[id];
    item.id = id;
    item.*flag = value;
    writeToMMap(true);
    return 0;
}

bool AudioHookConfigImpl::isHookEnable() {
    const std::lock_guard lock(mutex_);
    if (!isInitSuccess() || remainingRetries_ == 0) {
        return false;
    }
    bool anyEnabled = false;
    for (const auto& [id, item] : items_) {
        if (item.forceDisabled) {
            return false;
        }
        anyEnabled = anyEnabled || item.enabled;
    }
    return anyEnabled;
}

PreLaunchState AudioHookConfigImpl::getPreLaunchState() {
    return std::bit_cast<PreLaunchState>(preLaunchState_.load(std::memory_order_acquire));
}

HookTable AudioHookConfigImpl::table() {
    const std::lock_guard lock(mutex_);
    const FileAccess access(isAside_);
    return isInitSuccess() && configFile_->data() != nullptr ? readTable() : HookTable{};
}

HookVerdict AudioHookConfigImpl::verdictAtInit() {
    const std::lock_guard lock(mutex_);
    return verdictAtInit_;
}

void AudioHookConfigImpl::takeRecord() noexcept {
    ownRecord_ = records_ ? records_->take() : std::nullopt;
    ownProcess_.store(::getpid());
}

bool AudioHookConfigImpl::countsInCountFile() const noexcept {
    return !records_ || ownRecord_ == 0U;
}

/// A process that finds no record free, and is not alone, does not count.
void AudioHookConfigImpl::bindCounts() noexcept {
    if (countsInCountFile()) {
        callbacks_.bind(static_cast<std::uint32_t*>(countFile_->data()));
    } else if (ownRecord_) {
        callbacks_.bind(&records_->at(*ownRecord_).callbacks);
    }
    if (ownRecord_) {
        roads_.bind(&records_->at(*ownRecord_).roads);
    }
}

void AudioHookConfigImpl::beginOrderlyEnding() noexcept {
    if (::getpid() == ownProcess_.load()) {
        BusGuard::letThrough();
        callbacks_.leaveWord();
        roads_.leaveWord();
    }
}

void AudioHookConfigImpl::takeBackOrderlyEnding() noexcept {
    if (::getpid() == ownProcess_.load()) {
        bindCounts();
        callbacks_.rewrite();
        roads_.rewrite();
    }
}

void AudioHookConfigImpl::afterForkInChild() noexcept {
    callbacks_.forget();
    roads_.forget();
    keepBusHandlerInChild();
    if (isInitSuccess() && !isAside_) {
        BusGuard::letThrough();
        takeRecord();
        bindCounts();
    }
}

void AudioHookConfigImpl::standAside() noexcept {
    const std::lock_guard lock(mutex_);
    if (!isAside_) {
        isAside_ = true;
        callbacks_.leaveWord();
        roads_.leaveWord();
        giveBusHandlerBack();
    }
}

void AudioHookConfigImpl::comeBack() noexcept {
    const std::lock_guard lock(mutex_);
    if (!isAside_) {
        return;
    }
    isAside_ = false;
    takeBusHandlerBack();
    if (isInitSuccess()) {
        BusGuard::letThrough();
        if (::getpid() != ownProcess_.load()) {
            takeRecord();
        }
        bindCounts();
        callbacks_.rewrite();
        roads_.rewrite();
    }
}

void hooksAreInstalled(bool areThey) noexcept {
    areThey ? TheConfig().comeBack() : TheConfig().standAside();
}

AudioHookFunctionGuards::AudioHookFunctionGuards() {
    TheConfig().enterHookFunc();
}

AudioHookFunctionGuards::~AudioHookFunctionGuards() {
    TheConfig().exitHookFunc();
}

AudioHookRoadGuard::AudioHookRoadGuard() {
    TheConfig().enterRoad();
}

AudioHookRoadGuard::~AudioHookRoadGuard() {
    TheConfig().exitRoad();
}

AudioHookOrderlyEnding::AudioHookOrderlyEnding() {
    TheConfig().beginOrderlyEnding();
}

AudioHookOrderlyEnding::~AudioHookOrderlyEnding() {
    TheConfig().takeBackOrderlyEnding();
}

}  // namespace korva_audio_utils
