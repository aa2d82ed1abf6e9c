#include "hook/rebind/SymbolTable.h"

#include <algorithm>
#include <atomic>
#include <bit>

namespace tqhook {

namespace {

// A replacement may run on another thread as soon as a slot leads to it.
void fill(void** saved, void* function) {
    std::atomic_ref<void*>(*saved).store(function, std::memory_order_release);
}

}  // namespace

bool SymbolEntry::leadsHere(const void* target) const {
    return target != nullptr &&
           (target == original || target == definition ||
            std::any_of(chain.begin(), chain.end(),
                        [target](const Link& link) { return link.replacement == target; }));
}

void* SymbolEntry::newestFor(std::string_view path, std::uintptr_t base) const {
    const auto link = std::find_if(chain.rbegin(), chain.rend(), [&](const Link& each) {
        return each.exempt == nullptr || !each.exempt->cover(path, base);
    });
    return link != chain.rend() ? link->replacement : nullptr;
}

void SymbolEntry::prepend(void* replacement, void** saved,
                          std::shared_ptr<const Exemptions> exempt) {
    auto link = std::find_if(chain.begin(), chain.end(), [replacement](const Link& each) {
        return each.replacement == replacement;
    });
    if (link == chain.end()) {
        chain.push_back({replacement, {}, std::move(exempt)});
        link = std::prev(chain.end());
    }
    if (saved != nullptr) {
        fill(saved, link == chain.begin() ? original : std::prev(link)->replacement);
        link->saved.push_back(saved);
    }
}

void SymbolEntry::settle(void* function, void* trueDefinition) {
    original = function;
    definition = trueDefinition;
    for (void** saved : chain.front().saved) {
        fill(saved, function);
    }
}

SymbolTable::SymbolTable(std::vector<SymbolEntry> entries, std::shared_ptr<const Exemptions> exempt)
    : entries_(std::move(entries)),
      places_(std::bit_ceil(entries_.size() * 2 + 1)),
      exempt_(std::move(exempt)) {
    for (const SymbolEntry& entry : entries_) {
        firstCharacters_.set(static_cast<unsigned char>(entry.name.front()));
        std::size_t place = gnuSymbolHash(entry.name) & (places_.size() - 1);
        while (places_[place] != nullptr) {
            place = (place + 1) & (places_.size() - 1);
        }
        places_[place] = &entry;
    }
}

bool SymbolTable::isExempt(const ImageLayout& image) const {
    return exempt_ != nullptr && exempt_->cover(image.name, image.base);
}

bool SymbolTable::isFront(const ElfImage& image) const {
    return exempt_ != nullptr &&
           std::any_of(exempt_->fronts().begin(), exempt_->fronts().end(),
                       [&image](const std::string& symbol) {
                           return image.definition(symbol.c_str()).has_value();
                       });
}

const SymbolEntry* SymbolTable::find(std::string_view name) const {
    if (name.empty() || !firstCharacters_[static_cast<unsigned char>(name.front())]) {
        return nullptr;
    }
    std::size_t place = gnuSymbolHash(name) & (places_.size() - 1);
    while (places_[place] != nullptr && places_[place]->name != name) {
        place = (place + 1) & (places_.size() - 1);
    }
    return places_[place];
}

}  // namespace tqhook
