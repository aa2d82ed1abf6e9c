#pragma once

#include <elf.h>
#include <link.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tqcommon {

/// Visits the names that an image's dynamic table gives under one tag, in order: DT_NEEDED,
/// DT_RUNPATH and the like. A `Source` is a view of the image, in memory or in its file:
///
///     std::optional<ElfW(Dyn)> dynamicEntry(std::size_t index) const;  // none at the table's end
///     std::string_view texts(std::uintptr_t address, std::uintptr_t size) const;
///
/// texts() answers the piece of the image at an address as the dynamic table spells it, cut where
/// the image ends. A name that has no end within its table is skipped, and so is an empty one.
/// [any thread] Allocates nothing itself.
template <class Source, class Visitor>
void forEachDynamicName(const Source& source, ElfW(Sxword) tag, Visitor&& visitor) {
    std::uintptr_t address = 0;
    std::uintptr_t size = 0;
    const auto forEachEntry = [&source](auto&& take) {
        for (std::size_t i = 0;; ++i) {
            const std::optional<ElfW(Dyn)> entry = source.dynamicEntry(i);
            if (!entry || entry->d_tag == DT_NULL) {
                return;
            }
            take(*entry);
        }
    };
    forEachEntry([&](const ElfW(Dyn) & entry) {
        address = entry.d_tag == DT_STRTAB ? entry.d_un.d_ptr : address;
        size = entry.d_tag == DT_STRSZ ? entry.d_un.d_val : size;
    });
    const std::string_view texts = address != 0 ? source.texts(address, size) : std::string_view{};
    forEachEntry([&](const ElfW(Dyn) & entry) {
        if (entry.d_tag != tag || entry.d_un.d_val >= texts.size()) {
            return;
        }
        const std::string_view rest = texts.substr(entry.d_un.d_val);
        const std::size_t length = rest.find('\0');
        if (length != std::string_view::npos && length != 0) {
            visitor(rest.substr(0, length));
        }
    });
}

/// An image that the loader has mapped, as its record of it says. Trusts the image: the loader has
/// read the same table. What the table calls an address is one already, except where the table is
/// read-only.
class MappedDynamic {
  public:
    MappedDynamic(std::uintptr_t base, const ElfW(Phdr) * headers, std::size_t headerCount)
        : base_(base) {
        for (std::size_t i = 0; i < headerCount; ++i) {
            if (headers[i].p_type == PT_DYNAMIC) {
                table_ = reinterpret_cast<const ElfW(Dyn)*>(base + headers[i].p_vaddr);
                count_ = headers[i].p_memsz / sizeof(ElfW(Dyn));
            }
        }
    }
    [[nodiscard]] std::optional<ElfW(Dyn)> dynamicEntry(std::size_t index) const {
        return index < count_ ? std::optional(table_[index]) : std::nullopt;
    }
    [[nodiscard]] std::string_view texts(std::uintptr_t address, std::uintptr_t size) const {
        const std::uintptr_t place = address < base_ ? base_ + address : address;
        return {reinterpret_cast<const char*>(place), size};
    }

  private:
    std::uintptr_t base_;
    const ElfW(Dyn) * table_ = nullptr;
    std::size_t count_ = 0;
};

}  // namespace tqcommon
