#include "hook/elf/ElfImage.h"

#include <algorithm>
#include <limits>

#include "common/ElfNames.h"
#include "common/Machine.h"

namespace tqhook {

namespace {

constexpr std::uint16_t kHiddenVersion = 0x8000;

// What a dynamic table says, before any of it is believed.
struct DynamicValues {
    std::uintptr_t symbols = 0;
    std::uintptr_t texts = 0;
    std::uintptr_t textSize = 0;
    std::uintptr_t versions = 0;
    std::uintptr_t gnuHash = 0;
    std::uintptr_t sysvHash = 0;
    std::uintptr_t calls = 0;
    std::uintptr_t callSize = 0;
    std::uintptr_t callFormat = 0;
    std::uintptr_t others = 0;
    std::uintptr_t otherSize = 0;
    std::uintptr_t relativeCount = 0;
};

void take(DynamicValues& values, const ElfW(Dyn) & entry) {
    const std::uintptr_t value = entry.d_un.d_val;
    switch (entry.d_tag) {
        case DT_SYMTAB:
            values.symbols = value;
            break;
        case DT_STRTAB:
            values.texts = value;
            break;
        case DT_STRSZ:
            values.textSize = value;
            break;
        case DT_VERSYM:
            values.versions = value;
            break;
        case DT_GNU_HASH:
            values.gnuHash = value;
            break;
        case DT_HASH:
            values.sysvHash = value;
            break;
        case DT_JMPREL:
            values.calls = value;
            break;
        case DT_PLTRELSZ:
            values.callSize = value;
            break;
        case DT_PLTREL:
            values.callFormat = value;
            break;
        case DT_RELA:
            values.others = value;
            break;
        case DT_RELASZ:
            values.otherSize = value;
            break;
        case DT_RELACOUNT:
            values.relativeCount = value;
            break;
        default:
            break;
    }
}

std::uint32_t sysvSymbolHash(std::string_view name) {
    std::uint32_t hash = 0;
    for (const char character : name) {
        hash = (hash << 4U) + static_cast<unsigned char>(character);
        const std::uint32_t high = hash & 0xf0000000U;
        hash ^= high >> 24U;
        hash &= ~high;
    }
    return hash;
}

// A function that others can bind to: also objects without a type, as hand-written assembly has.
bool isOfferedFunction(const ElfW(Sym) & symbol) {
    const unsigned type = symbol.st_info & 0xfU;
    const unsigned binding = symbol.st_info >> 4U;
    return symbol.st_shndx != SHN_UNDEF && symbol.st_value != 0 &&
           (type == STT_FUNC || type == STT_GNU_IFUNC || type == STT_NOTYPE) &&
           (binding == STB_GLOBAL || binding == STB_WEAK || binding == STB_GNU_UNIQUE);
}

}  // namespace

std::uint32_t gnuSymbolHash(std::string_view name) {
    std::uint32_t hash = 5381;
    for (const char character : name) {
        hash = hash * 33U + static_cast<unsigned char>(character);
    }
    return hash;
}

ElfImage::ElfImage(const ImageLayout& layout) : layout_(layout) {
    constexpr std::uintptr_t kUnlimited = std::numeric_limits<std::uintptr_t>::max();
    if (layout.dynamic.end < layout.dynamic.begin) {
        return;
    }
    dynamic_ = readable(layout.dynamic.begin, layout.dynamic.end - layout.dynamic.begin);
    DynamicValues values;
    for (std::size_t i = 0;; ++i) {
        const auto entry = dynamicEntry(i);
        if (!entry || entry->d_tag == DT_NULL) {
            break;
        }
        take(values, *entry);
    }
    const auto tableAt = [this](std::uintptr_t address, std::uintptr_t size) {
        return address == 0 ? AddressRange{} : readable(pointerValue(address), size);
    };
    symbols_ = tableAt(values.symbols, kUnlimited);
    symbolCount_ = (symbols_.end - symbols_.begin) / sizeof(Symbol);
    texts_ = tableAt(values.texts, values.textSize);
    versions_ = tableAt(values.versions, kUnlimited);
    gnuHash_ = tableAt(values.gnuHash, kUnlimited);
    sysvHash_ = tableAt(values.sysvHash, kUnlimited);
    // Both machines write addends into their tables; a table without them is damaged.
    if (values.callFormat == DT_RELA) {
        callRelocations_ = tableAt(values.calls, values.callSize);
    }
    otherRelocations_ = tableAt(values.others, values.otherSize);
    // The leading entries that only add the base name no symbol: most of a large image.
    const std::size_t total =
        (otherRelocations_.end - otherRelocations_.begin) / sizeof(Relocation);
    otherRelocations_.begin += std::min(values.relativeCount, total) * sizeof(Relocation);
}

AddressRange ElfImage::readable(std::uintptr_t address, std::uintptr_t size) const {
    const Segment* segment = layout_.segmentOf(address);
    if (segment == nullptr || (segment->flags & PF_R) == 0) {
        return {};
    }
    const std::uintptr_t room = segment->range.end - address;
    return {address, address + std::min(size, room)};
}

// The C library rewrites the table's addresses to absolute ones, except where the table is
// read-only; an address inside the image can only be absolute.
std::uintptr_t ElfImage::pointerValue(std::uintptr_t value) const {
    return layout_.contains(value) ? value : layout_.base + value;
}

std::string_view ElfImage::textAt(std::uintptr_t offset) const {
    const std::uintptr_t size = texts_.end - texts_.begin;
    if (offset >= size) {
        return {};
    }
    const auto* text = reinterpret_cast<const char*>(texts_.begin + offset);
    const std::size_t length = strnlen(text, size - offset);
    // A text that runs out of its table has no end of its own and is no name.
    return length == size - offset ? std::string_view{} : std::string_view{text, length};
}

std::vector<std::string_view> ElfImage::neededLibraries() const {
    std::vector<std::string_view> names;
    tqcommon::forEachDynamicName(*this, DT_NEEDED,
                                 [&names](std::string_view name) { names.push_back(name); });
    return names;
}

std::optional<ElfW(Dyn)> ElfImage::dynamicEntry(std::size_t index) const {
    return elementOf<ElfW(Dyn)>(dynamic_, index);
}

std::string_view ElfImage::texts(std::uintptr_t /*address*/, std::uintptr_t /*size*/) const {
    return {reinterpret_cast<const char*>(texts_.begin), texts_.end - texts_.begin};
}

std::string_view ElfImage::symbolName(std::size_t index) const {
    const auto symbol = symbolAt(index);
    return symbol ? textAt(symbol->st_name) : std::string_view{};
}

bool ElfImage::definesSymbol(std::size_t index) const {
    const auto symbol = symbolAt(index);
    return symbol && symbol->st_shndx != SHN_UNDEF;
}

std::optional<Definition> ElfImage::definition(const char* name) const {
    return lookup(name, Versions::kDefault);
}

bool ElfImage::offers(const std::string& name) const {
    return lookup(name, Versions::kAny).has_value();
}

std::optional<Definition> ElfImage::lookup(std::string_view name, Versions versions) const {
    return gnuHash_.begin != 0 ? gnuLookup(name, versions) : sysvLookup(name, versions);
}

std::optional<Definition> ElfImage::definitionAt(std::size_t index, std::string_view name,
                                                 Versions versions) const {
    const auto symbol = symbolAt(index);
    if (!symbol || !isOfferedFunction(*symbol) || textAt(symbol->st_name) != name) {
        return std::nullopt;
    }
    // A hidden version is kept for programs linked long ago: its arguments may differ.
    const auto version = elementOf<std::uint16_t>(versions_, index);
    if (versions == Versions::kDefault && version && (*version & kHiddenVersion) != 0) {
        return std::nullopt;
    }
    const std::uintptr_t address = layout_.base + symbol->st_value;
    if (!layout_.isCode(address)) {
        return std::nullopt;
    }
    return Definition{address, (symbol->st_info & 0xfU) == STT_GNU_IFUNC};
}

std::optional<Definition> ElfImage::gnuLookup(std::string_view name, Versions versions) const {
    using Word = ElfW(Addr);
    constexpr std::uint32_t kWordBits = sizeof(Word) * 8;
    struct Header {
        std::uint32_t buckets, firstSymbol, filterWords, filterShift;
    };
    const auto header = readWithin<Header>(gnuHash_, gnuHash_.begin);
    if (!header || header->buckets == 0 || header->filterWords == 0) {
        return std::nullopt;
    }
    const std::uint32_t hash = gnuSymbolHash(name);
    const std::uintptr_t size = gnuHash_.end - gnuHash_.begin;
    const std::uintptr_t filterSize = std::uintptr_t{header->filterWords} * sizeof(Word);
    const std::uintptr_t bucketSize = std::uintptr_t{header->buckets} * sizeof(std::uint32_t);
    if (size - sizeof(Header) < filterSize || size - sizeof(Header) - filterSize < bucketSize) {
        return std::nullopt;
    }
    const AddressRange filter{gnuHash_.begin + sizeof(Header),
                              gnuHash_.begin + sizeof(Header) + filterSize};
    const auto word = elementOf<Word>(filter, (hash / kWordBits) % header->filterWords);
    const std::uint32_t second = header->filterShift < 32 ? hash >> header->filterShift : 0;
    const Word mask = (Word{1} << (hash % kWordBits)) | (Word{1} << (second % kWordBits));
    if (!word || (*word & mask) != mask) {
        return std::nullopt;
    }
    const AddressRange buckets{filter.end, filter.end + bucketSize};
    const AddressRange chains{buckets.end, gnuHash_.end};
    const auto first = elementOf<std::uint32_t>(buckets, hash % header->buckets);
    if (!first || *first < header->firstSymbol || *first == 0) {
        return std::nullopt;
    }
    for (std::size_t index = *first;; ++index) {
        const auto entry = elementOf<std::uint32_t>(chains, index - header->firstSymbol);
        if (!entry) {
            return std::nullopt;
        }
        if ((*entry | 1U) == (hash | 1U)) {
            if (const auto found = definitionAt(index, name, versions)) {
                return found;
            }
        }
        if ((*entry & 1U) != 0) {
            return std::nullopt;
        }
    }
}

std::optional<Definition> ElfImage::sysvLookup(std::string_view name, Versions versions) const {
    const auto bucketCount = elementOf<std::uint32_t>(sysvHash_, 0);
    const auto chainCount = elementOf<std::uint32_t>(sysvHash_, 1);
    if (!bucketCount || !chainCount || *bucketCount == 0) {
        return std::nullopt;
    }
    const std::size_t firstChain = std::size_t{2} + *bucketCount;
    auto index = elementOf<std::uint32_t>(sysvHash_, 2 + sysvSymbolHash(name) % *bucketCount);
    // Each symbol stands in one chain once: more steps than symbols means a circle.
    for (std::uint32_t steps = 0; index && *index != 0 && *index < *chainCount; ++steps) {
        if (const auto found = definitionAt(*index, name, versions)) {
            return found;
        }
        if (steps >= *chainCount) {
            return std::nullopt;
        }
        index = elementOf<std::uint32_t>(sysvHash_, firstChain + *index);
    }
    return std::nullopt;
}

std::uintptr_t ElfImage::canonicalStub(std::string_view name) const {
    std::uintptr_t found = 0;
    // The hash tables need not list undefined symbols; each one in use has a relocation.
    forEachSlot([&](const Slot& slot) {
        const auto symbol = symbolAt(slot.symbol);
        if (found == 0 && symbol && symbol->st_shndx == SHN_UNDEF && symbol->st_value != 0 &&
            textAt(symbol->st_name) == name) {
            found = layout_.base + symbol->st_value;
        }
    });
    return found;
}

std::optional<Slot> ElfImage::slotOf(const Relocation& relocation) const {
    const auto type = static_cast<std::uint32_t>(ELF64_R_TYPE(relocation.r_info));
    const auto symbol = static_cast<std::size_t>(ELF64_R_SYM(relocation.r_info));
    Slot slot;
    if (type == tqcommon::kCallRelocation) {
        slot.kind = SlotKind::call;
    } else if (type == tqcommon::kPointerRelocation) {
        slot.kind = SlotKind::pointer;
    } else if (type == tqcommon::kDataRelocation && relocation.r_addend == 0) {
        slot.kind = SlotKind::data;
    } else {
        return std::nullopt;
    }
    slot.address = layout_.base + relocation.r_offset;
    slot.symbol = symbol;
    if (symbol == 0 || slot.address % sizeof(void*) != 0) {
        return std::nullopt;
    }
    const Segment* segment = layout_.segmentOf(slot.address);
    if (segment == nullptr || segment->range.end - slot.address < sizeof(void*) ||
        (segment->flags & PF_R) == 0) {
        return std::nullopt;
    }
    return slot;
}

}  // namespace tqhook
