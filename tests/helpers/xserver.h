// Tests against a private X server (Xvfb), never the tester's own display.
//
//   XServer x(24);                         // Xvfb on a free display from :90 up, 1280 x 1024
//   if (!x.ok()) GTEST_SKIP() << x.error();
//   x.useInThisProcess();                  // XOpenDisplay(nullptr) in this process finds it
//   Display* d = x.connect();              // a second connection to look and poke with
//   Window w = waitForWindow(d, "Title", 3000);
//   Pixels p = captureWindow(d, w);        // p.rgbAt(x, y) == 0xRRGGBB, p.rawAt(x, y)
//   x.xdotool({"key", "space"});           // keys, buttons, pointer through xdotool
//   RunResult r = x.run({buildProgram("view_slides")});         // a program on this display
//   RunResult c = x.runChild([] { openWin(8, 8, nullptr); });   // a forked body of this test
//
// Keys go to the focused window: give the window the focus first (XSetInputFocus) or move
// the pointer into it, since a fresh server focuses the window under the pointer.
#pragma once
#include <X11/Xlib.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "run.h"

// Forks, sets DISPLAY to display_name, runs body in the child and collects what it printed
// and its status (0 when body returns).
RunResult runChild(const std::string& display_name, const std::function<void()>& body);

// Xorg with the dummy video driver, which (unlike Xvfb) honours monitors made with xrandr
// --setmonitor: a screen of width x height pixels at depth.
struct DummyXorg {
    int depth, width, height;
};

// One RandR monitor: a named rectangle of the screen.
struct MonitorRect {
    std::string name;
    int x, y, width, height;
};

class XServer {
public:
    explicit XServer(int depth = 24, int width = 1280, int height = 1024);
    explicit XServer(const DummyXorg& xorg);
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    bool ok() const { return pid_ > 0; }
    const std::string& error() const { return error_; }
    std::string name() const { return ":" + std::to_string(number_); }  // e.g. ":90"

    void useInThisProcess() const;  // sets DISPLAY
    Display* connect() const;       // a new connection, or null; the caller closes it

    // Runs a program with DISPLAY set to this server.
    RunResult run(const std::vector<std::string>& argv, const std::string& cwd = "") const;
    // runChild (below) on this server.
    RunResult runChild(const std::function<void()>& body) const { return ::runChild(name(), body); }
    // Runs xdotool with these arguments on this server and waits for it.
    RunResult xdotool(const std::vector<std::string>& args) const;
    // Starts xdotool without waiting (its own "sleep S" command can delay the input);
    // finish it with waitChild.
    pid_t xdotoolAsync(const std::vector<std::string>& args) const;
    // Splits the screen into these monitors with xrandr, the first one primary; false when
    // xrandr fails.
    bool setMonitors(const std::vector<MonitorRect>& monitors) const;

private:
    // Starts the server (argv without its display and -displayfd) on display :number.
    bool start(int number, std::vector<std::string> argv);

    pid_t pid_ = -1;
    int number_ = -1;
    std::string error_;
    std::unique_ptr<TempDir> files_;  // Xorg's configuration and log
};

// The openbox window manager on a server, running once it has named itself on the root window;
// stopped by the destructor.
class WindowManager {
public:
    explicit WindowManager(const XServer& x);
    ~WindowManager();
    WindowManager(const WindowManager&) = delete;
    WindowManager& operator=(const WindowManager&) = delete;

    bool ok() const { return pid_ > 0; }
    const std::string& error() const { return error_; }

private:
    pid_t pid_ = -1;
    std::string error_;
};

// Waits for a child started by xdotoolAsync; returns its exit status or -1.
int waitChild(pid_t pid);

// The window's pixels as the server holds them.
struct Pixels {
    int width = 0, height = 0;
    std::vector<uint32_t> raw;        // pixel values in the visual's layout
    std::vector<unsigned char> rgb;   // the same decoded to 8-bit red, green, blue
    uint32_t rawAt(int x, int y) const { return raw[(size_t)y * width + x]; }
    uint32_t rgbAt(int x, int y) const;  // 0xRRGGBB
};

// Captures the whole window (it must be viewable); empty Pixels on failure.
Pixels captureWindow(Display* d, Window w);
// Captures the rectangle of the window at (x, y); empty Pixels when it is not all inside.
Pixels captureArea(Display* d, Window w, int x, int y, int width, int height);

// The first window named title below the root, or 0.
Window findWindow(Display* d, const std::string& title);
// Polls until a window named title is viewable; 0 after timeout_ms.
Window waitForWindow(Display* d, const std::string& title, int timeout_ms);
// Polls until the connection holds at least count queued events; false after timeout_ms.
bool waitQueued(Display* d, int count, int timeout_ms);

// Sends a 32-bit client message of the type about window `about` to window `to`, for the
// clients that select `mask` there.
void sendClientMessage(Display* d, Window to, Window about, const char* type, long data0, long data1, long mask);
// Sends the window manager's close request (WM_DELETE_WINDOW) to the window.
void sendCloseRequest(Display* d, Window w);

// The display layer's window opened in this process on server x: waits until it is viewable,
// gives it the input focus and handles the events of its mapping. Returns a second connection
// for looking and poking, or null on failure; closeTestWindow closes both.
Display* openTestWindow(const XServer& x, int width, int height);
void closeTestWindow(Display* look);
