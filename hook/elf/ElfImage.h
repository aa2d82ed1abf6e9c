#pragma once

#include <elf.h>
#include <link.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tqhook {

struct AddressRange {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;

    [[nodiscard]] bool contains(std::uintptr_t address) const {
        return address >= begin && address < end;
    }
};

/// A mapped piece of an image, in absolute addresses.
struct Segment {
    AddressRange range;
    std::uint32_t flags = 0;  ///< PF_R, PF_W, PF_X
};

/// Where an image lies in memory; everything that its program headers tell.
struct ImageLayout {
    std::uintptr_t base = 0;  ///< added to the addresses that the file names
    std::string name;         ///< the loader's name; empty for the main program
    bool isMainProgram = false;
    AddressRange dynamic;
    AddressRange relro;
    std::vector<Segment> segments;

    /// The segment that holds `address`, null when none does.
    [[nodiscard]] const Segment* segmentOf(std::uintptr_t address) const {
        for (const Segment& segment : segments) {
            if (segment.range.contains(address)) {
                return &segment;
            }
        }
        return nullptr;
    }
    [[nodiscard]] bool contains(std::uintptr_t address) const {
        return segmentOf(address) != nullptr;
    }
    [[nodiscard]] bool isCode(std::uintptr_t address) const {
        const Segment* segment = segmentOf(address);
        return segment != nullptr && (segment->flags & PF_X) != 0;
    }
};

enum class SlotKind {
    call,     ///< jumped through by the PLT; may still lead to lazy binding
    pointer,  ///< holds a function's address in the GOT
    data,     ///< a constant pointer in data
};

/// A place in an image that the loader fills with the address of a symbol.
struct Slot {
    SlotKind kind = SlotKind::call;
    std::uintptr_t address = 0;
    std::size_t symbol = 0;  ///< index in the image's dynamic symbol table
};

struct Definition {
    std::uintptr_t address = 0;
    bool isIndirect = false;  ///< `address` is a function that answers the real one
};

/// [any thread] Reads the dynamic tables of a mapped image. Trusts nothing that they say: each
/// access is checked against the image's readable segments, each table is cut at its segment's end,
/// and no walk is longer than its table. Copies nothing; the layout and the memory must outlive it.
/// Takes no lock.
class ElfImage {
  public:
    explicit ElfImage(const ImageLayout& layout);

    [[nodiscard]] const ImageLayout& layout() const { return layout_; }

    /// The libraries that the image asks for, in order.
    [[nodiscard]] std::vector<std::string_view> neededLibraries() const;

    /// The two views of the dynamic table that common/ElfNames.h reads.
    [[nodiscard]] std::optional<ElfW(Dyn)> dynamicEntry(std::size_t index) const;
    [[nodiscard]] std::string_view texts(std::uintptr_t address, std::uintptr_t size) const;

    /// The name of a dynamic symbol, empty when index or text lie outside the tables.
    [[nodiscard]] std::string_view symbolName(std::size_t index) const;
    /// The first character of the name of a symbol that the image asks others for; 0 when it
    /// defines the symbol itself or there is no name.
    [[nodiscard]] char undefinedInitial(std::size_t index) const {
        // Asked for each relocation of each image: reads no more of the symbol than it must.
        if (index >= symbolCount_) {
            return '\0';
        }
        const auto* symbol =
            reinterpret_cast<const unsigned char*>(symbols_.begin) + index * sizeof(Symbol);
        decltype(Symbol::st_shndx) section = SHN_UNDEF;
        decltype(Symbol::st_name) name = 0;
        std::memcpy(&section, symbol + offsetof(Symbol, st_shndx), sizeof section);
        std::memcpy(&name, symbol + offsetof(Symbol, st_name), sizeof name);
        return section == SHN_UNDEF && name < texts_.end - texts_.begin
                   ? reinterpret_cast<const char*>(texts_.begin)[name]
                   : '\0';
    }
    /// Whether the image itself defines the symbol.
    [[nodiscard]] bool definesSymbol(std::size_t index) const;
    /// Finds a function that the image offers to others under `name`: the default version,
    /// defined here.
    [[nodiscard]] std::optional<Definition> definition(const char* name) const;
    /// The same under any version that it has.
    [[nodiscard]] bool offers(const std::string& name) const;
    /// The address of the PLT entry that stands in for the address of the undefined symbol `name`
    /// all over the process (a program linked at a fixed address makes such entries); 0 when none.
    [[nodiscard]] std::uintptr_t canonicalStub(std::string_view name) const;

