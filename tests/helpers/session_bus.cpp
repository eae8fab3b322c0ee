#include "session_bus.h"

#include <dbus/dbus.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstring>

static long long nowMs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (long long)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

// Starts dbus-daemon with the session configuration; it prints its address on the pipe.
static pid_t startDaemon(std::string& address) {
    int out[2];
    if (pipe(out) != 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        close(out[0]);
        int quiet = open("/dev/null", O_WRONLY);
        if (quiet >= 0) dup2(quiet, 2);
        std::string fd = std::to_string(out[1]);
        execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", ("--print-address=" + fd).c_str(),
               (char*)nullptr);
        _exit(127);
    }
    close(out[1]);
    char buf[512];
    ssize_t n = pid > 0 ? read(out[0], buf, sizeof buf - 1) : -1;
    close(out[0]);
    if (n <= 0) return pid;
    buf[n] = 0;
    address = std::string(buf, strcspn(buf, "\n"));
    return pid;
}

FakeScreenSaver::FakeScreenSaver() {
    daemon_ = startDaemon(address_);
    if (address_.empty()) {
        error_ = "dbus-daemon did not start (the dbus-daemon package installs it)";
        return;
    }
    DBusError e;
    dbus_error_init(&e);
    DBusConnection* c = dbus_connection_open_private(address_.c_str(), &e);
    if (c && dbus_bus_register(c, &e) &&
        dbus_bus_request_name(c, "org.freedesktop.ScreenSaver", DBUS_NAME_FLAG_DO_NOT_QUEUE, &e) ==
            DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) {
        dbus_bus_add_match(c, "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'", &e);
        bus_ = c;
    } else {
        error_ = std::string("could not serve the screen saver on the private bus: ") + (e.message ? e.message : "");
        if (c) dbus_connection_close(c), dbus_connection_unref(c);
    }
    dbus_error_free(&e);
}

FakeScreenSaver::~FakeScreenSaver() {
    if (bus_) {
        dbus_connection_close(bus_);
        dbus_connection_unref(bus_);
    }
    if (daemon_ > 0) {
        kill(daemon_, SIGTERM);
        waitpid(daemon_, nullptr, 0);
    }
}

bool FakeScreenSaver::serve(int timeout_ms, bool (FakeScreenSaver::*done)()) {
    long long deadline = nowMs() + timeout_ms;
    while (bus_ && !(this->*done)() && nowMs() < deadline) {
        dbus_connection_read_write(bus_, 50);
        while (DBusMessage* m = dbus_connection_pop_message(bus_)) {
            if (dbus_message_is_method_call(m, "org.freedesktop.ScreenSaver", "Inhibit")) {
                const char *application = "", *reason = "";
                dbus_message_get_args(m, nullptr, DBUS_TYPE_STRING, &application, DBUS_TYPE_STRING, &reason,
                                      DBUS_TYPE_INVALID);
                inhibit_ = std::string(application) + "|" + reason;
                caller_ = dbus_message_get_sender(m);
                caller_left_ = false;
                DBusMessage* reply = dbus_message_new_method_return(m);
                dbus_uint32_t cookie = 7;
                dbus_message_append_args(reply, DBUS_TYPE_UINT32, &cookie, DBUS_TYPE_INVALID);
                dbus_connection_send(bus_, reply, nullptr);
                dbus_message_unref(reply);
            } else if (dbus_message_is_signal(m, "org.freedesktop.DBus", "NameOwnerChanged")) {
                const char *name = "", *before = "", *after = "";
                dbus_message_get_args(m, nullptr, DBUS_TYPE_STRING, &name, DBUS_TYPE_STRING, &before,
                                      DBUS_TYPE_STRING, &after, DBUS_TYPE_INVALID);
                if (!caller_.empty() && caller_ == name && after[0] == 0) caller_left_ = true;
            }
            dbus_message_unref(m);
        }
    }
    return (this->*done)();
}

std::string FakeScreenSaver::waitForInhibit(int timeout_ms) {
    inhibit_.clear();
    serve(timeout_ms, &FakeScreenSaver::inhibited);
    return inhibit_;
}

bool FakeScreenSaver::waitUntilCallerLeaves(int timeout_ms) { return serve(timeout_ms, &FakeScreenSaver::callerLeft); }
