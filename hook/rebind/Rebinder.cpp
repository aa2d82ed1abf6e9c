#include "hook/rebind/Rebinder.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>

#include "hook/elf/LoaderMemory.h"
#include "hook/rebind/LoaderOrder.h"

namespace tqhook {

namespace {

void tell(const std::string& image, PatchResult result) {
    std::fprintf(stderr, "[tqhook] %s: %s\n", image.empty() ? "main program" : image.c_str(),
                 result == PatchResult::refused
                     ? "memory cannot be made writable, its calls are not redirected"
                     : "memory cannot be made read-only again");
}

// The loader's own answer, when it is a true definition.
Original lookedUp(const LoaderCalls& calls, const HeldImages& held, const std::string& name,
                  void* scope) {
    void* found = calls.symbol(scope, name.c_str());
    const ImageLayout* image = held.imageOf(found);
    const bool isDefinition = image != nullptr &&
                              image->isCode(reinterpret_cast<std::uintptr_t>(found)) &&
                              !isCanonicalStub(held.images(), name, found);
    return isDefinition ? Original{found, found, false} : Original{};
}

// The answer in the scope of the library that `address` lies in. The loader's own record of a
// library is no handle: one that was never opened by name has no scope of its own yet.
Original lookedUpFrom(const LoaderCalls& calls, const HeldImages& held, const std::string& name,
                      const void* address) {
    const ImageLayout* image = held.imageOf(address);
    const char* file = image == nullptr || image->isMainProgram ? nullptr : image->name.c_str();
    void* handle = calls.open(file, RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return {};
    }
    const Original original = lookedUp(calls, held, name, handle);
    dlclose(handle);
    return original;
}

// Has the loader ask an indirect function for the real one: it knows with which arguments.
Original resolvedIndirect(const LoaderCalls& calls, const HeldImages& held, const std::string& name,
                          const Original& original) {
    void* real = lookedUpFrom(calls, held, name, original.definition).function;
    return {original.function == original.definition ? real : original.function, real, false};
}

// Start-up images are never unloaded; others must not go while callers are led to them.
void keepImageOf(const LoaderCalls& calls, const HeldImages& held, const void* address) {
    const ImageLayout* image = held.imageOf(address);
    const auto startup = held.startupImages();
    if (image != nullptr && std::find(startup.begin(), startup.end(), image) == startup.end()) {
        keepForever(calls, *image);
    }
}

}  // namespace

int Rebinder::rebind(std::span<const tqhook_rebinding> rebindings, const tqhook_options& options) {
    const LoaderCalls* calls = loaderCalls();
    if (calls == nullptr) {
        return -1;
    }
    std::vector<tqhook_rebinding> valid;
    for (const tqhook_rebinding& record : rebindings) {
        if (record.symbol != nullptr && record.symbol[0] != '\0' && record.replacement != nullptr) {
            valid.push_back(record);
        }
    }
    if (!valid.empty()) {
        std::vector<Failure> failures;
        if (redirectInSight(*calls, valid, options, failures)) {
            conclude(failures);
        } else {
            examine(*calls, true);
        }
    }
    return valid.size() == rebindings.size() ? 0 : -1;
}

// Enters what is wanted and redirects it in every image. False when images have come or gone since
// they were looked at: those that came before the entry are seen by another look only, later ones
// by the thread that loads them.
bool Rebinder::redirectInSight(const LoaderCalls& calls,
                               std::span<const tqhook_rebinding> rebindings,
                               const tqhook_options& options, std::vector<Failure>& failures) {
    const LoadedImages loaded = loadedImages();
    const HeldImages held(calls, loaded, startupCount(loaded), [](std::size_t) { return true; });
    std::vector<std::string> names;
    for (const tqhook_rebinding& record : rebindings) {
        if (std::find(names.begin(), names.end(), record.symbol) == names.end()) {
            names.emplace_back(record.symbol);
        }
    }
    const std::vector<Finding> findings =
        find(calls, held, namesIn(held.images(), names), rebindings.front().replacement);
    for (const tqhook_rebinding& record : rebindings) {
        keepImageOf(calls, held, record.replacement);
    }
    enter(rebindings, findings, exemptionsOf(options, held, rebindings));
    const LoaderCounts now = loaderCounts();
    if (now.adds != loaded.counts.adds || now.subs != loaded.counts.subs) {
        return false;
    }
    const std::vector<bool> all(loaded.images.size(), true);
    findLateDefinitions(calls, loaded, held, all);
    patchImages(loaded, held, all, failures);
    return true;
}

void Rebinder::scan() {
    const SymbolTable* table = table_.load(std::memory_order_acquire);
    const LoaderCounts counts = loaderCounts();
    if (table != nullptr && (counts.adds != seenAdds_.load() || counts.subs != seenSubs_.load())) {
        examine(*loaderCalls(), false);
    }
}

// Redirects in new images, or in all of them. Images that stay are looked at again when some have
// gone: another load may have put fresh slots at the same place under the same name.
void Rebinder::examine(const LoaderCalls& calls, bool everything) {
    const LoadedImages loaded = loadedImages();
    const std::size_t startup = startupCount(loaded);
    std::vector<bool> isWanted(loaded.images.size(), everything);
    const bool someLeft = loaded.counts.subs != seenSubs_.load();
    if (!everything) {
        const std::lock_guard lock(mutex_);
        for (std::size_t i = startup; i < loaded.images.size(); ++i) {
            isWanted[i] = someLeft || recordOf(loaded.images[i]) == nullptr;
        }
    }
    std::vector<Failure> failures;
    {
        const HeldImages held(calls, loaded, startup, [&](std::size_t i) { return isWanted[i]; });
        if (findLateDefinitions(calls, loaded, held, isWanted) && !everything) {
            // Now the images that were looked at before have slots to change, too.
            examine(calls, true);
            return;
        }
        patchImages(loaded, held, isWanted, failures);
    }
    conclude(failures);
}

// The wanted ones of the held images, and start-up images that were never looked at. In the others
// it only puts right what a thread in lazy binding undid.
void Rebinder::patchImages(const LoadedImages& loaded, const HeldImages& held,
                           const std::vector<bool>& isWanted, std::vector<Failure>& failures) {
    const std::size_t startup = startupCount(loaded);
    const std::lock_guard lock(mutex_);
    forgetGone(loaded);
    for (const ImageLayout* image : held.images()) {
        const auto index = static_cast<std::size_t>(image - loaded.images.data());
        if (isWanted[index] || (index < startup && recordOf(*image) == nullptr)) {
            patchImage(*image, held, failures);
        } else if (ImageRecord* record = recordOf(*image)) {
            restoreLost(*record);
        }
    }
    seenAdds_.store(loaded.counts.adds);
    seenSubs_.store(loaded.counts.subs);
}

// With no image held and no lock.
void Rebinder::conclude(const std::vector<Failure>& failures) {
    for (const Failure& failure : failures) {
        tell(failure.image, failure.result);
    }
    startVerifier();
}

std::vector<Rebinder::Finding> Rebinder::find(const LoaderCalls& calls, const HeldImages& held,
                                              const std::vector<std::string>& names,
                                              const void* asker) {
    const std::vector<Original> global = findOriginals(held.startupImages(), held.images(), names);
    const bool isComplete = std::all_of(global.begin(), global.end(), [](const Original& each) {
        return each.function != nullptr;
    });
    const std::vector<Original> anywhere =
        isComplete ? global : findOriginals(held.images(), held.images(), names);
    std::vector<Finding> findings;
    for (std::size_t i = 0; i < names.size(); ++i) {
        Original original = global[i];
        if (original.function == nullptr) {
            original = lookedUp(calls, held, names[i], RTLD_DEFAULT);
        }
        if (original.function == nullptr) {
            original = lookedUpFrom(calls, held, names[i], asker);
        }
        if (original.function == nullptr) {
            original = anywhere[i];
        }
        if (original.isIndirect) {
            original = resolvedIndirect(calls, held, names[i], original);
        }
        keepImageOf(calls, held, original.function);
        findings.push_back({names[i], original});
    }
    return findings;
}

// Libraries that define a symbol may come long after the request to redirect it. Only the wanted
// ones of the held images can have brought what was not there before.
bool Rebinder::findLateDefinitions(const LoaderCalls& calls, const LoadedImages& loaded,
                                   const HeldImages& held, const std::vector<bool>& isWanted) {
    const SymbolTable* table = table_.load(std::memory_order_acquire);
    std::vector<std::string> names;
    const void* asker = nullptr;
    for (const SymbolEntry& entry : table->entries()) {
        if (entry.definition == nullptr) {
            names.push_back(entry.name);
            asker = entry.newest();
        }
    }
    std::vector<const ImageLayout*> wanted;
    for (const ImageLayout* image : held.images()) {
        if (isWanted[static_cast<std::size_t>(image - loaded.images.data())]) {
            wanted.push_back(image);
        }
    }
    names = namesIn(wanted, names);
    if (names.empty()) {
        return false;
    }
    const std::vector<Finding> findings = find(calls, held, names, asker);
    const bool foundAny = std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.original.function != nullptr;
    });
    if (foundAny) {
        enter({}, findings, nullptr);
    }
    return foundAny;
}

