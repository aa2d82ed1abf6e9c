#pragma once

#include <pipewire/pipewire.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "bridges/core/NativeStream.h"
#include "bridges/core/ReservedMemory.h"
#include "bridges/core/StreamTable.h"
#include "common/ForkLocks.h"
#include "common/Published.h"

namespace tq::bridges {

/// What is asked of the program's own copy of the library.
struct PipeWireLibrary {
    decltype(&pw_stream_add_listener) addListener;
    decltype(&pw_stream_get_properties) properties;
    decltype(&pw_stream_get_name) name;
    decltype(&pw_properties_get) property;
    decltype(&pw_stream_get_time_n) time;  ///< null in a library that is older than it

    explicit PipeWireLibrary(const void* known);
    [[nodiscard]] bool isComplete() const {
        return addListener != nullptr && properties != nullptr && name != nullptr &&
               property != nullptr;
    }
    /// Of the copy that the first call went to.
    static const PipeWireLibrary& of(const void* known);
};

/// A pw_stream of the program that plays. It is a NativeStream while it has a format.
class PipeWireStream {
  public:
    PipeWireStream(pw_stream* handle, const PipeWireLibrary& library)
        : handle_(handle), library_(library) {}

    /// [host thread] From now on its formats are known here. Once.
    void listen();

    /// [any thread, one at a time] [real-time safe] The block that is about to be queued: where
    /// ducking and compression are on, it is changed where it is. Returns its frames.
    [[nodiscard]] std::size_t prepare(NativeStream& stream, const pw_buffer& buffer) noexcept;

    /// [any thread] [real-time safe] The graph has taken every block that was queued, so that a
    /// pause or a flush keeps none of them from being heard.
    [[nodiscard]] bool isTaken() const noexcept;

  private:
    /// How blocks lie in memory.
    struct Layout {
        NativeFormat format;
        bool isPlanar = false;
        ReservedMemory interleaved;  ///< where they are planar
    };

    static void paramChanged(void* stream, std::uint32_t id, const spa_pod* param);
    void formatChanged(const spa_pod* param);
    [[nodiscard]] std::string name() const;

    pw_stream* handle_;
    const PipeWireLibrary& library_;
    spa_hook listener_{};
    tqcommon::Published<Layout> layout_;
};

/// All of them. The library's functions are never called with the lock held.
class PipeWireStreams {
  public:
    /// Made on first use, never destroyed.
    static PipeWireStreams& shared();

    // [host thread]

    /// Throws std::bad_alloc.
    void connect(pw_stream* handle, const PipeWireLibrary& library);
    /// The handle is about to become invalid; what is returned has to live until it is.
    [[nodiscard]] std::unique_ptr<PipeWireStream> take(pw_stream* handle);

    /// [any thread] [real-time safe] Null for streams that are not known.
    [[nodiscard]] PipeWireStream* find(const pw_stream* handle) const noexcept {
        return table_.find(handle);
    }

  private:
    PipeWireStreams() = default;

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::NativeStreams, lock_};
    std::map<pw_stream*, std::unique_ptr<PipeWireStream>> streams_;
    StreamTable<PipeWireStream> table_;
};

}  // namespace tq::bridges
