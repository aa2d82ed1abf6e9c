#pragma once

#include <dbus/dbus.h>

#include <memory>

#include "common/Descriptor.h"
#include "device/HeardDevice.h"

namespace tqcubeb {

/// What the login manager says on the system's bus before the machine sleeps and when it is awake.
/// Asked for a delay, it waits until programs know. [one host thread at a time]
class LoginManager final : public tqplatform::SleepWatch {
  public:
    /// Where there is no bus, or no login manager on it, no news comes.
    LoginManager();
    std::optional<bool> news() override;
    void forgetAfterFork() noexcept override { delay_.reset(); }
    /// Whether the machine waits for the next news() before it sleeps.
    [[nodiscard]] bool isDelaying() const { return static_cast<bool>(delay_); }

  private:
    struct Close {
        void operator()(DBusConnection* connection) const noexcept {
            dbus_connection_close(connection);
            dbus_connection_unref(connection);
        }
    };
    struct Unref {
        void operator()(DBusMessage* message) const noexcept { dbus_message_unref(message); }
    };
    using Message = std::unique_ptr<DBusMessage, Unref>;

    void askForDelay();
    void takeDelay(DBusMessage& answer);

    std::unique_ptr<DBusConnection, Close> bus_;
    dbus_uint32_t asked_ = 0;     ///< serial of the call for a delay
    tqcommon::Descriptor delay_;  ///< the machine does not sleep while it is open
    bool isToldToSleep_ = false;
    bool isAsleep_ = false;  ///< by the last news
};

}  // namespace tqcubeb