    /// Calls visitor(const Slot&) for each aligned slot inside the image that a symbol fills.
    template <class Visitor>
    void forEachSlot(Visitor&& visitor) const {
        forEachSlotOf([](std::size_t) { return true; }, visitor);
    }
    /// The same for the slots of those symbols that `isWanted(index)` names. It is asked once for
    /// neighbouring relocations of one symbol, before anything else is looked at: most of an
    /// image's slots concern nobody.
    template <class IsWanted, class Visitor>
    void forEachSlotOf(IsWanted&& isWanted, Visitor&& visitor) const {
        forEachRelocation(callRelocations_, isWanted, visitor);
        forEachRelocation(otherRelocations_, isWanted, visitor);
    }

  private:
    using Symbol = ElfW(Sym);
    using Relocation = ElfW(Rela);

    [[nodiscard]] AddressRange readable(std::uintptr_t address, std::uintptr_t size) const;
    [[nodiscard]] std::uintptr_t pointerValue(std::uintptr_t value) const;
    [[nodiscard]] std::optional<Symbol> symbolAt(std::size_t index) const {
        return elementOf<Symbol>(symbols_, index);
    }
    [[nodiscard]] std::string_view textAt(std::uintptr_t offset) const;
    enum class Versions { kDefault, kAny };
    [[nodiscard]] std::optional<Definition> lookup(std::string_view name, Versions versions) const;
    [[nodiscard]] std::optional<Definition> definitionAt(std::size_t index, std::string_view name,
                                                         Versions versions) const;
    [[nodiscard]] std::optional<Definition> gnuLookup(std::string_view name,
                                                      Versions versions) const;
    [[nodiscard]] std::optional<Definition> sysvLookup(std::string_view name,
                                                       Versions versions) const;
    [[nodiscard]] std::optional<Slot> slotOf(const Relocation& relocation) const;

    /// Reads a T at `address`, or nothing when it is not wholly inside `bounds`.
    template <class T>
    [[nodiscard]] static std::optional<T> readWithin(const AddressRange& bounds,
                                                     std::uintptr_t address) {
        if (address < bounds.begin || address > bounds.end || bounds.end - address < sizeof(T)) {
            return std::nullopt;
        }
        T value;
        std::memcpy(&value, reinterpret_cast<const void*>(address), sizeof(T));
        return value;
    }
    template <class T>
    [[nodiscard]] static std::optional<T> elementOf(const AddressRange& table, std::size_t index) {
        if (index >= (table.end - table.begin) / sizeof(T)) {
            return std::nullopt;
        }
        return readWithin<T>(table, table.begin + index * sizeof(T));
    }
    template <class IsWanted, class Visitor>
    void forEachRelocation(const AddressRange& table, IsWanted&& isWanted,
                           Visitor&& visitor) const {
        const std::size_t count = (table.end - table.begin) / sizeof(Relocation);
        std::size_t lastSymbol = 0;  // index 0 names none
        bool isLastWanted = false;
        for (std::size_t i = 0; i < count; ++i) {
            Relocation relocation;
            std::memcpy(&relocation, reinterpret_cast<const Relocation*>(table.begin) + i,
                        sizeof relocation);
            const auto symbol = static_cast<std::size_t>(ELF64_R_SYM(relocation.r_info));
            if (symbol != lastSymbol) {
                lastSymbol = symbol;
                isLastWanted = isWanted(symbol);
            }
            if (symbol != 0 && isLastWanted) {
                if (const auto slot = slotOf(relocation)) {
                    visitor(*slot);
                }
            }
        }
    }

    const ImageLayout& layout_;
    AddressRange dynamic_;
    AddressRange symbols_;
    std::size_t symbolCount_ = 0;
    AddressRange texts_;
    AddressRange versions_;
    AddressRange gnuHash_;
    AddressRange sysvHash_;
    AddressRange callRelocations_;
    AddressRange otherRelocations_;
};

/// The hash that the loader's newer tables use.
[[nodiscard]] std::uint32_t gnuSymbolHash(std::string_view name);

}  // namespace tqhook
