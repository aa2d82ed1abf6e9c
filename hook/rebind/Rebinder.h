#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "common/ForkLocks.h"
#include "hook/elf/LoadedImages.h"
#include "hook/rebind/HeldImages.h"
#include "hook/rebind/LoaderCalls.h"
#include "hook/rebind/Originals.h"
#include "hook/rebind/SlotChoice.h"
#include "hook/rebind/SlotPatcher.h"
#include "hook/rebind/SymbolTable.h"
#include "hook/tq_hook.h"

namespace tqhook {

/// The redirections of the process and the images they were made in.
///
/// Locks: `mutex_` guards what stands below it and is only ever held for memory work. No call into
/// the loader is made meanwhile: a thread in a load-time constructor holds the loader's lock and
/// may wait for `mutex_`. Readers of the symbol table need no lock.
class Rebinder {
  public:
    /// The one instance, made on first use, never destroyed.
    static Rebinder& shared();

    /// [host thread] As tqhook_rebind().
    int rebind(std::span<const tqhook_rebinding> rebindings, const tqhook_options& options);
    /// [host thread] As tqhook_exempt_images().
    void exempt(const char* pattern);
    /// [host thread] As tqhook_front_images().
    void addFront(const char* symbol);
    /// [host thread] Redirects in images that were loaded since the last look. Nothing new costs
    /// one step of the loader's list.
    void scan();
    /// [any thread] What a lookup of `name` by `caller`, an address in some image, that found
    /// `found` should answer. Real-time safe unless it found what is redirected.
    [[nodiscard]] void* translated(const char* name, void* found, const void* caller);
    /// [any thread] Real-time safe.
    [[nodiscard]] bool isRedirected(const char* name) const;
    [[nodiscard]] tqhook_counts report();
    /// Looks again at call slots that another thread may have been binding when they were changed,
    /// and changes those back that lost. Forgets those that have had their time.
    void verify();
    /// Whether slots remain to be looked at later. The answer no ends the verifying thread: it
    /// must not look again, another one is started when there is need.
    [[nodiscard]] bool mustVerifyAgain();

  private:
    struct LazySlot {
        std::uintptr_t address = 0;
        std::string symbol;
        std::chrono::steady_clock::time_point changed;
    };
    struct ImageRecord {
        std::string name;
        std::uintptr_t base = 0;
        bool isBackend = false;
        std::vector<LazySlot> lazySlots;
    };
    struct Finding {
        std::string name;
        Original original;
    };
    struct Failure {
        std::string image;
        PatchResult result;
    };

    Rebinder();
    ~Rebinder() = default;

    [[nodiscard]] bool redirectInSight(const LoaderCalls& calls,
                                       std::span<const tqhook_rebinding> rebindings,
                                       const tqhook_options& options,
                                       std::vector<Failure>& failures);
    void examine(const LoaderCalls& calls, bool everything);
    void patchImages(const LoadedImages& loaded, const HeldImages& held,
                     const std::vector<bool>& isWanted, std::vector<Failure>& failures);
    void conclude(const std::vector<Failure>& failures);
    [[nodiscard]] static std::vector<Finding> find(const LoaderCalls& calls, const HeldImages& held,
                                                   const std::vector<std::string>& names,
                                                   const void* asker);
    bool findLateDefinitions(const LoaderCalls& calls, const LoadedImages& loaded,
                             const HeldImages& held, const std::vector<bool>& isWanted);
    void enter(std::span<const tqhook_rebinding> rebindings, const std::vector<Finding>& findings,
               const std::shared_ptr<const Exemptions>& exempt);
    /// Throws std::bad_alloc with nothing changed.
    template <class Change>
    void changeExemptions(Change change);
    void publish(std::vector<SymbolEntry> entries, std::shared_ptr<const Exemptions> exempt);
    [[nodiscard]] static std::shared_ptr<const Exemptions> exemptionsOf(
        const tqhook_options& options, const HeldImages& held,
        std::span<const tqhook_rebinding> rebindings);
    [[nodiscard]] std::size_t startupCount(const LoadedImages& loaded);
    [[nodiscard]] ImageRecord* recordOf(const ImageLayout& image);
    void forgetGone(const LoadedImages& loaded);
    void patchImage(const ImageLayout& layout, const HeldImages& held,
                    std::vector<Failure>& failures);
    void noteLazySlots(ImageRecord& record, std::span<const SlotWrite> writes);
    void restoreLost(ImageRecord& record);
    [[nodiscard]] bool hasLazySlots() const;
    void startVerifier();

    std::atomic<const SymbolTable*> table_{nullptr};
    std::atomic<unsigned long long> seenAdds_{0};
    std::atomic<unsigned long long> seenSubs_{0};
    std::atomic<std::size_t> startupCount_{0};

    std::mutex mutex_;
    /// The verifying thread does not go along to the child.
    tqcommon::ForkLock atFork_{
        tqcommon::ForkOrder::Handles,
        mutex_,
        {[](void* rebinder) { static_cast<Rebinder*>(rebinder)->isVerifierRunning_ = false; },
         this}};
    std::map<std::uintptr_t, ImageRecord> records_;  ///< by the address of the dynamic table
    std::shared_ptr<const Exemptions> exempt_;       ///< for all requests
    tqhook_counts report_{};
    bool isVerifierRunning_ = false;
};

}  // namespace tqhook
