// The session bus is reached through libdbus-1 loaded at run time, so that a show does not need
// it to start. Only the bus address from the environment is used: no bus is ever launched.
#include "app/session_idle.h"

#include <dbus/dbus.h>
#include <dlfcn.h>

#include <cstdlib>

namespace {

struct Bus {
    decltype(&dbus_error_init) error_init;
    decltype(&dbus_error_free) error_free;
    decltype(&dbus_bus_get_private) get_private;
    decltype(&dbus_connection_set_exit_on_disconnect) set_exit_on_disconnect;
    decltype(&dbus_message_new_method_call) new_method_call;
    decltype(&dbus_message_append_args) append_args;
    decltype(&dbus_connection_send) send;
    decltype(&dbus_connection_flush) flush;
    decltype(&dbus_message_unref) unref;
};

template <class F>
bool load(void* library, const char* name, F& f) {
    f = (F)dlsym(library, name);
    return f != nullptr;
}

bool loadBus(Bus& b) {
    void* library = dlopen("libdbus-1.so.3", RTLD_NOW | RTLD_LOCAL);
    return library && load(library, "dbus_error_init", b.error_init) &&
           load(library, "dbus_error_free", b.error_free) && load(library, "dbus_bus_get_private", b.get_private) &&
           load(library, "dbus_connection_set_exit_on_disconnect", b.set_exit_on_disconnect) &&
           load(library, "dbus_message_new_method_call", b.new_method_call) &&
           load(library, "dbus_message_append_args", b.append_args) &&
           load(library, "dbus_connection_send", b.send) && load(library, "dbus_connection_flush", b.flush) &&
           load(library, "dbus_message_unref", b.unref);
}

DBusConnection* held = nullptr;  // kept open until the process ends

}  // namespace

bool inhibitSessionIdle(const char* application, const char* reason) {
    Bus bus;
    if (held || !getenv("DBUS_SESSION_BUS_ADDRESS") || !loadBus(bus)) return false;
    DBusError error;
    bus.error_init(&error);
    held = bus.get_private(DBUS_BUS_SESSION, &error);
    bus.error_free(&error);
    if (!held) return false;
    bus.set_exit_on_disconnect(held, FALSE);
    DBusMessage* call = bus.new_method_call("org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver",
                                            "org.freedesktop.ScreenSaver", "Inhibit");
    if (!call) return false;
    bool sent = bus.append_args(call, DBUS_TYPE_STRING, &application, DBUS_TYPE_STRING, &reason, DBUS_TYPE_INVALID) &&
                bus.send(held, call, nullptr);
    bus.unref(call);
    if (sent) bus.flush(held);
    return sent;
}
