#pragma once

#include <memory>

#include "device/ClientList.h"
#include "device/Device.h"

namespace tqplatform {

/// What every driver shares: its list of clients.
class Driver : public Device {
  public:
    void removeClient(DeviceClient& client) override { clients_.remove(client); }
    [[nodiscard]] bool isDeviceThread() const noexcept override { return clients_.isSliceThread(); }
    /// Only in the child of a fork, whose only thread is the forking one. The child's device
    /// starts without clients: the parent plays on, and the child must not play the same again.
    /// Units of the child play when they are started again.
    virtual void resetAfterFork() noexcept { clients_.resetAfterFork(); }

  protected:
    ClientList clients_;
};

/// Each returns null when its device cannot run here.
[[nodiscard]] std::unique_ptr<Driver> makeManualDevice();
[[nodiscard]] std::unique_ptr<Driver> makeNullDevice();

/// The driver of that name: "auto" (also for an empty or a null name) is the first one that
/// runs, an unknown name gives the null driver and a line on standard error.
[[nodiscard]] std::unique_ptr<Driver> makeDevice(const char* name);

}  // namespace tqplatform
