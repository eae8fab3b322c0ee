// A private session bus (dbus-daemon) with a stand-in for the desktop's screen saver service,
// which records the Inhibit calls made to org.freedesktop.ScreenSaver and notices when their
// callers leave the bus.
#pragma once
#include <sys/types.h>

#include <string>

struct DBusConnection;

class FakeScreenSaver {
public:
    FakeScreenSaver();
    ~FakeScreenSaver();
    FakeScreenSaver(const FakeScreenSaver&) = delete;
    FakeScreenSaver& operator=(const FakeScreenSaver&) = delete;

    bool ok() const { return bus_ != nullptr; }
    const std::string& error() const { return error_; }
    std::string address() const { return address_; }  // for DBUS_SESSION_BUS_ADDRESS

    // Serves the bus for up to timeout_ms until an Inhibit call arrives; returns its arguments
    // ("application|reason") or "" after the timeout. Its caller is remembered.
    std::string waitForInhibit(int timeout_ms);
    // Serves the bus until the caller of the last Inhibit has left it; false after timeout_ms.
    bool waitUntilCallerLeaves(int timeout_ms);

private:
    bool serve(int timeout_ms, bool (FakeScreenSaver::*done)());
    bool inhibited() { return !inhibit_.empty(); }
    bool callerLeft() { return caller_left_; }

    pid_t daemon_ = -1;
    std::string address_, error_, inhibit_, caller_;
    bool caller_left_ = false;
    DBusConnection* bus_ = nullptr;
};
