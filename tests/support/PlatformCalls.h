#pragma once

#include <AudioToolbox/AudioToolbox.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// Stands between the library and the platform: sees every call of the functions that the library
/// uses, and can make the platform refuse one.
///
/// install() goes before the library's own hooks: replacements run newest first, so the stand-ins
/// lie beneath the library's and play the platform to them.
class PlatformCalls {
  public:
    struct Call {
        std::string name;
        const void* object = nullptr;  ///< the first pointer among the arguments: unit or graph
        std::vector<long> numbers;     ///< the integers among the arguments, in their order
        OSStatus status = 0;
    };
    using When = std::function<bool(const Call&)>;
    using Watch = std::function<void(const Call&)>;

    static PlatformCalls& shared();

    /// Once per process, again without effect.
    void install();

    /// Calls of `name` for which `when` holds are refused with `status` and not passed on; a later
    /// rule for the same name takes the place of the earlier one. A function that answers no status
    /// answers null.
    void fail(const std::string& name, OSStatus status, When when = {});
    /// The same for the nth call of `name` that `when` holds for, counted from now, and all after.
    void failFrom(const std::string& name, int nth, OSStatus status, When when = {});
    void heal();
    /// Runs before each call of `name` is passed on (or refused), on the calling thread. The empty
    /// name stands for every function without a watch of its own.
    void watch(const std::string& name, Watch watch);

    [[nodiscard]] std::vector<Call> calls(const std::string& name) const;
    [[nodiscard]] std::size_t count(const std::string& name, const When& when = {}) const;
    void clear();

    /// A `when` for the property functions.
    static When property(AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element);

    // For the stand-ins.

    /// True when the call is to be refused; its status is set then.
    bool enter(Call& call);
    void leave(const Call& call);

  private:
    struct Fault {
        OSStatus status;
        int skipped;  ///< calls that still pass
        When when;
    };

    mutable std::mutex mutex_;
    std::vector<Call> calls_;
    std::map<std::string, Fault> faults_;
    std::map<std::string, Watch> watches_;
};
