#include "session/ElfFile.h"

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

#include "common/ElfNames.h"
#include "common/Machine.h"

namespace tqrecorder {
namespace {

constexpr std::uint64_t kMostTable = 1U << 20U;

/// Reads parts of a file, no further than its end.
class Parts {
  public:
    explicit Parts(const std::string& path) : file_(path, std::ios::binary) {}

    [[nodiscard]] std::vector<char> bytes(std::uint64_t offset, std::uint64_t size) {
        std::vector<char> result(std::min(size, kMostTable));
        file_.clear();
        file_.seekg(static_cast<std::streamoff>(offset));
        file_.read(result.data(), static_cast<std::streamsize>(result.size()));
        result.resize(static_cast<std::size_t>(std::max<std::streamsize>(file_.gcount(), 0)));
        return result;
    }
    template <typename Record>
    [[nodiscard]] std::vector<Record> records(std::uint64_t offset, std::uint64_t bytesWanted) {
        const std::vector<char> raw = bytes(offset, bytesWanted);
        std::vector<Record> list(raw.size() / sizeof(Record));
        if (!list.empty()) {
            std::memcpy(list.data(), raw.data(), list.size() * sizeof(Record));
        }
        return list;
    }

  private:
    std::ifstream file_;
};

std::string textAt(const std::vector<char>& table, std::uint64_t offset) {
    if (offset >= table.size()) {
        return {};
    }
    const auto begin = table.begin() + static_cast<std::ptrdiff_t>(offset);
    return {begin, std::find(begin, table.end(), '\0')};
}

std::vector<std::string> searchPathOf(const std::string& text, const std::string& origin) {
    std::vector<std::string> folders;
    for (std::size_t begin = 0; begin <= text.size() && folders.size() < ElfFile::kMostFolders;) {
        const std::size_t end = std::min(text.find(':', begin), text.size());
        std::string folder = text.substr(begin, end - begin);
        for (const std::string_view name : {"$ORIGIN", "${ORIGIN}"}) {
            // Behind what was put in: the folder's own name may hold the same letters.
            for (std::size_t at = 0; (at = folder.find(name, at)) != std::string::npos;) {
                folder.replace(at, name.size(), origin);
                at += origin.size();
            }
        }
        if (!folder.empty()) {
            folders.push_back(std::move(folder));
        }
        begin = end + 1;
    }
    return folders;
}

/// The dynamic table as it stands in the file.
class FileDynamic {
  public:
    FileDynamic(Parts& parts, const std::vector<Elf64_Phdr>& segments)
        : parts_(parts), segments_(segments) {
        for (const Elf64_Phdr& segment : segments) {
            if (segment.p_type == PT_DYNAMIC) {
                entries_ = parts.records<Elf64_Dyn>(segment.p_offset, segment.p_filesz);
            }
        }
    }
    [[nodiscard]] std::optional<Elf64_Dyn> dynamicEntry(std::size_t index) const {
        return index < entries_.size() ? std::optional(entries_[index]) : std::nullopt;
    }
    /// Good until the next call.
    [[nodiscard]] std::string_view texts(std::uintptr_t address, std::uintptr_t size) const {
        texts_.clear();
        // The table is named by its address; the segment that is loaded there knows its place.
        for (const Elf64_Phdr& segment : segments_) {
            if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                address - segment.p_vaddr < segment.p_filesz) {
                texts_ = parts_.bytes(segment.p_offset + (address - segment.p_vaddr), size);
            }
        }
        return {texts_.data(), texts_.size()};
    }

  private:
    Parts& parts_;
    const std::vector<Elf64_Phdr>& segments_;
    std::vector<Elf64_Dyn> entries_;
    mutable std::vector<char> texts_;
};

void readDynamicSection(Parts& parts, const std::vector<Elf64_Phdr>& segments,
                        const std::string& path, ElfFile& elf) {
    const FileDynamic dynamic(parts, segments);
    tqcommon::forEachDynamicName(dynamic, DT_NEEDED,
                                 [&elf](std::string_view name) { elf.needed.emplace_back(name); });
    const std::string origin = std::filesystem::path(path).parent_path().string();
    for (const Elf64_Sxword tag : {DT_RPATH, DT_RUNPATH}) {
        tqcommon::forEachDynamicName(dynamic, tag, [&](std::string_view text) {
            const auto more = searchPathOf(std::string(text), origin);
            elf.searchPath.insert(elf.searchPath.end(), more.begin(), more.end());
            elf.searchPath.resize(std::min(elf.searchPath.size(), ElfFile::kMostFolders));
        });
    }
}

}  // namespace

std::optional<ElfFile> readElfFile(const std::string& path) {
    Parts parts(path);
    const auto heads = parts.records<Elf64_Ehdr>(0, sizeof(Elf64_Ehdr));
    const std::vector<char> magic = parts.bytes(0, SELFMAG);
    if (magic.size() < SELFMAG || std::memcmp(magic.data(), ELFMAG, SELFMAG) != 0) {
        return std::nullopt;
    }
    ElfFile elf;
    if (heads.empty()) {
        return elf;
    }
    const Elf64_Ehdr& head = heads.front();
    elf.isOurMachine = tqcommon::isForThisMachine(head);
    if (!elf.isOurMachine || head.e_phentsize != sizeof(Elf64_Phdr)) {
        return elf;
    }
    const auto segments =
        parts.records<Elf64_Phdr>(head.e_phoff, std::uint64_t{head.e_phnum} * sizeof(Elf64_Phdr));
    elf.isStatic = true;
    for (const Elf64_Phdr& segment : segments) {
        if (segment.p_type == PT_INTERP) {
            elf.isStatic = false;
            elf.interpreter = textAt(parts.bytes(segment.p_offset, segment.p_filesz), 0);
        }
    }
    readDynamicSection(parts, segments, path, elf);
    return elf;
}

}  // namespace tqrecorder
