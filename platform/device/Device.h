#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "device/Backend.h"
#include "device/BackendTable.h"
#include "device/ClientList.h"
#include "device/SliceBuffers.h"

// A device is one clock. Once per period it hands every client one slice, in the order in which
// the clients were added, all on one thread; it sums what they render and plays it. One clock and
// one thread for all units of a process, like the hardware cycle of a phone: tracks captured from
// different units can never drift apart.

namespace tqplatform {

/// The device of a process, on whatever backend drives it at the moment. Not destroyed once it had
/// a client: backends' threads run to the end of the process.
class Device final : private BackendHost {
  public:
    /// [host thread] Opens the first of `rows` that is called `name` and can run; "auto" stands for
    /// any row that is marked so. Null when there is none. The rows outlive the device.
    [[nodiscard]] static std::unique_ptr<Device> open(std::string_view name,
                                                      std::span<const BackendRow> rows);

    // [any thread] What drives the device now. All but maximumFrames() may change between two
    // slices.
    [[nodiscard]] std::string_view name() const noexcept;
    [[nodiscard]] Float64 sampleRate() const noexcept;
    [[nodiscard]] UInt32 outputChannels() const noexcept;
    [[nodiscard]] UInt32 inputChannels() const noexcept;
    [[nodiscard]] UInt32 maximumFrames() const noexcept { return maximumFrames_; }
    /// Of the slice that was rendered last; before the first of most slices, 0 when unknown.
    [[nodiscard]] UInt32 sliceFrames() const noexcept {
        return sliceFrames_.load(std::memory_order_relaxed);
    }

    /// In frames, at the most; 0 for one slice.
    [[nodiscard]] UInt32 outputLatency() const noexcept { return outputLatency_.load(); }
    [[nodiscard]] UInt32 inputLatency() const noexcept { return inputLatency_.load(); }

    /// [host thread] Before a program is told what the device is like: it may have to be reached
    /// first, which takes a second at most, and once.
    void meet();

    /// [any thread] Adds a client behind the others; adding it twice changes nothing. The first
    /// client starts the device. A client that is to be heard is added when the device plays, or
    /// after a second. False when the device cannot run.
    [[nodiscard]] bool addClient(DeviceClient& client);
    /// [any thread] When it returns, client.render() is not running and will not be entered again;
    /// on the device's thread itself it returns at once (render() may be its caller) and the
    /// client is not entered again. Unknown clients are ignored.
    void removeClient(DeviceClient& client);
    /// [any thread] True on the thread that is inside a slice of this device.
    [[nodiscard]] bool isDeviceThread() const noexcept { return clients_.isSliceThread(); }

    /// [any thread] Asks for another rate, which running clients see between two slices. Inside a
    /// slice it is there behind it. False when what drives the device keeps its own, and inside a
    /// slice also while another thread starts or stops the device.
    [[nodiscard]] bool preferRate(Float64 sampleRate);
    /// [any thread] Whether a rate that was taken does not hold after all: a device that is heard
    /// has refused it since.
    [[nodiscard]] bool hasRefusedRate();
    /// [any thread] As preferRate(), for the length of a slice in seconds.
    bool preferDuration(Float64 seconds);

    /// [host thread] The same for the microphone, by its name; empty for the default.
    bool preferMicrophone(const std::string& name);
    /// [host thread] Whether a microphone is open; false on a clock, whose microphone is silence.
    [[nodiscard]] bool isHearing();

    /// [any thread] Whether programs have not been told of the rate and the channels that hold now.
    /// From here on they count as told: the caller does it. [real-time safe]
    [[nodiscard]] bool isNewFormat() noexcept override;

    /// [host thread] For calls of its own that a backend offers to programs.
    [[nodiscard]] Backend& backend() noexcept { return *backend_; }

    /// [any thread] Holds clients off until resume(): see ClientList::pause().
    [[nodiscard]] bool pause(std::chrono::nanoseconds longest) { return clients_.pause(longest); }
    void resume() { clients_.resume(); }

