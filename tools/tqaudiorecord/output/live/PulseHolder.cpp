// tqaudiorecord-live-pulse: holds the recorder's live sources in PulseAudio. They are modules of
// the server, which stay until somebody unloads them: this program does, once the recorder has
// gone, by whatever death. What one that was killed itself has left is unloaded by the next.

#include <fcntl.h>
#include <pulse/pulseaudio.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "output/live/LiveHolder.h"
#include "output/live/PulseSource.h"

namespace tqrecorder {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kModule = "module-pipe-source";
constexpr const char* kFolderBegin = "tqaudiorecord-live-";
constexpr const char* kLock = "lock";
/// Silence is filled in in pieces of that.
constexpr pa_usec_t kFillPause = 10'000;

/// The folder of the holder that has loaded a module with these arguments; empty for others.
fs::path folderOf(const char* arguments) {
    const std::string text = arguments == nullptr ? "" : arguments;
    const std::string begin = "file=\"";
    const std::size_t from = text.find(begin);
    const std::size_t to = text.find(std::string("/") + kFolderBegin);
    const std::size_t end = text.find('/', to == std::string::npos ? to : to + 1);
    if (from != 0 || to == std::string::npos || end == std::string::npos) {
        return {};
    }
    return text.substr(begin.size(), end - begin.size());
}

/// A folder for the pipes, which no other user looks into. As long as the holder lives it holds a
/// lock there.
class PipeFolder {
  public:
    PipeFolder() {
        const char* runtime = std::getenv("XDG_RUNTIME_DIR");
        std::string path = (runtime != nullptr && *runtime == '/' ? std::string(runtime) : "/tmp") +
                           "/" + kFolderBegin + "XXXXXX";
        if (mkdtemp(path.data()) != nullptr) {
            path_ = path;
            lock_ = tqcommon::Descriptor(
                ::open((path_ / kLock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
            (void)flock(lock_.get(), LOCK_EX | LOCK_NB);
        }
    }
    ~PipeFolder() { remove(path_); }
    PipeFolder(const PipeFolder&) = delete;
    PipeFolder& operator=(const PipeFolder&) = delete;

    [[nodiscard]] std::string file(std::uint32_t number) const {
        return (path_ / (std::to_string(number) + ".fifo")).string();
    }
    [[nodiscard]] explicit operator bool() const { return static_cast<bool>(lock_); }
    /// Whether one was left behind by a holder that was killed.
    [[nodiscard]] static bool isLeft(const fs::path& folder) {
        const tqcommon::Descriptor lock(::open((folder / kLock).c_str(), O_RDWR | O_CLOEXEC));
        return lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0;
    }
    static void remove(const fs::path& folder) {
        std::error_code ignored;
        if (!folder.empty()) {
            fs::remove_all(folder, ignored);
        }
    }

  private:
    fs::path path_;
    tqcommon::Descriptor lock_;
};

/// All sources of one recorder.
class Holder : public LiveHolder {
  public:
    Holder();
    ~Holder() override;

    /// Until the recorder or the server goes.
    int run();

  private:
    using Sources = std::map<std::uint32_t, std::unique_ptr<PulseSource>>;

    static void stateChanged(pa_context* context, void* data);
    static void serverKnown(pa_context* context, const pa_server_info* info, void* data);
    static void moduleListed(pa_context* context, const pa_module_info* info, int end, void* data);
    static void sourceListed(pa_context* context, const pa_source_info* info, int end, void* data);
    static void changed(pa_context* context, pa_subscription_event_type_t type, std::uint32_t index,
                        void* data);
    static void loaded(pa_context* context, std::uint32_t module, void* data);
    static void unloaded(pa_context* context, int success, void* data);
    static void timeOver(pa_mainloop_api* api, pa_time_event* event, const timeval* time,
                         void* data);

    void begin(const pa_server_info& info);
    void getReady();
    void open(const LiveHeader& header, const std::string& name,
              const std::string& description) override;
    void close(std::uint32_t id) override;
    void sound(std::uint32_t id, std::span<const std::byte> frames) override;
    [[nodiscard]] bool isAnyLeaving() const;
    void loadWaiting();
    void unload(std::uint32_t module);
    void refuse(std::uint32_t id, const std::string& reason);
    /// Everything goes; the program ends once it has.
    void end();
    void quitWhenDone();
    void fail(const std::string& why);
    static void forget(pa_operation* operation) {
        if (operation != nullptr) {
            pa_operation_unref(operation);
        }
    }

    pa_mainloop* loop_ = pa_mainloop_new();
    pa_mainloop_api* api_ = pa_mainloop_get_api(loop_);
    pa_context* context_ = pa_context_new(api_, "tqaudiorecord");
    PipeFolder folder_;
    Sources sources_;
    std::deque<std::uint32_t> waiting_;  ///< ids, to be loaded once nothing is being unloaded
    std::deque<std::uint32_t> loading_;  ///< ids, in the order in which the server answers
    int unloading_ = 0;
    std::set<std::uint32_t> leaving_;  ///< modules that are being unloaded, and are still there
    bool isSubscribed_ = false;
    std::string server_;
    std::set<fs::path> left_;  ///< folders of others that were killed
    bool isListed_ = false;
    bool isReady_ = false;
    bool isEnding_ = false;
};

Holder::Holder() = default;

Holder::~Holder() {
    pa_context_unref(context_);
    pa_mainloop_free(loop_);
}

int Holder::run() {
    pa_context_set_state_callback(context_, stateChanged, this);
    // A server that has to be started first is not the one that programs play to.
    if (!folder_) {
        fail("no folder for pipes can be made");
    } else if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        fail(pa_strerror(pa_context_errno(context_)));
    }
    int result = 0;
    pa_mainloop_run(loop_, &result);
    return result;
}

void Holder::fail(const std::string& why) {
    say(LiveKind::kFailed, "PulseAudio: " + why);
    pa_mainloop_quit(loop_, 1);
}

void Holder::stateChanged(pa_context* context, void* data) {
    auto& holder = *static_cast<Holder*>(data);
    switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY:
            forget(pa_context_get_server_info(context, serverKnown, data));
            break;
        case PA_CONTEXT_FAILED:
            holder.fail(pa_strerror(pa_context_errno(context)));
            break;
        case PA_CONTEXT_TERMINATED:
            pa_mainloop_quit(holder.loop_, 0);
            break;
        default:
            break;
    }
}

void Holder::serverKnown(pa_context* /*context*/, const pa_server_info* info, void* data) {
    if (info != nullptr) {
        static_cast<Holder*>(data)->begin(*info);
    }
}

void Holder::begin(const pa_server_info& info) {
    const std::string name = info.server_name == nullptr ? "" : info.server_name;
    if (name.find("PipeWire") != std::string::npos) {
        say(LiveKind::kElsewhere, name);
        pa_mainloop_quit(loop_, 0);
        return;
    }
    server_ = name + " " + (info.server_version == nullptr ? "" : info.server_version);
    pa_context_set_subscribe_callback(context_, changed, this);
    forget(pa_context_subscribe(
        context_,
        static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SOURCE |
                                            PA_SUBSCRIPTION_MASK_MODULE),
        [](pa_context*, int success, void* self) {
            static_cast<Holder*>(self)->isSubscribed_ = success != 0;
        },
        this));
    forget(pa_context_get_module_info_list(context_, moduleListed, this));
}

/// Once what others have left is gone, whose names are free then.
void Holder::getReady() {
    if (!isListed_ || unloading_ > 0 || std::exchange(isReady_, true)) {
        return;
    }
    std::for_each(left_.begin(), left_.end(), PipeFolder::remove);
    api_->io_new(
        api_, kLiveSocket, PA_IO_EVENT_INPUT,
        [](pa_mainloop_api*, pa_io_event*, int, pa_io_event_flags_t, void* self) {
            auto& holder = *static_cast<Holder*>(self);
            if (!holder.isEnding_ && !holder.takePackets()) {
                holder.end();
            }
        },
        this);
    pa_context_rttime_new(context_, pa_rtclock_now() + kFillPause, timeOver, this);
    say(LiveKind::kReady, server_);
}

void Holder::moduleListed(pa_context* /*context*/, const pa_module_info* info, int end,
                          void* data) {
    auto& holder = *static_cast<Holder*>(data);
    if (end != 0) {
        holder.isListed_ = true;
        holder.getReady();
        return;
    }
    if (info == nullptr || std::strcmp(info->name, kModule) != 0) {
        return;
    }
    const fs::path folder = folderOf(info->argument);
    if (!folder.empty() && (holder.left_.contains(folder) || PipeFolder::isLeft(folder))) {
        holder.left_.insert(folder);
        holder.unload(info->index);
    }
}

void Holder::open(const LiveHeader& header, const std::string& name,
                  const std::string& description) {
    auto source =
        std::make_unique<PulseSource>(header, folder_.file(header.source), name, description);
    sources_[header.source] = std::move(source);
    waiting_.push_back(header.source);
    loadWaiting();
}

/// Whether a source that was closed is still in the server, or on its way there.
bool Holder::isAnyLeaving() const {
    return !leaving_.empty() || std::any_of(loading_.begin(), loading_.end(),
                                            [this](auto id) { return !sources_.contains(id); });
}

/// The server gives a source another name while one has it that is to go. It answers that a module
/// is unloaded before it is: only the event of its removal tells.
void Holder::loadWaiting() {
    while (!isAnyLeaving() && !waiting_.empty()) {
        const auto found = sources_.find(waiting_.front());
        waiting_.pop_front();
        if (found != sources_.end()) {
            loading_.push_back(found->first);
            forget(pa_context_load_module(context_, kModule,
                                          found->second->moduleArguments().c_str(), loaded, this));
        }
    }
}

void Holder::sound(std::uint32_t id, std::span<const std::byte> frames) {
    if (const auto found = sources_.find(id); found != sources_.end()) {
        found->second->write(frames, Clock::now());
    }
}

void Holder::loaded(pa_context* context, std::uint32_t module, void* data) {
    auto& holder = *static_cast<Holder*>(data);
    const std::uint32_t id = holder.loading_.front();
    holder.loading_.pop_front();
    if (module == PA_INVALID_INDEX) {
        // The others are none the worse for it.
        holder.refuse(id, pa_strerror(pa_context_errno(context)));
        return;
    }
    const auto found = holder.sources_.find(id);
    if (holder.isEnding_ || found == holder.sources_.end()) {
        holder.unload(module);
        holder.quitWhenDone();
        return;
    }
    found->second->module = module;
    if (!found->second->open()) {
        holder.unload(module);
        holder.refuse(id, "its pipe cannot be opened; does the server run for this user?");
        return;
    }
    forget(pa_context_get_source_info_list(context, sourceListed, data));
}

void Holder::refuse(std::uint32_t id, const std::string& reason) {
    sources_.erase(id);
    say(LiveKind::kRefused, reason, id);
    loadWaiting();
    quitWhenDone();
}

void Holder::sourceListed(pa_context* /*context*/, const pa_source_info* info, int end,
                          void* data) {
    if (end != 0 || info == nullptr) {
        return;
    }
    for (auto& [id, source] : static_cast<Holder*>(data)->sources_) {
        if (source->module != PulseSource::kNone && source->module == info->owner_module) {
            source->index = info->index;
            source->setRead(info->state == PA_SOURCE_RUNNING);
        }
    }
}

void Holder::changed(pa_context* context, pa_subscription_event_type_t type, std::uint32_t index,
                     void* data) {
    if ((type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_MODULE) {
        auto& holder = *static_cast<Holder*>(data);
        if ((type & PA_SUBSCRIPTION_EVENT_TYPE_MASK) == PA_SUBSCRIPTION_EVENT_REMOVE &&
            holder.leaving_.erase(index) > 0) {
            holder.loadWaiting();
        }
        return;
    }
    for (const auto& [id, source] : static_cast<Holder*>(data)->sources_) {
        if (source->index == index) {
            forget(pa_context_get_source_info_by_index(context, index, sourceListed, data));
        }
    }
}

void Holder::timeOver(pa_mainloop_api* /*api*/, pa_time_event* event, const timeval* /*time*/,
                      void* data) {
    auto& holder = *static_cast<Holder*>(data);
    for (auto& [id, source] : holder.sources_) {
        source->fill(Clock::now());
    }
    pa_context_rttime_restart(holder.context_, event, pa_rtclock_now() + kFillPause);
}

void Holder::close(std::uint32_t id) {
    const auto found = sources_.find(id);
    if (found != sources_.end()) {
        if (found->second->module != PulseSource::kNone) {
            unload(found->second->module);
        }
        sources_.erase(found);
    }
}

void Holder::unload(std::uint32_t module) {
    ++unloading_;
    if (isSubscribed_) {
        leaving_.insert(module);
    }
    forget(pa_context_unload_module(context_, module, unloaded, this));
}

void Holder::unloaded(pa_context* /*context*/, int success, void* data) {
    auto& holder = *static_cast<Holder*>(data);
    --holder.unloading_;
    if (success == 0) {
        // Which one it was is not said, and no event comes of it.
        holder.leaving_.clear();
    }
    holder.getReady();
    holder.loadWaiting();
    holder.quitWhenDone();
}

void Holder::end() {
    isEnding_ = true;
    while (!sources_.empty()) {
        close(sources_.begin()->first);
    }
    quitWhenDone();
}

void Holder::quitWhenDone() {
    if (isEnding_ && unloading_ == 0 && loading_.empty()) {
        pa_mainloop_quit(loop_, 0);
    }
}

}  // namespace
}  // namespace tqrecorder

int main() {
    tqrecorder::LiveHolder::outliveSignals();
    return tqrecorder::Holder().run();
}
