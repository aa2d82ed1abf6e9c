#pragma once

#include <pipewire/filter.h>
#include <pipewire/pipewire.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bridges/core/PortGroup.h"
#include "bridges/core/StreamTable.h"
#include "common/ForkLocks.h"

namespace tq::bridges {

/// What is asked of the program's own copy of the library.
struct PipeWireFilterLibrary {
    decltype(&pw_filter_get_properties) properties;
    decltype(&pw_filter_get_name) name;
    decltype(&pw_properties_get) property;

    explicit PipeWireFilterLibrary(const void* known);
    [[nodiscard]] bool isComplete() const {
        return properties != nullptr && name != nullptr && property != nullptr;
    }
    /// Of the copy that the first call went to.
    static const PipeWireFilterLibrary& of(const void* known);
};

/// A pw_filter of the program, as far as it plays. The library calls `process` of the first table
/// of events alone, so there is no place for a listener of ours beside it: each table is replaced
/// by one of ours, which calls the program's.
class PipeWireFilter {
  public:
    explicit PipeWireFilter(const PipeWireFilterLibrary& library)
        : library_(library), group_("pipewire") {}

    /// Events of the program, and what the library calls instead. It may call until the filter is
    /// destroyed, so they stay as they are.
    class Events {
      public:
        Events(PipeWireFilter& filter, const pw_filter_events& program, void* data);
        [[nodiscard]] const pw_filter_events& table() const noexcept { return ours_; }
        [[nodiscard]] void* data() noexcept { return this; }

      private:
        /// What calls one of the program's events with its own data.
        template <auto kEvent>
        struct Passed;
        template <class... Arguments, void (*pw_filter_events::*kEvent)(void*, Arguments...)>
        struct Passed<kEvent> {
            static void call(void* self, Arguments... arguments) {
                const auto& own = *static_cast<Events*>(self);
                (own.program_.*kEvent)(own.data_, arguments...);
            }
        };
        template <auto... kEvents>
        void passOn() noexcept;

        static void ioChanged(void* self, void* port, std::uint32_t id, void* area,
                              std::uint32_t size);
        static void stateChanged(void* self, pw_filter_state before, pw_filter_state state,
                                 const char* error);
        static void process(void* self, spa_io_position* position);

        PipeWireFilter& filter_;
        pw_filter_events program_{};
        void* data_;
        pw_filter_events ours_{};
    };

    /// An output port, as the program knows it.
    struct Port {
        PipeWireFilter* filter;
        OutputPort* output;

        /// [any thread] [real-time safe] The program fills that memory in the cycle that is under
        /// way; it has room for `frames`.
        void filled(void* memory, std::size_t frames) const noexcept;
    };

    // [one host thread at a time], which the library asks of the program as well.

    /// Throws std::bad_alloc.
    Events& addEvents(const pw_filter_events& program, void* data);
    void setHandle(pw_filter* handle) noexcept { handle_ = handle; }
    /// Throws std::bad_alloc.
    Port& addPort(const void* handle, tq_speaker speaker);
    void removePort(const void* handle);
    void stop() { group_.stop(); }

    template <class Visitor>
    void visitPorts(Visitor visitor) const {
        for (const auto& [handle, port] : ports_) {
            visitor(handle);
        }
    }

  private:
    void stateChanged(pw_filter_state state);
    [[nodiscard]] std::string name() const;

    const PipeWireFilterLibrary& library_;
    pw_filter* handle_ = nullptr;
    PortGroup group_;
    std::map<const void*, Port> ports_;
    std::vector<std::unique_ptr<Events>> events_;
    const spa_io_position* position_ = nullptr;  ///< the library's, which has the graph's rate
    /// Written before the program's process is called, read by the threads that it hands blocks
    /// over on.
    std::atomic<std::size_t> cycleFrames_{0};
};

/// All of them. The library's functions are never called with the lock held.
class PipeWireFilters {
  public:
    /// Made on first use, never destroyed.
    static PipeWireFilters& shared();

    // [host thread] Throw std::bad_alloc, after which the filter is not recorded or not all of it.

    /// The filter of that handle, which is made known. Null where the library misses something.
    PipeWireFilter* filter(pw_filter* handle, const PipeWireFilterLibrary& library);
    /// One that was made before its handle.
    void add(pw_filter* handle, std::unique_ptr<PipeWireFilter> filter);
    void addPort(PipeWireFilter& filter, const void* port, tq_speaker speaker);
    void removePort(const void* port);
    void stop(pw_filter* handle);
    /// Its handle is about to become invalid. The filter has to live until its events are over.
    /// Null for one that is not known.
    [[nodiscard]] std::unique_ptr<PipeWireFilter> take(pw_filter* handle);

    /// [any thread] [real-time safe] Null for ports that are not recorded.
    [[nodiscard]] const PipeWireFilter::Port* port(const void* handle) const noexcept {
        return ports_.find(handle);
    }

  private:
    PipeWireFilters() = default;

    std::mutex lock_;
    tqcommon::ForkLock atFork_{tqcommon::ForkOrder::NativeStreams, lock_};
    std::map<pw_filter*, std::unique_ptr<PipeWireFilter>> filters_;
    StreamTable<PipeWireFilter::Port> ports_;
};

}  // namespace tq::bridges
