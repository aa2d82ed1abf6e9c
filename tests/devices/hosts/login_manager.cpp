// What stands in for the system's login manager, on the bus of DBUS_SYSTEM_BUS_ADDRESS:
//   login_manager SLEEP WAKE
// When there is a file SLEEP it says that the machine is about to sleep, when there is a file WAKE
// that it is awake. It says "delayed" for each delay that it grants, "released" when one is given
// back.

#include <dbus/dbus.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>

namespace {

constexpr const char* kPath = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";

void say(const char* word) {
    std::puts(word);
    std::fflush(stdout);
}

void emit(DBusConnection* bus, dbus_bool_t sleeps) {
    DBusMessage* const signal = dbus_message_new_signal(kPath, kInterface, "PrepareForSleep");
    dbus_message_append_args(signal, DBUS_TYPE_BOOLEAN, &sleeps, DBUS_TYPE_INVALID);
    dbus_connection_send(bus, signal, nullptr);
    dbus_connection_flush(bus);
    dbus_message_unref(signal);
}

/// The end of a pipe whose other end shows when the delay is given back.
int grant(DBusConnection* bus, DBusMessage* call) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        return -1;
    }
    DBusMessage* const answer = dbus_message_new_method_return(call);
    dbus_message_append_args(answer, DBUS_TYPE_UNIX_FD, &ends[1], DBUS_TYPE_INVALID);
    dbus_connection_send(bus, answer, nullptr);
    dbus_connection_flush(bus);
    dbus_message_unref(answer);
    close(ends[1]);
    say("delayed");
    return ends[0];
}

}  // namespace

int main(int argc, char** argv) {
    DBusConnection* const bus = dbus_bus_get_private(DBUS_BUS_SYSTEM, nullptr);
    if (argc != 3 || bus == nullptr ||
        dbus_bus_request_name(bus, "org.freedesktop.login1", 0, nullptr) < 0) {
        return 1;
    }
    say("ready");
    int delay = -1;
    bool hasSlept = false;
    bool hasWoken = false;
    while (dbus_connection_read_write(bus, 20) == TRUE) {
        while (DBusMessage* const message = dbus_connection_pop_message(bus)) {
            if (dbus_message_is_method_call(message, kInterface, "Inhibit") == TRUE) {
                delay = grant(bus, message);
            }
            dbus_message_unref(message);
        }
        pollfd end{delay, 0, 0};
        if (delay >= 0 && poll(&end, 1, 0) > 0) {
            say("released");
            close(delay);
            delay = -1;
        }
        if (!hasSlept && std::filesystem::exists(argv[1])) {
            hasSlept = true;
            emit(bus, TRUE);
        }
        if (!hasWoken && std::filesystem::exists(argv[2])) {
            hasWoken = true;
            emit(bus, FALSE);
        }
    }
    return 0;
}
