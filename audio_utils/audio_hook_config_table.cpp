#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "audio_hook_config.h"
#include "log.h"

// What the files hold, and how it is read and written.

namespace korva_audio_utils {

namespace {

// Both files are little-endian, which is what the supported machines store.
static_assert(std::endian::native == std::endian::little);

// Layout of the config file.
constexpr std::size_t kItemCountOffset = 0;
constexpr std::size_t kRetriesOffset = 4;
constexpr std::size_t kFirstItemOffset = 8;
constexpr std::size_t kItemSize = 8;
constexpr std::size_t kItemEnabledOffset = 4;
constexpr std::size_t kItemForceDisabledOffset = 5;

std::uint32_t ReadWord(const std::byte* bytes) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

void WriteWord(std::byte* bytes, std::uint32_t value) {
    std::memcpy(bytes, &value, sizeof value);
}

}  // namespace

/// [mutex and file lock held] Items that another process has written since this one looked replace
/// those in memory.
void AudioHookConfigImpl::takeOthersChanges() {
    if (!configFile_->mend()) {
        return;
    }
    const HookTable table = readTable();
    // An empty table is nobody's change: items are never removed. The file was emptied.
    if (!table.isReadable || table.items.empty() || tableBytes() == seen_) {
        return;
    }
    items_.clear();
    if (table.retriesLeft > 0) {
        for (const HookTable::Item& item : table.items) {
            items_[item.id] = {item.id, item.enabled, item.forceDisabled};
        }
    }
}

/// [mutex held] There are files. One copy, as another process of the program may be writing.
AudioHookConfigImpl::TableBytes AudioHookConfigImpl::tableBytes() const {
    TableBytes bytes{};
    std::memcpy(bytes.data(), configFile_->data(), bytes.size());
    return bytes;
}

/// [mutex held] There are files.
HookTable AudioHookConfigImpl::readTable() const {
    const TableBytes config = tableBytes();
    HookTable table;
    const std::uint32_t count = ReadWord(&config[kItemCountOffset]);
    table.isReadable = count <= kMaxItems;
    table.retriesLeft = ReadWord(&config[kRetriesOffset]);
    for (std::size_t k = 0; table.isReadable && k < count; ++k) {
        const std::byte* const record = &config[kFirstItemOffset + k * kItemSize];
        table.items.push_back({ReadWord(record), record[kItemEnabledOffset] != std::byte{0},
                               record[kItemForceDisabledOffset] != std::byte{0}});
    }
    return table;
}

HookVerdict HookTable::verdict() const {
    if (!isReadable) {
        return HookVerdict::NoFiles;
    }
    bool isWanted = false;
    for (const Item& item : items) {
        if (item.forceDisabled) {
            return HookVerdict::Forbidden;
        }
        isWanted = isWanted || item.enabled;
    }
    if (items.empty()) {
        return HookVerdict::NeverEnabled;
    }
    if (!isWanted) {
        return HookVerdict::NotWanted;
    }
    return retriesLeft > 0 ? HookVerdict::Armed : HookVerdict::UsedUp;
}

bool AudioHookConfigImpl::parseConfigList() {
    if (!configFile_ || !countFile_) {
        return false;
    }
    const TableBytes config = tableBytes();
    seen_ = config;

    const std::uint32_t count = ReadWord(&config[kItemCountOffset]);
    if (count > kMaxItems) {
        return false;
    }
    remainingRetries_ = ReadWord(&config[kRetriesOffset]);
    items_.clear();
    log(LogPriority::Info, kUtilityLogTag, "parseConfigList: length: %d, count: %d",
        static_cast<int>(count), static_cast<int>(remainingRetries_));
    for (std::size_t k = 0; k < count; ++k) {
        const std::byte* const record = &config[kFirstItemOffset + k * kItemSize];
        ConfigItem item;
        item.id = ReadWord(record);
        item.enabled = record[kItemEnabledOffset] != std::byte{0};
        item.forceDisabled = record[kItemForceDisabledOffset] != std::byte{0};
        items_[item.id] = item;
        log(LogPriority::Info, kUtilityLogTag, "item: %d, %d", static_cast<int>(item.id),
            static_cast<int>(item.enabled));
    }
    if (remainingRetries_ == 0) {
        items_.clear();
    }

    const auto others = records_ ? records_->inspect() : ProcessRecords::Found{};
    auto entered =
        static_cast<std::int32_t>(ReadWord(static_cast<const std::byte*>(countFile_->data())));
    if (others.isFirstHeld || !others.isFirstADeath) {
        entered = 0;
    }
    entered = std::max(entered, 0) + static_cast<std::int32_t>(others.insideAtDeath) +
              std::min(entered, 0) * (others.insideAtDeath == 0 ? 1 : 0);
    const PreLaunchState found{entered, static_cast<std::int32_t>(remainingRetries_)};
    preLaunchState_.store(std::bit_cast<std::uint64_t>(found), std::memory_order_release);
    log(LogPriority::Info, kUtilityLogTag, "parseCountFile: %d", entered);
    if (entered >= 1 && remainingRetries_ > 0) {
        --remainingRetries_;
        writeToMMap(true);
    }
    takeRecord();
    if (countsInCountFile()) {
        std::memset(countFile_->data(), 0, countFile_->size());
    }
    return true;
}

void AudioHookConfigImpl::writeToMMap(bool verbose) {
    if (!configFile_) {
        return;
    }
    if (!configFile_->mend() && verbose) {
        log(LogPriority::Warn, kUtilityLogTag, "The file %s is lost, changes stay in memory",
            configFile_->path().c_str());
    }
    auto* const bytes = static_cast<std::byte*>(configFile_->data());
    if (bytes == nullptr) {
        return;
    }
    const auto items = items_;
    if (items.size() > kMaxItems) {
        std::memset(bytes, 0, kConfigFileSize);
        if (verbose) {
            log(LogPriority::Error, kUtilityLogTag, "Can not wirte config to file, id is overflow");
        }
        return;
    }
    WriteWord(bytes + kItemCountOffset, static_cast<std::uint32_t>(items.size()));
    WriteWord(bytes + kRetriesOffset, remainingRetries_);
    if (verbose) {
        log(LogPriority::Info, kUtilityLogTag,
            "Success to wirte config to file: length: %d, count: %d",
            static_cast<int>(items.size()), static_cast<int>(remainingRetries_));
    }
    std::byte* record = bytes + kFirstItemOffset;
    for (const auto& [id, item] : items) {
        WriteWord(record, id);
        WriteWord(record + kItemEnabledOffset, 0);
        record[kItemEnabledOffset] = static_cast<std::byte>(item.enabled);
        record[kItemForceDisabledOffset] = static_cast<std::byte>(item.forceDisabled);
        record += kItemSize;
        if (verbose) {
            log(LogPriority::Info, kUtilityLogTag, "item: %d, %d", static_cast<int>(id),
                static_cast<int>(item.enabled));
        }
    }
    seen_ = tableBytes();
    configFile_->msync(SyncFlag::Async);
}

}  // namespace korva_audio_utils
