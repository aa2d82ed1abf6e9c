#include "LoginManager.h"

#include <utility>

namespace tqcubeb {

namespace {

constexpr const char* kName = "org.freedesktop.login1";
constexpr const char* kPath = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";
constexpr const char* kSignal = "PrepareForSleep";
/// With the sender: on a system's bus anybody may send a signal.
constexpr const char* kRule =
    "type='signal',sender='org.freedesktop.login1',interface='org.freedesktop.login1.Manager',"
    "member='PrepareForSleep'";

}  // namespace

LoginManager::LoginManager() : bus_(dbus_bus_get_private(DBUS_BUS_SYSTEM, nullptr)) {
    if (bus_ != nullptr) {
        dbus_connection_set_exit_on_disconnect(bus_.get(), FALSE);
        dbus_bus_add_match(bus_.get(), kRule, nullptr);
        askForDelay();
    }
}

void LoginManager::askForDelay() {
    const Message call(dbus_message_new_method_call(kName, kPath, kInterface, "Inhibit"));
    if (call == nullptr) {
        return;
    }
    const char* what = "sleep";
    const char* who = "TQAudioRecord platform";
    const char* why = "sound is stopped first";
    const char* mode = "delay";
    if (dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &what, DBUS_TYPE_STRING, &who,
                                 DBUS_TYPE_STRING, &why, DBUS_TYPE_STRING, &mode,
                                 DBUS_TYPE_INVALID) == TRUE) {
        // A sound library's thread must not start a service of the system.
        dbus_message_set_auto_start(call.get(), FALSE);
        dbus_connection_send(bus_.get(), call.get(), &asked_);
        dbus_connection_flush(bus_.get());
    }
}

void LoginManager::takeDelay(DBusMessage& answer) {
    int descriptor = -1;
    if (dbus_message_get_args(&answer, nullptr, DBUS_TYPE_UNIX_FD, &descriptor,
                              DBUS_TYPE_INVALID) == TRUE) {
        delay_ = tqcommon::Descriptor(descriptor);
    }
}

std::optional<bool> LoginManager::news() {
    if (isToldToSleep_) {
        delay_.reset();
        isToldToSleep_ = false;
    }
    if (bus_ == nullptr) {
        return std::nullopt;
    }
    // False when the bus has gone, with what it said before still to be taken.
    const bool isThere = dbus_connection_read_write(bus_.get(), 0) == TRUE;
    while (const Message message{dbus_connection_pop_message(bus_.get())}) {
        if (asked_ != 0 && dbus_message_get_reply_serial(message.get()) == asked_) {
            asked_ = 0;
            takeDelay(*message);
        }
        dbus_bool_t sleeps = FALSE;
        if (dbus_message_is_signal(message.get(), kInterface, kSignal) == TRUE &&
            dbus_message_get_args(message.get(), nullptr, DBUS_TYPE_BOOLEAN, &sleeps,
                                  DBUS_TYPE_INVALID) == TRUE) {
            isAsleep_ = isToldToSleep_ = sleeps == TRUE;
            if (!isToldToSleep_) {
                askForDelay();
            }
            return sleeps == TRUE;
        }
    }
    if (!isThere) {
        bus_.reset();
        if (std::exchange(isAsleep_, false)) {
            return false;  // nobody is left to say that it is awake
        }
    }
    return std::nullopt;
}

}  // namespace tqcubeb
