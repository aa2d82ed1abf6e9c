#pragma once

#include <semaphore.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "bridges/core/NativeStream.h"
#include "bridges/core/StreamTable.h"
#include "common/ForkLocks.h"

namespace tq::bridges {

/// Which streams there are and which units play them. A thread of its own starts units at their
/// streams' first blocks and takes them back when nothing is left, so that neither writers nor
/// native callbacks do it.
///
/// Lock order: lock_, then whatever the capture library takes. Writers and render threads take
/// neither.
class StreamLife {
  public:
    /// Made on first use, never destroyed.
    static StreamLife& shared();

    // [host thread]
    /// Before the first stream.
    void attend(const tq_bridges& attendant) { attendant_ = attendant; }
    /// Tells the attendant that a stream is about to begin. Takes no lock.
    void announce() const {
        if (attendant_.before_stream != nullptr) {
            attendant_.before_stream(attendant_.context);
        }
    }
    void open(const void* key, const NativeFormat& format, std::string_view api,
              std::string_view own);
    void close(const void* key, NativeStream::Handle handle);
    void refused(std::string_view api, std::string_view own, std::string_view reason);
    void finish();
    /// In the child of a fork, when it first writes to a stream that the parent has opened: its
    /// sound is the child's. Throws std::bad_alloc.
    void inherit(NativeStream& stream);

    /// [any thread] [real-time safe]
    [[nodiscard]] NativeStream* find(const void* key) const noexcept { return table_.find(key); }
    /// [any thread] [real-time safe] There is something to do for the thread.
    void wake() noexcept { sem_post(&work_); }

  private:
    /// As many as there are track numbers.
    static constexpr std::size_t kMostUnits = 7;

    StreamLife();

    void run();
    void waitForWork(std::optional<std::chrono::milliseconds> longest);
    [[nodiscard]] std::optional<std::chrono::milliseconds> pauseToNextLook() const;
    void look();
    void lookAt(NativeStream& stream);
    [[nodiscard]] bool play(NativeStream& stream, BridgeUnit& unit);
    [[nodiscard]] bool mayPlay();
    [[nodiscard]] bool isListenerComing() const {
        return attendant_.is_listener_coming == nullptr ||
               attendant_.is_listener_coming(attendant_.context) != 0;
    }
    [[nodiscard]] bool isWanted(const std::string& name) const {
        return attendant_.is_wanted == nullptr ||
               attendant_.is_wanted(attendant_.context, name.c_str()) != 0;
    }
    [[nodiscard]] static bool isSilent(const NativeStream& stream);
    void startThread();
    void awaitListener();
    void closeLocked(const void* key);
    void endStream(NativeStream& stream);
    void seat(NativeStream& stream);
    void waitFor(NativeStream& stream);
    [[nodiscard]] bool mayGetUnit(const NativeStream& stream) const;
    void hope(NativeStream& stream) const;
    [[nodiscard]] bool isNext(const NativeStream& stream) const;
    [[nodiscard]] static bool areOfOneKind(std::string_view one, std::string_view other);
    [[nodiscard]] BridgeUnit* unitFor(NativeStream& stream);
    [[nodiscard]] BridgeUnit* idleUnit(const NativeFormat& format, const std::string& name);
    [[nodiscard]] bool isLeased(const BridgeUnit& unit) const;
    [[nodiscard]] const NativeStream* formerOf(const void* key, const NativeFormat& format,
                                               std::string_view api, std::string_view own) const;
    [[nodiscard]] std::string nameFor(std::string_view api, std::string_view own) const;
    [[nodiscard]] NativeStream& unusedStream();
    /// What is still to be played.
    struct Left {
        std::size_t streams = 0;
        double seconds = 0;  ///< until the first of those that play has ended
    };
    [[nodiscard]] Left whatIsLeft();
    [[nodiscard]] bool hasOthers() const;
    static void report(NativeStream& stream, tq_stream_fate fate, bool isClosed);
    static void reportUnlessDone(NativeStream& stream, tq_stream_fate fate);
    /// What became of its frames, once, if anything was said of it before.
    static void reportEnd(NativeStream& stream);

    /// Only in the child of a fork.
    void forgetAfterFork();

    std::mutex lock_;
    tqcommon::ForkLock atFork_{
        tqcommon::ForkOrder::Streams,
        lock_,
        {[](void* life) { static_cast<StreamLife*>(life)->forgetAfterFork(); }, this}};
    StreamTable<NativeStream> table_;
    /// Never freed: writers may still look at one that has ended.
    std::vector<NativeStream*> streams_;
    std::vector<std::unique_ptr<BridgeUnit>> units_;
    std::uint64_t lastNumber_ = 0;
    std::set<std::string, std::less<>> refusals_;  ///< that were told of
    int idleStreams_ = 0;                          ///< that were told of when they were closed
    std::optional<std::chrono::steady_clock::time_point> firstSoundAt_;
    tq_bridges attendant_{};  ///< constant once functions are replaced
    bool isKept_ = false;     ///< the last look left a stream waiting for somebody who listens
    bool hasThread_ = false;
    bool isFinished_ = false;  ///< the process ends: no stream is opened any more
    sem_t work_{};
};

}  // namespace tq::bridges