void Rebinder::enter(std::span<const tqhook_rebinding> rebindings,
                     const std::vector<Finding>& findings,
                     const std::shared_ptr<const Exemptions>& exempt) {
    const std::lock_guard lock(mutex_);
    const SymbolTable* table = table_.load(std::memory_order_acquire);
    std::vector<SymbolEntry> entries;
    if (table != nullptr) {
        entries = table->entries();
    } else {
        for (const LoaderSymbol& symbol : loaderSymbols()) {
            SymbolEntry& entry = entries.emplace_back();
            entry.name = symbol.name;
            entry.role = symbol.loadsImages ? SymbolRole::load : SymbolRole::lookup;
            entry.prepend(symbol.standIn, nullptr);
            entry.settle(*symbol.real, *symbol.real);
        }
    }
    for (const tqhook_rebinding& record : rebindings) {
        auto entry = std::find_if(entries.begin(), entries.end(), [&](const SymbolEntry& each) {
            return each.name == record.symbol;
        });
        if (entry == entries.end()) {
            entries.emplace_back().name = record.symbol;
            entry = std::prev(entries.end());
        }
        entry->prepend(record.replacement, record.saved, exempt);
    }
    for (const Finding& finding : findings) {
        for (SymbolEntry& entry : entries) {
            if (entry.name == finding.name && entry.definition == nullptr) {
                entry.settle(finding.original.function, finding.original.definition);
            }
        }
    }
    publish(std::move(entries), exempt_);
}

