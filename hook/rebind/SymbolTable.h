#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hook/elf/ElfImage.h"
#include "hook/rebind/Exemptions.h"

namespace tqhook {

/// Who redirects a symbol, and so which images keep their calls.
enum class SymbolRole {
    requested,  ///< by a caller of this library: images that define such symbols keep their calls
    load,       ///< dlopen, dlmopen: watched everywhere, so that no later image is missed
    lookup,     ///< dlsym, dlvsym: watched where requested symbols are
};

/// One redirected symbol.
struct SymbolEntry {
    std::string name;
    SymbolRole role = SymbolRole::requested;
    /// What the oldest replacement calls; null while no loaded image defines the symbol. Another
    /// tool's function when that tool had redirected the callers already.
    void* original = nullptr;
    /// The true definition that lookups by name answer.
    void* definition = nullptr;

    struct Link {
        void* replacement = nullptr;
        std::vector<void**> saved;                 ///< told what the replacement stands in front of
        std::shared_ptr<const Exemptions> exempt;  ///< null when it is meant for every image
    };
    std::vector<Link> chain;  ///< oldest first

    /// Puts a replacement in front of the others, or finds it among them, where it keeps the
    /// exemptions that it has, and fills `saved`.
    void prepend(void* replacement, void** saved, std::shared_ptr<const Exemptions> exempt = {});
    /// Takes what the oldest replacement stands in front of, and fills its saved slots.
    void settle(void* function, void* trueDefinition);

    /// What callers must reach that no request exempts.
    [[nodiscard]] void* newest() const { return chain.back().replacement; }
    /// What callers in one image must reach; null when every request exempts it.
    [[nodiscard]] void* newestFor(std::string_view path, std::uintptr_t base) const;
    /// Whether a call of `target` is one that the newest replacement takes over.
    [[nodiscard]] bool leadsHere(const void* target) const;
};

/// The redirected symbols. Never changed once published: readers on any thread need no lock.
class SymbolTable {
  public:
    /// `exempt` names the images whose calls nobody redirects; null when there are none.
    explicit SymbolTable(std::vector<SymbolEntry> entries,
                         std::shared_ptr<const Exemptions> exempt = {});
    /// Keeps the table that this one is to replace: a reader may still look at it.
    void keep(std::unique_ptr<const SymbolTable> previous) noexcept {
        previous_ = std::move(previous);
    }

    /// [any thread] Real-time safe: no lock, no allocation.
    [[nodiscard]] const SymbolEntry* find(std::string_view name) const;
    /// By index in the dynamic symbol table of an image; null when the image itself defines it.
    [[nodiscard]] const SymbolEntry* findWanted(const ElfImage& image, std::size_t symbol) const {
        // Most names of a program are mangled and long: this is cheaper than finding their ends.
        const auto initial = static_cast<unsigned char>(image.undefinedInitial(symbol));
        return firstCharacters_[initial] ? find(image.symbolName(symbol)) : nullptr;
    }
    [[nodiscard]] const std::vector<SymbolEntry>& entries() const { return entries_; }
    /// Whether all requests leave the image alone; its loading of other images is watched.
    [[nodiscard]] bool isExempt(const ImageLayout& image) const;
    /// Whether the image's calls are redirected whatever else it defines.
    [[nodiscard]] bool isFront(const ElfImage& image) const;

  private:
    std::vector<SymbolEntry> entries_;
    std::vector<const SymbolEntry*> places_;  ///< open addressing, a power of two in size
    std::bitset<256> firstCharacters_;
    std::unique_ptr<const SymbolTable> previous_;
    std::shared_ptr<const Exemptions> exempt_;
};

}  // namespace tqhook
