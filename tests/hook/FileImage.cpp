#include "FileImage.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>

void FileImage::allocate(std::size_t size) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t room = (size + page - 1) / page * page;
    mapped_ = room + page;
    mapping_ = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping_ == MAP_FAILED) {
        throw std::runtime_error("no memory for the image");
    }
    mprotect(static_cast<std::uint8_t*>(mapping_) + room, page, PROT_NONE);
    bytes_ = static_cast<std::uint8_t*>(mapping_) + (room - size);
    size_ = size;
}

FileImage::FileImage(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    ElfW(Ehdr) header{};
    if (content.size() < sizeof header) {
        throw std::runtime_error("no library at " + path);
    }
    std::memcpy(&header, content.data(), sizeof header);
    std::vector<ElfW(Phdr)> programHeaders(header.e_phnum);
    std::memcpy(programHeaders.data(), content.data() + header.e_phoff,
                programHeaders.size() * sizeof(ElfW(Phdr)));
    std::size_t end = 0;
    for (const ElfW(Phdr) & each : programHeaders) {
        if (each.p_type == PT_LOAD) {
            end = std::max(end, static_cast<std::size_t>(each.p_vaddr + each.p_memsz));
        }
    }
    allocate((end + 15) / 16 * 16);
    layout_.base = reinterpret_cast<std::uintptr_t>(bytes_);
    layout_.name = path;
    for (const ElfW(Phdr) & each : programHeaders) {
        const tqhook::AddressRange range{layout_.base + each.p_vaddr,
                                         layout_.base + each.p_vaddr + each.p_memsz};
        if (each.p_type == PT_LOAD) {
            std::memcpy(bytes_ + each.p_vaddr, content.data() + each.p_offset, each.p_filesz);
            layout_.segments.push_back({range, each.p_flags});
        } else if (each.p_type == PT_DYNAMIC) {
            layout_.dynamic = range;
        }
    }
}

FileImage::FileImage(const FileImage& whole, std::size_t size) {
    allocate(size);
    std::memcpy(bytes_, whole.bytes_, size);
    layout_ = whole.layout_;
    const auto begin = reinterpret_cast<std::uintptr_t>(bytes_);
    const std::uintptr_t shift = begin - whole.layout_.base;
    layout_.base = begin;
    layout_.dynamic = {whole.layout_.dynamic.begin + shift, whole.layout_.dynamic.end + shift};
    for (tqhook::Segment& segment : layout_.segments) {
        segment.range.begin = std::min(segment.range.begin + shift, begin + size);
        segment.range.end = std::min(segment.range.end + shift, begin + size);
    }
}

FileImage::~FileImage() {
    munmap(mapping_, mapped_);
}

ElfW(Dyn) * FileImage::dynamicEntry(ElfW(Sxword) tag) const {
    const std::span<ElfW(Dyn)> entries(
        reinterpret_cast<ElfW(Dyn)*>(layout_.dynamic.begin),
        (layout_.dynamic.end - layout_.dynamic.begin) / sizeof(ElfW(Dyn)));
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [tag](const ElfW(Dyn) & each) { return each.d_tag == tag; });
    return found != entries.end() ? &*found : nullptr;
}