std::shared_ptr<const Exemptions> Rebinder::exemptionsOf(
    const tqhook_options& options, const HeldImages& held,
    std::span<const tqhook_rebinding> rebindings) {
    if (options.exemptPatternCount == 0 && options.exemptsOwnImages == 0) {
        return nullptr;
    }
    auto exempt = std::make_shared<Exemptions>();
    for (const char* pattern : std::span(options.exemptPatterns, options.exemptPatternCount)) {
        exempt->addPattern(pattern);
    }
    for (const tqhook_rebinding& record : rebindings) {
        const ImageLayout* own = held.imageOf(record.replacement);
        if (options.exemptsOwnImages != 0 && own != nullptr) {
            exempt->addImage(own->base);
        }
    }
    return exempt;
}

void Rebinder::exempt(const char* pattern) {
    changeExemptions([pattern](Exemptions& exempt) { exempt.addPattern(pattern); });
}

void Rebinder::addFront(const char* symbol) {
    changeExemptions([symbol](Exemptions& exempt) { exempt.addFront(symbol); });
}

template <class Change>
void Rebinder::changeExemptions(Change change) {
    const std::lock_guard lock(mutex_);
    auto more = std::make_shared<Exemptions>(*exempt_);
    change(*more);
    if (const SymbolTable* table = table_.load(std::memory_order_acquire)) {
        publish(table->entries(), more);
    }
    exempt_ = std::move(more);
}

