#include "session/ElfFile.h"

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

namespace tqrecorder {
namespace {

#if defined(__x86_64__)
constexpr Elf64_Half kMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr Elf64_Half kMachine = EM_AARCH64;
#elif defined(__riscv)
constexpr Elf64_Half kMachine = EM_RISCV;
#else
constexpr Elf64_Half kMachine = EM_NONE;
#endif

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
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(':', begin), text.size());
        std::string folder = text.substr(begin, end - begin);
        for (const std::string_view name : {"$ORIGIN", "${ORIGIN}"}) {
            for (std::size_t at = 0; (at = folder.find(name)) != std::string::npos;) {
                folder.replace(at, name.size(), origin);
            }
        }
        if (!folder.empty()) {
            folders.push_back(std::move(folder));
        }
        begin = end + 1;
    }
    return folders;
}

void readDynamicSection(Parts& parts, const std::vector<Elf64_Phdr>& segments,
                        const std::string& path, ElfFile& elf) {
    const auto section = std::find_if(segments.begin(), segments.end(),
                                      [](const Elf64_Phdr& s) { return s.p_type == PT_DYNAMIC; });
    if (section == segments.end()) {
        return;
    }
    std::uint64_t strings = 0;
    std::uint64_t size = 0;
    const auto entries = parts.records<Elf64_Dyn>(section->p_offset, section->p_filesz);
    for (const Elf64_Dyn& entry : entries) {
        strings = entry.d_tag == DT_STRTAB ? entry.d_un.d_ptr : strings;
        size = entry.d_tag == DT_STRSZ ? entry.d_un.d_val : size;
    }
    // The table is named by its address; the segment that is loaded there knows its place.
    std::vector<char> table;
    for (const Elf64_Phdr& segment : segments) {
        if (segment.p_type == PT_LOAD && strings >= segment.p_vaddr &&
            strings - segment.p_vaddr < segment.p_filesz) {
            table = parts.bytes(segment.p_offset + (strings - segment.p_vaddr), size);
        }
    }
    const std::string origin = std::filesystem::path(path).parent_path().string();
    for (const Elf64_Dyn& entry : entries) {
        if (entry.d_tag == DT_NULL) {
            break;
        }
        if (entry.d_tag == DT_NEEDED) {
            elf.needed.push_back(textAt(table, entry.d_un.d_val));
        } else if (entry.d_tag == DT_RPATH || entry.d_tag == DT_RUNPATH) {
            const auto more = searchPathOf(textAt(table, entry.d_un.d_val), origin);
            elf.searchPath.insert(elf.searchPath.end(), more.begin(), more.end());
        }
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
    elf.isOurMachine = head.e_ident[EI_CLASS] == ELFCLASS64 &&
                       head.e_ident[EI_DATA] == ELFDATA2LSB && head.e_machine == kMachine;
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
