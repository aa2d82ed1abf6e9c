#pragma once

#include <memory>
#include <optional>
#include <string>

#include "device/Backend.h"
#include "device/HeardDevice.h"
#include "device/handover/CareNotices.h"
#include "device/handover/CareRequests.h"
#include "device/handover/Caretaker.h"
#include "device/handover/Driving.h"

namespace tqplatform {

/// A device while somebody is to be heard or listens, and a clock the rest of the time: before,
/// behind and in every gap. Here is the door to the program and to the device; what renders is
/// Driving, who opens, watches and closes the device is the Caretaker, on a thread of his own since
/// that takes long, and what he is asked for by any other thread goes through CareRequests.
class HandoverBackend final : public Backend, private HeardHost {
  public:
    /// `name` is for the line that says that there is none.
    HandoverBackend(std::string name, HeardMaker make, std::unique_ptr<Backend> clock,
                    SleepWatchMaker watchSleep = {});
    ~HandoverBackend() override;

    // As in Backend, on the threads that it names.
    std::optional<DeviceFormat> open(BackendHost& host) override { return driving_.open(host); }
    bool start() override { return driving_.run(true); }
    void stop() noexcept override { static_cast<void>(driving_.run(false)); }
    bool preferRate(Float64 sampleRate, bool mayWait) noexcept override;
    [[nodiscard]] bool hasRefusedRate() const noexcept override {
        return requests_.hasRefusedRate();
    }
    bool preferDuration(Float64 seconds, bool mayWait) noexcept override;
    bool preferMicrophone(const std::string& name) noexcept override;
    [[nodiscard]] bool isHearing() const noexcept override { return caretaker_.isHearing(); }
    void expect(const ClientWants& wants, bool mayWait) noexcept override;
    void meet() noexcept override { requests_.meet(); }
    bool hurry(Float64 seconds) noexcept override;
    void forgetAfterFork() noexcept override;
    void forgetOthersAfterFork() noexcept override;

  private:
    // What the device calls.
    void renderHeard(const BlockRequest& block) noexcept override;
    void lostHeard() noexcept override { requests_.lose(); }
    bool isWantedAgain() noexcept override { return requests_.isWantedAgain(); }

    CareNotices notices_;
    CareRequests requests_;
    Driving driving_;
    Caretaker caretaker_;
};

}  // namespace tqplatform