    /// Only in the child of a fork, whose only thread is the forking one. The child's device
    /// starts without clients: the parent plays on, and the child must not play the same again.
    /// Units of the child play when they are started again.
    void resetAfterFork() noexcept;

  private:
    explicit Device(std::span<const BackendRow> rows) : rows_(rows) {}

    class Coming;

    // What backends call.
    AudioTimeStamp render(const BlockRequest& block) noexcept override;
    void changed(const DeviceFormat& format) noexcept override;
    void changedLate() noexcept override;
    void lost() noexcept override;

    /// Opens a backend of that name in place of the present one.
    bool take(std::string_view name);
    /// Makes memory for the format and publishes it. Throws std::bad_alloc with nothing changed.
    void adopt(const DeviceFormat& format);
    /// Asks the backend under verbs_; inside a slice it gives up where it would have to wait.
    template <class Ask>
    bool asked(const Ask& ask);
    /// Of the clients that are there or about to come.
    [[nodiscard]] unsigned wants() const noexcept;
    /// [host thread] The backend gets ready for a client before it is added.
    void expect(const ClientWants& wants);
    /// [host thread] Brings the backend to where the clients want it. False when it cannot run.
    bool follow();
    /// [any thread] The same on a thread of its own.
    void followElsewhere() noexcept;
    /// [any thread] Calls it on a thread of its own; not where there can be none.
    template <class Call>
    static void elsewhere(const Call& call) noexcept;
    /// [render thread] Clients have left from inside a slice.
    void rest() noexcept;
    AudioTimeStamp stamp(UInt64 hostTime) const noexcept;

    // Under verbs_.
    bool settle();
    void tell(bool mayWait) noexcept;
    bool start();
    /// Ends the backend and takes one of that name, or else the last of the table.
    bool replace(std::string_view name) noexcept;

    const std::span<const BackendRow> rows_;
    ClientList clients_;
    std::unique_ptr<SliceBuffers> buffers_;  ///< replaced while no render can come
    /// Held while the backend is opened, started, stopped or ended. Renders never wait for it.
    std::mutex verbs_;
    std::unique_ptr<Backend> backend_;
    std::atomic<const BackendRow*> row_{nullptr};
    std::atomic<Float64> sampleRate_{0};
    std::atomic<UInt32> outputChannels_{0};
    std::atomic<UInt32> inputChannels_{0};
    std::atomic<UInt32> outputLatency_{0};
    std::atomic<UInt32> inputLatency_{0};
    UInt32 maximumFrames_ = 0;            ///< set once: larger blocks come to clients in parts
    UInt64 framesRendered_ = 0;           ///< in renders only
    std::atomic<UInt32> sliceFrames_{0};  ///< written in renders; says nothing about other memory
    std::atomic<bool> running_{false};    ///< start() was the last verb; written under verbs_
    std::atomic<bool> lost_{false};       ///< the backend has to be replaced
    // As programs were told last; those of the first backend they know.
    std::atomic<Float64> toldRate_{0};
    std::atomic<UInt32> toldOutputs_{0};
    std::atomic<UInt32> toldInputs_{0};
    Float64 preferredRate_ = 0;        ///< under verbs_; 0 while nobody asked for one
    Float64 preferredSeconds_ = 0;     ///< the same for the length of a slice
    std::string preferredMicrophone_;  ///< the same; empty for the default
    /// Clients that are about to be added, who are to be heard and who listen.
    std::atomic<int> comingHeard_{0};
    std::atomic<int> comingHearing_{0};
    std::atomic<unsigned> told_{0};  ///< wants() as the backend knows them; written under verbs_
    std::atomic<bool> met_{false};
    bool replacing_ = false;  ///< under verbs_; read by a child of a fork
};

/// The device of that name: "auto" (also for an empty or a null name) is the first one that opens,
/// an unknown name gives the last of the table and a line on standard error.
[[nodiscard]] std::unique_ptr<Device> makeDevice(const char* name);

/// The device of this process, chosen once by TQ_AUDIO_DEVICE; never destroyed.
[[nodiscard]] Device& sharedDevice();

}  // namespace tqplatform
