#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "common/ForkLocks.h"
#include "common/RealTime.h"
#include "inside_count.h"
#include "memory_file.h"
#include "process_records.h"

// The crash guard of the interception layer. The host says, hook by hook, whether interception is
// wanted or forbidden; a mapped file keeps that table for the next start. A second mapped file
// counts the threads inside intercepted functions until the host's first enableHook of the run: a
// process that dies in there leaves a count above 0, which costs one retry at the next start, and
// without retries the hooks stay out.
//
// A file that is cut short while the program runs costs its next launch what was stored in it,
// never this one its life.

namespace korva_audio_utils {

/// What init found in the files, before it spent a retry.
struct PreLaunchState {
    std::int32_t enterCount = 0;  ///< above 0: the last run died inside an intercepted function
    std::int32_t retryCount = 2;  ///< retries left
};

/// Whether hooks may be installed, or why not.
enum class HookVerdict {
    Armed,
    NeverEnabled,  ///< no hook has ever been asked for
    NotWanted,     ///< none is asked for any more
    Forbidden,     ///< one is forbidden, and with it all
    UsedUp,        ///< no retries left
    NoFiles,       ///< not initialised
};

/// What the config file holds.
struct HookTable {
    struct Item {
        std::uint32_t id = 0;
        bool enabled = false;
        bool forceDisabled = false;
    };
    bool isReadable = false;  ///< initialised, and not more than 20 items
    std::uint32_t retriesLeft = 0;
    std::vector<Item> items;

    /// A prohibition counts first, then whether anything is asked for, then the retries.
    [[nodiscard]] HookVerdict verdict() const;
};

class AudioHookConfig {
  public:
    /// [any thread] The one instance; made on first use, never destroyed.
    static AudioHookConfig* getInstance();

    /// [host thread] Opens and reads both files in the directory, which must be this user's own and
    /// closed to the writes of others, and no symbolic link. 0 done (also when done before, files
    /// untouched), 1 a file cannot be opened or mapped, 2 the table claims more than 20 items.
    /// After a failure it may be called again.
    virtual int init(const char* directory) = 0;
    /// [any thread] Real-time safe. The budget that the next enableHook or forceDisableHook
    /// restores; 2 at first.
    virtual void setRetryCount(unsigned count) = 0;
    /// [host thread] Whether the host wants a hook; takes effect at the next start and restores the
    /// budget. What other processes of the program have changed meanwhile is kept. 0 done, 3 not
    /// initialised, 4 the table holds 20 other ids.
    virtual int enableHook(unsigned id, bool enable) = 0;
    /// [host thread] Whether the host forbids a hook (and with it all); otherwise like enableHook.
    virtual int forceDisableHook(unsigned id, bool disable) = 0;
    /// [host thread] Whether hooks may be installed: initialised, retries left, nothing forbidden,
    /// something wanted.
    virtual bool isHookEnable() = 0;
    /// [any thread] Real-time safe. Reads 0 and 2 before init succeeded.
    virtual PreLaunchState getPreLaunchState() = 0;
    /// The file as it is now. Unlike the table in memory it keeps the items when the retries are
    /// used up, and shows what other processes of the same program have written.
    virtual HookTable table() = 0;
    /// What init found, after it spent a retry: what decided on this run's hooks.
    virtual HookVerdict verdictAtInit() = 0;

    AudioHookConfig(const AudioHookConfig&) = delete;
    AudioHookConfig& operator=(const AudioHookConfig&) = delete;

  protected:
    AudioHookConfig() = default;
    virtual ~AudioHookConfig() = default;
};

/// One mutex guards the table and the files. Outside it stand the two counts (see InsideCount), the
/// default of the retry budget and the state found at launch.
///
/// The count of threads inside callbacks lies in the count file, or in the process's own record
/// where another process of the program plays (see ProcessRecords). The second count, of threads
/// inside the rest of the library's code that a host may call, always lies in the record.
class AudioHookConfigImpl : public AudioHookConfig {
  public:
    AudioHookConfigImpl() = default;
    ~AudioHookConfigImpl() override = default;

    int init(const char* directory) override;
    void setRetryCount(unsigned count) override;
    int enableHook(unsigned id, bool enable) override;
    int forceDisableHook(unsigned id, bool disable) override;
    bool isHookEnable() override;
    PreLaunchState getPreLaunchState() override;
    HookTable table() override;
    HookVerdict verdictAtInit() override;

    /// [any thread] Real-time safe. Marks entry into and exit from an intercepted function.
    void enterHookFunc() noexcept TQ_NONBLOCKING { callbacks_.enter(); }
    void exitHookFunc() noexcept TQ_NONBLOCKING { callbacks_.leave(); }
    /// [any thread] Real-time safe. The same for the library's other code that hosts call.
    void enterRoad() noexcept TQ_NONBLOCKING { roads_.enter(); }
    void exitRoad() noexcept TQ_NONBLOCKING { roads_.leave(); }

