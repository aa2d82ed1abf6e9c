#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "device/Backend.h"
#include "device/HostTimes.h"

namespace tqplatform {

/// Renders what a clock or a device asks for, one of them at a time. Clients go on from one to the
/// other between two requests; none is lost and none comes twice.
///
/// Two threads may ask for a block at one time, the clock's and the device's. Invariant: whoever
/// renders, changes the format or changes `driver_` holds `turn_`; a request that does not get it
/// is silence, and no client sees it. The clock drives until the device's first request behind
/// offer(), and again behind driveByClock().
class Driving final : private BackendHost {
  public:
    /// `tellLateFormat` has the clock's format told by who tells all else; false where there is
    /// nobody. [any thread]
    Driving(std::unique_ptr<Backend> clock, std::function<bool()> tellLateFormat);

    /// [host thread] Once, as Backend::open().
    std::optional<DeviceFormat> open(BackendHost& host);
    /// [any thread] There are clients, or none any more. False where the clock cannot run.
    bool run(bool isRunning) noexcept;
    /// [any thread] For what programs prefer.
    [[nodiscard]] Backend& clock() const noexcept { return *clock_; }
    [[nodiscard]] bool isByClock() const noexcept { return driver_.load() == Driver::clock; }

    /// [render thread] The device's, as HeardHost::renderHeard(). False in the child of a fork: a
    /// callback has forked, and this is the child's only thread.
    [[nodiscard]] bool renderHeard(const BlockRequest& block) noexcept;

    // [host thread] The caretaker's.
    /// A device of that format was reached. The clock keeps its rate, so that going over changes
    /// nothing for the units. Waits as long as a callback takes.
    void adopt(const DeviceFormat& format) noexcept;
    /// Of the device that was adopted last.
    [[nodiscard]] const DeviceFormat& heardFormat() const noexcept { return heardFormat_; }
    /// The device may take over at its next request. It is this process's.
    void offer() noexcept;
    /// It may not any more, and the clock drives. False, and all is as it was, while the program's
    /// callback holds a request.
    [[nodiscard]] bool withdraw() noexcept;
    /// The clock drives until the device's next request. False in the same case.
    bool driveByClock() noexcept;
    /// Starts or stops the clock, as clients and the device have it. False where it cannot run.
    bool settleClock() noexcept;
    /// As BackendHost::isNewFormat().
    [[nodiscard]] bool isNewFormat() noexcept override { return host_->isNewFormat(); }

    /// In the child of a fork: the clock drives, and there are no clients.
    void forgetAfterFork() noexcept;
    /// In the child of a fork, also inside a request: no device was offered.
    void forgetDeviceAfterFork() noexcept { isOffered_.store(false); }

  private:
    enum class Driver { clock, device };
    class Turn;

    // What the clock calls.
    AudioTimeStamp render(const BlockRequest& block) noexcept override;
    void changed(const DeviceFormat& format) noexcept override;
    void changedLate() noexcept override;
    void lost() noexcept override { host_->lost(); }

    /// The format of what drives; in a turn.
    void publish(Driver driver) noexcept;

    const std::function<bool()> tellLateFormat_;
    BackendHost* host_ = nullptr;

    std::atomic_flag turn_;
    std::atomic<Driver> driver_{Driver::clock};
    std::atomic<bool> isOffered_{false};  ///< the device may take over at its next request
    DeviceFormat published_{};            ///< what the host was told last; in a turn
    HostTimes times_;                     ///< in a turn
    DeviceFormat heardFormat_{};          ///< written by the caretaker in a turn, before it offers
    std::atomic<Float64> clockRate_{0};
    std::atomic<UInt32> clockFrames_{0};
    std::atomic<pid_t> process_{0};  ///< whose device was offered

    std::mutex clockVerbs_;               ///< held while the clock is started or stopped
    std::atomic<bool> isRunning_{false};  ///< there are clients
    bool clockRuns_ = false;              ///< under clockVerbs_

    const std::unique_ptr<Backend> clock_;  ///< it calls until it has ended: first of all
};

}  // namespace tqplatform