void Rebinder::publish(std::vector<SymbolEntry> entries, std::shared_ptr<const Exemptions> exempt) {
    auto next = std::make_unique<SymbolTable>(std::move(entries), std::move(exempt));
    next->keep(std::unique_ptr<const SymbolTable>(table_.load(std::memory_order_acquire)));
    table_.store(next.release(), std::memory_order_release);
}

void* Rebinder::translated(const char* name, void* found, const void* caller) {
    const SymbolTable* table = table_.load(std::memory_order_acquire);
    const SymbolEntry* entry = table != nullptr ? table->find(name) : nullptr;
    if (entry == nullptr || entry->original == nullptr || !entry->leadsHere(found)) {
        return found;
    }
    Dl_info info{};
    void* map = nullptr;
    if (dladdr1(caller, &info, &map, RTLD_DL_LINKMAP) == 0) {
        return entry->newest();
    }
    const auto* image = static_cast<const link_map*>(map);
    {
        // Its lookups were redirected before a symbol was that it defines.
        const std::lock_guard lock(mutex_);
        const auto record = records_.find(reinterpret_cast<std::uintptr_t>(image->l_ld));
        if (record != records_.end() && record->second.isBackend) {
            return found;
        }
    }
    void* target = entry->newestFor(loaderNameOf(image), loaderBaseOf(image));
    return target != nullptr ? target : found;
}

bool Rebinder::isRedirected(const char* name) const {
    const SymbolTable* table = table_.load(std::memory_order_acquire);
    return table != nullptr && table->find(name) != nullptr;
}

tqhook_counts Rebinder::report() {
    const std::lock_guard lock(mutex_);
    return report_;
}

std::size_t Rebinder::startupCount(const LoadedImages& loaded) {
    // Counted once: later libraries may bear the names that the start-up ones asked for.
    std::size_t count = startupCount_.load();
    if (count == 0) {
        count = loaded.startupCount();
        startupCount_.store(count);
    }
    return count;
}

Rebinder::ImageRecord* Rebinder::recordOf(const ImageLayout& image) {
    const auto found = records_.find(image.dynamic.begin);
    return found != records_.end() && found->second.name == image.name ? &found->second : nullptr;
}

void Rebinder::forgetGone(const LoadedImages& loaded) {
    std::map<std::uintptr_t, const ImageLayout*> present;
    for (const ImageLayout& image : loaded.images) {
        present[image.dynamic.begin] = &image;
    }
    std::erase_if(records_, [&present](const auto& record) {
        const auto image = present.find(record.first);
        return image == present.end() || image->second->name != record.second.name;
    });
}

void Rebinder::patchImage(const ImageLayout& layout, const HeldImages& held,
                          std::vector<Failure>& failures) {
    const SymbolTable& table = *table_.load(std::memory_order_acquire);
    const ElfImage image(layout);
    const std::vector<SlotWrite> writes = chooseSlots(image, table, LoaderOrder(held));
    const PatchResult result = patchSlots(layout, writes);
    ImageRecord* record = recordOf(layout);
    if (record == nullptr) {
        ++report_.images;
        record = &records_[layout.dynamic.begin];
        *record = {layout.name, layout.base, false, {}};
    }
    record->isBackend = isBackend(image, table);
    if (result != PatchResult::done) {
        failures.push_back({layout.name, result});
    }
    if (result == PatchResult::refused) {
        ++report_.refusedImages;
        return;
    }
    for (const SlotWrite& write : writes) {
        report_.callSlots += write.kind == SlotKind::call ? 1 : 0;
        report_.pointerSlots += write.kind == SlotKind::pointer ? 1 : 0;
        report_.dataPointers += write.kind == SlotKind::data ? 1 : 0;
    }
    noteLazySlots(*record, writes);
}

}  // namespace tqhook