    /// [any thread] The process is about to end, or to become another program, in order: from here
    /// on the files say that nobody is inside. Only in the process that counts, not in a child of
    /// vfork() that still uses its memory.
    void beginOrderlyEnding() noexcept;
    /// [any thread] It does not end after all.
    void takeBackOrderlyEnding() noexcept;

    /// Only in the child of a fork, which counts for itself.
    void afterForkInChild() noexcept;

    /// [host thread] The hooks stay out, so nothing is counted in the files and SIGBUS is the
    /// program's. A table is still read and written, with the signal taken for that long.
    void standAside() noexcept;
    /// [host thread] They are installed after all.
    void comeBack() noexcept;

    /// [host thread] The caller holds the mutex. Reads both files into the table and spends a retry
    /// after a crash. False when the table claims more than 20 items or there are no files.
    bool parseConfigList();
    /// [host thread] The caller holds the mutex. Writes table and budget and schedules the flush;
    /// nothing without a file.
    void writeToMMap(bool verbose);
    bool isInitSuccess() const noexcept { return initSuccess_.load(std::memory_order_acquire); }

  protected:
    struct ConfigItem {
        std::uint32_t id = 0;
        bool enabled = false;
        bool forceDisabled = false;
    };
    static constexpr std::size_t kMaxItems = 20;
    static constexpr std::size_t kConfigFileSize = 160;
    /// The records begin after two words and take 8 bytes each.
    using TableBytes = std::array<std::byte, 8 + kMaxItems * 8>;

    std::map<unsigned int, ConfigItem> items_;

  private:
    class FileAccess;

    int changeItem(unsigned id, bool ConfigItem::*flag, bool value);
    bool openFiles(const char* directory);
    void dropFiles();
    [[nodiscard]] HookTable readTable() const;
    [[nodiscard]] TableBytes tableBytes() const;
    void takeOthersChanges();
    void takeRecord() noexcept;
    [[nodiscard]] bool countsInCountFile() const noexcept;
    void bindCounts() noexcept;

    std::atomic<std::uint32_t> retryCount_{2};
    std::uint32_t remainingRetries_ = 0;
    /// The file as this object read or wrote it last.
    TableBytes seen_{};
    std::unique_ptr<MemoryFile> configFile_;
    std::unique_ptr<MemoryFile> countFile_;
    std::mutex mutex_;
    bool isAside_ = false;  // guarded by the mutex
    HookVerdict verdictAtInit_ = HookVerdict::NoFiles;
    std::atomic<bool> initSuccess_{false};
    /// Both numbers in one word, so that a reader never sees parts of two states.
    std::atomic<std::uint64_t> preLaunchState_{std::bit_cast<std::uint64_t>(PreLaunchState{})};
    std::unique_ptr<MemoryFile> recordsFile_;
    std::optional<ProcessRecords> records_;
    std::optional<std::size_t> ownRecord_;
    std::atomic<pid_t> ownProcess_{0};
    InsideCount callbacks_;
    InsideCount roads_;
    tqcommon::ForkLock atFork_{
        tqcommon::ForkOrder::Guard,
        mutex_,
        {[](void* config) { static_cast<AudioHookConfigImpl*>(config)->afterForkInChild(); },
         this}};
};

/// [any thread] Real-time safe once the instance exists. Marks its scope as being inside an
/// intercepted function.
class AudioHookFunctionGuards {
  public:
    AudioHookFunctionGuards();
    ~AudioHookFunctionGuards();
    AudioHookFunctionGuards(const AudioHookFunctionGuards&) = delete;
    AudioHookFunctionGuards& operator=(const AudioHookFunctionGuards&) = delete;
};

/// [any thread] Real-time safe once the instance exists. Marks its scope as being inside code of
/// the library, or of its listeners, that runs on a thread of the host outside the intercepted
/// callbacks.
class AudioHookRoadGuard {
  public:
    AudioHookRoadGuard();
    ~AudioHookRoadGuard();
    AudioHookRoadGuard(const AudioHookRoadGuard&) = delete;
    AudioHookRoadGuard& operator=(const AudioHookRoadGuard&) = delete;
};

/// [host thread] Whether hooks are installed once the library is loaded: where they are not, the
/// library keeps out of the program's signals. Told again when that changes.
void hooksAreInstalled(bool areThey) noexcept;

/// [any thread] While it lives, what ends this process is an orderly ending. Real-time safe.
class AudioHookOrderlyEnding {
  public:
    AudioHookOrderlyEnding();
    ~AudioHookOrderlyEnding();
    AudioHookOrderlyEnding(const AudioHookOrderlyEnding&) = delete;
    AudioHookOrderlyEnding& operator=(const AudioHookOrderlyEnding&) = delete;
};

}  // namespace korva_audio_utils
