#include "PulseWatch.h"

#include <pulse/pulseaudio.h>
#include <unistd.h>

#include <atomic>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace tqcubeb {

namespace {

using tqplatform::HeardEnd;
using tqplatform::HeardPlace;

/// What of the server concerns a stream; each is asked for anew when the server says that it has
/// changed.
constexpr pa_subscription_event_type_t kFacilities[] = {
    PA_SUBSCRIPTION_EVENT_SINK, PA_SUBSCRIPTION_EVENT_SOURCE, PA_SUBSCRIPTION_EVENT_SINK_INPUT,
    PA_SUBSCRIPTION_EVENT_SOURCE_OUTPUT, PA_SUBSCRIPTION_EVENT_SERVER};
constexpr auto kMask = static_cast<pa_subscription_mask_t>(
    PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SINK_INPUT |
    PA_SUBSCRIPTION_MASK_SOURCE_OUTPUT | PA_SUBSCRIPTION_MASK_SERVER);

}  // namespace

/// Invariant: `news_` is what the server said last. Writer: the library's thread, in its callbacks.
/// Readers: any thread, with the lock that the writer takes for each change. The lists that are on
/// their way are the library's thread's alone; the server answers in the order of the questions.
class PulseWatch::Connection {
  public:
    explicit Connection(const char* application)
        : application_(application), process_(std::to_string(getpid())) {
        loop_ = pa_threaded_mainloop_new();
        if (loop_ == nullptr) {
            return;
        }
        context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), application);
        if (context_ == nullptr) {
            return;
        }
        pa_context_set_state_callback(context_, &onState, this);
        // A server that is not there is the device's to find; nobody starts one for the news.
        if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0) {
            pa_threaded_mainloop_start(loop_);
        }
    }
    ~Connection() {
        if (loop_ == nullptr) {
            return;
        }
        // Behind it no callback comes, and the context is this thread's.
        pa_threaded_mainloop_stop(loop_);
        if (context_ != nullptr) {
            pa_context_set_state_callback(context_, nullptr, nullptr);
            pa_context_set_subscribe_callback(context_, nullptr, nullptr);
            pa_context_disconnect(context_);
            pa_context_unref(context_);
        }
        pa_threaded_mainloop_free(loop_);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    [[nodiscard]] HeardPlace place() const {
        const std::lock_guard lock(mutex_);
        return {endOf(news_.sinks, news_.sink, news_.defaultSink),
                endOf(news_.sources, news_.source, news_.defaultSource)};
    }
    void expect(const std::string& microphone) {
        const std::lock_guard lock(mutex_);
        expected_ = microphone;
        // What it heard before is no news of the one that is opened now.
        news_.source = PA_INVALID_INDEX;
        noteSource();
    }
    [[nodiscard]] bool mishears() const noexcept {
        return mishears_.load(std::memory_order_relaxed);
    }

  private:
    using Ends = std::map<std::uint32_t, HeardEnd>;  ///< by the server's number
    struct News {
        Ends sinks, sources;
        std::uint32_t sink = PA_INVALID_INDEX;    ///< that this process plays on
        std::uint32_t source = PA_INVALID_INDEX;  ///< that it hears
        std::string defaultSink, defaultSource;
    };

    static HeardEnd endOf(const Ends& ends, std::uint32_t index, const std::string& usual) {
        const auto found = ends.find(index);
        if (found == ends.end()) {
            return {};
        }
        HeardEnd end = found->second;
        end.isDefault = end.name == usual;
        return end;
    }

    // [the library's thread]
    static void onState(pa_context* context, void* self) {
        if (pa_context_get_state(context) != PA_CONTEXT_READY) {
            return;
        }
        pa_context_set_subscribe_callback(context, &onEvent, self);
        forget(pa_context_subscribe(context, kMask, nullptr, nullptr));
        for (const pa_subscription_event_type_t facility : kFacilities) {
            static_cast<Connection*>(self)->ask(facility);
        }
    }
    static void onEvent(pa_context* /*context*/, pa_subscription_event_type_t event,
                        std::uint32_t /*index*/, void* self) {
        static_cast<Connection*>(self)->ask(
            static_cast<pa_subscription_event_type_t>(event & PA_SUBSCRIPTION_EVENT_FACILITY_MASK));
    }
    void ask(pa_subscription_event_type_t facility) {
        if (facility == PA_SUBSCRIPTION_EVENT_SINK) {
            forget(pa_context_get_sink_info_list(
                context_, &onDevice<pa_sink_info, &Connection::sinks_, &News::sinks>, this));
        } else if (facility == PA_SUBSCRIPTION_EVENT_SOURCE) {
            forget(pa_context_get_source_info_list(
                context_, &onDevice<pa_source_info, &Connection::sources_, &News::sources>, this));
        } else if (facility == PA_SUBSCRIPTION_EVENT_SINK_INPUT) {
            forget(pa_context_get_sink_input_info_list(
                context_,
                &onStream<pa_sink_input_info, &pa_sink_input_info::sink, &Connection::sink_,
                          &News::sink>,
                this));
        } else if (facility == PA_SUBSCRIPTION_EVENT_SOURCE_OUTPUT) {
            forget(pa_context_get_source_output_info_list(
                context_,
                &onStream<pa_source_output_info, &pa_source_output_info::source,
                          &Connection::source_, &News::source>,
                this));
        } else if (facility == PA_SUBSCRIPTION_EVENT_SERVER) {
            forget(pa_context_get_server_info(context_, &onServer, this));
        }
    }

    template <class Info, Ends Connection::*Coming, Ends News::*Known>
    static void onDevice(pa_context* /*context*/, const Info* info, int isLast, void* self) {
        take(self, [=](Connection& connection) {
            Ends& coming = connection.*Coming;
            if (isLast == 0) {
                coming[info->index] = {info->name, static_cast<Float64>(info->sample_spec.rate),
                                       info->sample_spec.channels, false};
                return;
            }
            const std::lock_guard lock(connection.mutex_);
            connection.news_.*Known = std::exchange(coming, {});
            connection.noteSource();
        });
    }
    template <class Info, std::uint32_t Info::*Device, std::uint32_t Connection::*Coming,
              std::uint32_t News::*Known>
    static void onStream(pa_context* /*context*/, const Info* info, int isLast, void* self) {
        take(self, [=](Connection& connection) {
            if (isLast == 0) {
                if (connection.isOurs(info->proplist)) {
                    connection.*Coming = info->*Device;
                }
                return;
            }
            const std::lock_guard lock(connection.mutex_);
            connection.news_.*Known = std::exchange(connection.*Coming, PA_INVALID_INDEX);
            connection.noteSource();
        });
    }
    /// With the lock.
    void noteSource() {
        const auto found = news_.sources.find(news_.source);
        const bool mishears =
            found != news_.sources.end() && (expected_.empty() ? isOfPrograms(found->second.name)
                                                               : found->second.name != expected_);
        mishears_.store(mishears, std::memory_order_relaxed);
    }
    static void onServer(pa_context* /*context*/, const pa_server_info* info, void* self) {
        take(self, [=](Connection& connection) {
            const auto orNothing = [](const char* name) { return name == nullptr ? "" : name; };
            const std::lock_guard lock(connection.mutex_);
            if (info != nullptr) {
                connection.news_.defaultSink = orNothing(info->default_sink_name);
                connection.news_.defaultSource = orNothing(info->default_source_name);
            }
        });
    }

    template <class Call>
    static void take(void* self, const Call& call) noexcept {
        try {
            call(*static_cast<Connection*>(self));
        } catch (const std::exception&) {
            // No memory for news: as if none had come.
        }
    }
    [[nodiscard]] bool isOurs(const pa_proplist* properties) const {
        const auto is = [=](const char* key, std::string_view value) {
            const char* const said = pa_proplist_gets(properties, key);
            return said != nullptr && said == value;
        };
        return is(PA_PROP_APPLICATION_PROCESS_ID, process_) &&
               is(PA_PROP_APPLICATION_NAME, application_);
    }
    /// Its answer comes all the same.
    static void forget(pa_operation* operation) {
        if (operation != nullptr) {
            pa_operation_unref(operation);
        }
    }

    const std::string application_;
    const std::string process_;
    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    // On their way.
    Ends sinks_, sources_;
    std::uint32_t sink_ = PA_INVALID_INDEX;
    std::uint32_t source_ = PA_INVALID_INDEX;

    mutable std::mutex mutex_;
    News news_;
    std::string expected_;  ///< the microphone's name; with the lock
    std::atomic<bool> mishears_{false};
};

PulseWatch::PulseWatch(const char* application)
    : connection_(std::make_unique<Connection>(application)) {
}

PulseWatch::~PulseWatch() = default;

HeardPlace PulseWatch::place() const {
    return connection_->place();
}

void PulseWatch::expect(const std::string& microphone) {
    connection_->expect(microphone);
}

bool PulseWatch::mishears() const noexcept {
    return connection_->mishears();
}

}  // namespace tqcubeb
