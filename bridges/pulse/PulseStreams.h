#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bridges/core/StreamTable.h"
#include "bridges/pulse/PulseStream.h"
#include "common/ForkLocks.h"

namespace tq::bridges {

/// The pa_streams and pa_contexts of the program, from their making to the last reference of the
/// program's. A connected stream that the program has let go of plays on: its context holds it.
class PulseStreams {
  public:
    /// Made on first use, never destroyed.
    static PulseStreams& shared();

    // [host thread]

    void contextMade(const void* context, std::string name);
    void contextHeld(const void* context);
    /// True when that was the program's last reference.
    [[nodiscard]] bool contextReleased(const void* context);
    [[nodiscard]] std::string nameOf(const void* context);
    /// All streams of it end.
    void contextEnded(const void* context);

    void made(const void* stream, const void* context, const std::string& sound);
    /// Its record is free when nobody can use it any more.
    void released(PulseStream& stream, bool isConnected);
    void forget(PulseStream& stream);
    /// It plays nothing more; what the program has written and not heard is not recorded.
    void ended(PulseStream& stream);

    /// [any thread] [real-time safe] Null for a stream that is not known.
    [[nodiscard]] PulseStream* find(const void* stream) const noexcept {
        return table_.find(stream);
    }

  private:
    struct Context {
        std::string name;
        int references = 1;
    };

    PulseStreams() = default;
    void forgetLocked(PulseStream& stream);
    [[nodiscard]] PulseStream& unused();

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::NativeStreams, lock_};
    StreamTable<PulseStream> table_;
    /// Never freed: a call may still look at one.
    std::vector<std::unique_ptr<PulseStream>> records_;
    std::map<const void*, Context> contexts_;
};

}  // namespace tq::bridges
