#include "xserver.h"

#include <X11/Xutil.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "display/win.h"

static const int FIRST_DISPLAY = 90;
static const int DISPLAY_TRIES = 60;
static const int START_TIMEOUT_MS = 15000;

static bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

static std::string findInPath(const std::string& program) {
    const char* path = getenv("PATH");
    std::stringstream dirs(path ? path : "/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string full = dir + "/" + program;
        if (access(full.c_str(), X_OK) == 0) return full;
    }
    return "";
}

static bool displayInUse(int n) {
    std::string num = std::to_string(n);
    return exists("/tmp/.X" + num + "-lock") || exists("/tmp/.X11-unix/X" + num);
}

static void redirect(int fd, const char* path, int flags) {
    int opened = open(path, flags, 0644);
    if (opened >= 0) dup2(opened, fd);
    if (opened >= 0 && opened != fd) close(opened);
}

static long long nowMs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (long long)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

static void sleepMs(int ms) {
    timespec t = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&t, nullptr);
}

// Reads the display number Xvfb writes once it accepts connections; false when it exits or
// stays silent.
static bool readReady(int fd) {
    std::string got;
    long long deadline = nowMs() + START_TIMEOUT_MS;
    while (got.find('\n') == std::string::npos) {
        pollfd p = {fd, POLLIN, 0};
        int left = (int)(deadline - nowMs());
        if (left <= 0 || poll(&p, 1, left) <= 0) return false;
        char buf[32];
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) return false;
        got.append(buf, (size_t)n);
    }
    return true;
}

static std::string screenArg(int depth, int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height) + "x" + std::to_string(depth);
}

XServer::XServer(int depth, int width, int height) {
    std::string xvfb = findInPath("Xvfb");
    if (xvfb.empty()) {
        error_ = "Xvfb is not installed (scripts/install-deps installs it); X tests skipped";
        return;
    }
    for (int n = FIRST_DISPLAY; n < FIRST_DISPLAY + DISPLAY_TRIES; n++)
        if (!displayInUse(n) &&
            start(n, {xvfb, "-screen", "0", screenArg(depth, width, height), "-nolisten", "tcp", "-noreset"}))
            return;
    if (error_.empty()) error_ = "could not start Xvfb on any display from :90 up";
}

// tests/xorg-dummy.conf with its placeholders filled in.
static std::string dummyConfig(const DummyXorg& xorg) {
    std::string c = readFileBytes(std::string(SLIDES_SOURCE_DIR) + "/tests/xorg-dummy.conf");
    auto fill = [&](const std::string& name, int value) {
        for (size_t at; (at = c.find(name)) != std::string::npos;) c.replace(at, name.size(), std::to_string(value));
    };
    fill("@DEPTH@", xorg.depth);
    fill("@WIDTH@", xorg.width);
    fill("@HEIGHT@", xorg.height);
    fill("@VIDEORAM@", xorg.width * xorg.height * 4 / 1024 + 4096);  // kilobytes
    return c;
}

XServer::XServer(const DummyXorg& xorg) {
    std::string server = findInPath("Xorg");
    if (server.empty()) {
        error_ = "Xorg is not installed (scripts/install-deps installs it with its dummy driver); tests skipped";
        return;
    }
    files_.reset(new TempDir);
    writeFileBytes(files_->file("xorg.conf"), dummyConfig(xorg));
    mkdir(files_->file("conf.d").c_str(), 0755);
    for (int n = FIRST_DISPLAY; n < FIRST_DISPLAY + DISPLAY_TRIES && pid_ <= 0; n++)
        if (!displayInUse(n))
            start(n, {server, "-config", files_->file("xorg.conf"), "-configdir", files_->file("conf.d"), "-logfile",
                      files_->file("log"), "-noreset", "-nolisten", "tcp", "-novtswitch", "-sharevts"});
    if (pid_ <= 0) {
        std::string log = readFileBytes(files_->file("log"));
        size_t cut = log.size() > 300 ? log.size() - 300 : 0;
        error_ = "Xorg with the dummy driver did not start (it needs root and xserver-xorg-video-dummy); its log "
                 "ends: " + log.substr(cut);
        return;
    }
    std::string size = std::to_string(xorg.width) + "x" + std::to_string(xorg.height);
    if (run({findInPath("xrandr"), "--fb", size}).status == 0) return;
    error_ = "xrandr could not give the screen its size (x11-xserver-utils installs xrandr)";
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

bool XServer::setMonitors(const std::vector<MonitorRect>& monitors) const {
    for (size_t i = 0; i < monitors.size(); i++) {
        const MonitorRect& m = monitors[i];
        // Millimetres as at 96 dots an inch; the first monitor takes over the driver's own output.
        std::string geometry = std::to_string(m.width) + "/" + std::to_string(m.width * 254 / 960) + "x" +
                               std::to_string(m.height) + "/" + std::to_string(m.height * 254 / 960) + "+" +
                               std::to_string(m.x) + "+" + std::to_string(m.y);
        RunResult r = run({findInPath("xrandr"), "--setmonitor", (i == 0 ? "*" : "") + m.name, geometry,
                           i == 0 ? "DUMMY0" : "none"});
        if (r.status != 0) return false;
    }
    return true;
}

bool XServer::start(int number, std::vector<std::string> argv) {
    int ready[2];
    if (pipe(ready) != 0) return false;
    argv.insert(argv.begin() + 1, ":" + std::to_string(number));
    argv.push_back("-displayfd");
    argv.push_back(std::to_string(ready[1]));
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        close(ready[0]);
        prctl(PR_SET_PDEATHSIG, SIGTERM);  // never outlive the test
        redirect(0, "/dev/null", O_RDONLY);
        redirect(1, "/dev/null", O_WRONLY);
        redirect(2, "/dev/null", O_WRONLY);
        std::vector<char*> args;
        for (std::string& a : argv) args.push_back((char*)a.c_str());
        args.push_back(nullptr);
        execv(argv[0].c_str(), args.data());
        _exit(127);
    }
    close(ready[1]);
    bool up = pid > 0 && readReady(ready[0]);
    close(ready[0]);
    if (up) {
        pid_ = pid;
        number_ = number;
        return true;
    }
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    return false;
}

XServer::~XServer() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
}

void XServer::useInThisProcess() const { setenv("DISPLAY", name().c_str(), 1); }

Display* XServer::connect() const { return XOpenDisplay(name().c_str()); }

RunResult XServer::run(const std::vector<std::string>& argv, const std::string& cwd) const {
    return runProgram(argv, cwd, {"DISPLAY=" + name()});
}

static RunResult collect(pid_t pid, const TempDir& io) {
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    RunResult r;
    if (WIFEXITED(wstatus)) r.status = WEXITSTATUS(wstatus);
    if (WIFSIGNALED(wstatus)) r.signal = WTERMSIG(wstatus);
    r.out = readFileBytes(io.file("out"));
    r.err = readFileBytes(io.file("err"));
    return r;
}

RunResult runChild(const std::string& display_name, const std::function<void()>& body) {
    TempDir io;
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        redirect(1, io.file("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC);
        redirect(2, io.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC);
        setenv("DISPLAY", display_name.c_str(), 1);
        body();
        fflush(nullptr);
        _exit(0);
    }
    return collect(pid, io);
}

RunResult XServer::xdotool(const std::vector<std::string>& args) const {
    std::vector<std::string> argv = {findInPath("xdotool")};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv);
}

pid_t XServer::xdotoolAsync(const std::vector<std::string>& args) const {
    std::string tool = findInPath("xdotool");
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        useInThisProcess();
        std::vector<char*> argv = {(char*)"xdotool"};
        for (const std::string& a : args) argv.push_back((char*)a.c_str());
        argv.push_back(nullptr);
        execv(tool.c_str(), argv.data());
        _exit(127);
    }
    return pid;
}

int waitChild(pid_t pid) {
    int wstatus = 0;
    if (pid <= 0 || waitpid(pid, &wstatus, 0) != pid) return -1;
    return WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
}

// One channel of a pixel value scaled to 8 bits.
static unsigned channel(unsigned long pixel, unsigned long mask) {
    if (!mask) return 0;
    int shift = __builtin_ctzl(mask);
    int bits = __builtin_popcountl(mask);
    unsigned long v = (pixel & mask) >> shift;
    return bits >= 8 ? (unsigned)(v >> (bits - 8)) : (unsigned)(v * 255 / ((1ul << bits) - 1));
}

uint32_t Pixels::rgbAt(int x, int y) const {
    const unsigned char* p = &rgb[((size_t)y * width + x) * 3];
    return (uint32_t)p[0] << 16 | (uint32_t)p[1] << 8 | p[2];
}

Pixels captureWindow(Display* d, Window w) {
    XWindowAttributes attr;
    if (!XGetWindowAttributes(d, w, &attr)) return Pixels();
    return captureArea(d, w, 0, 0, attr.width, attr.height);
}

Pixels captureArea(Display* d, Window w, int x0, int y0, int width, int height) {
    Pixels px;
    XWindowAttributes attr;
    if (!XGetWindowAttributes(d, w, &attr) || attr.map_state != IsViewable) return px;
    if (width <= 0 || height <= 0 || x0 < 0 || y0 < 0 || x0 + width > attr.width || y0 + height > attr.height)
        return px;
    XImage* image = XGetImage(d, w, x0, y0, width, height, AllPlanes, ZPixmap);
    if (!image) return px;
    px.width = width;
    px.height = height;
    px.raw.reserve((size_t)width * height);
    px.rgb.reserve((size_t)width * height * 3);
    for (int y = 0; y < px.height; y++)
        for (int x = 0; x < px.width; x++) {
            unsigned long v = XGetPixel(image, x, y);
            px.raw.push_back((uint32_t)v);
            px.rgb.push_back((unsigned char)channel(v, attr.visual->red_mask));
            px.rgb.push_back((unsigned char)channel(v, attr.visual->green_mask));
            px.rgb.push_back((unsigned char)channel(v, attr.visual->blue_mask));
        }
    XDestroyImage(image);
    return px;
}

static Window findBelow(Display* d, Window parent, const std::string& title) {
    Window root, up, *children = nullptr;
    unsigned n = 0;
    if (!XQueryTree(d, parent, &root, &up, &children, &n)) return 0;
    Window found = 0;
    for (unsigned i = 0; i < n && !found; i++) {
        char* name = nullptr;
        if (XFetchName(d, children[i], &name) && name) {
            if (title == name) found = children[i];
            XFree(name);
        }
        if (!found) found = findBelow(d, children[i], title);
    }
    if (children) XFree(children);
    return found;
}

Window findWindow(Display* d, const std::string& title) { return findBelow(d, DefaultRootWindow(d), title); }

// Polls ready() every few milliseconds until it holds or timeout_ms pass.
static bool pollUntil(const std::function<bool()>& ready, int timeout_ms) {
    long long deadline = nowMs() + timeout_ms;
    for (;;) {
        if (ready()) return true;
        if (nowMs() >= deadline) return false;
        sleepMs(2);
    }
}

Window waitForWindow(Display* d, const std::string& title, int timeout_ms) {
    Window found = 0;
    bool viewable = pollUntil(
        [&] {
            found = findWindow(d, title);
            XWindowAttributes attr;
            return found && XGetWindowAttributes(d, found, &attr) && attr.map_state == IsViewable;
        },
        timeout_ms);
    return viewable ? found : 0;
}

bool waitQueued(Display* d, int count, int timeout_ms) {
    return pollUntil(
        [&] {
            XSync(d, False);
            return XEventsQueued(d, QueuedAlready) >= count;
        },
        timeout_ms);
}

void sendClientMessage(Display* d, Window to, Window about, const char* type, long data0, long data1, long mask) {
    XEvent e = {};
    e.xclient.type = ClientMessage;
    e.xclient.window = about;
    e.xclient.message_type = XInternAtom(d, type, False);
    e.xclient.format = 32;
    e.xclient.data.l[0] = data0;
    e.xclient.data.l[1] = data1;
    XSendEvent(d, to, False, mask, &e);
    XFlush(d);
}

void sendCloseRequest(Display* d, Window w) {
    sendClientMessage(d, w, w, "WM_PROTOCOLS", (long)XInternAtom(d, "WM_DELETE_WINDOW", False), CurrentTime,
                      NoEventMask);
}

static const char* TEST_TITLE = "display test window";

static void drainEvents() {
    int code, x, y;
    XSync(display, False);
    while (peekEvent(&code, &x, &y)) skipEvent();
}

Display* openTestWindow(const XServer& x, int width, int height) {
    x.useInThisProcess();
    openWin((unsigned)width, (unsigned)height, TEST_TITLE);
    Display* look = x.connect();
    if (!look || waitForWindow(look, TEST_TITLE, 5000) != window) {
        closeTestWindow(look);
        return nullptr;
    }
    XSetInputFocus(look, window, RevertToPointerRoot, CurrentTime);
    XSync(look, False);
    drainEvents();
    return look;
}

void closeTestWindow(Display* look) {
    closeWin();
    if (look) XCloseDisplay(look);
}

static bool wmRunning(Display* d) {
    Atom check = XInternAtom(d, "_NET_SUPPORTING_WM_CHECK", False);
    Atom type;
    int format;
    unsigned long count = 0, left;
    unsigned char* data = nullptr;
    XGetWindowProperty(d, DefaultRootWindow(d), check, 0, 1, False, AnyPropertyType, &type, &format, &count, &left,
                       &data);
    if (data) XFree(data);
    return count == 1;
}

// The manager announces itself before its event loop runs; a window mapped in between was once
// never shown. Ready means a probe window gets mapped, asked again every second.
static bool managesWindows(Display* d) {
    Window probe = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 10, 10, 0, 0, 0);
    long long asked = 0;
    bool mapped = pollUntil(
        [&] {
            if (nowMs() - asked >= 1000) XMapWindow(d, probe), asked = nowMs();
            XWindowAttributes attr;
            return XGetWindowAttributes(d, probe, &attr) && attr.map_state == IsViewable;
        },
        START_TIMEOUT_MS);
    XDestroyWindow(d, probe);
    XSync(d, False);
    return mapped;
}

WindowManager::WindowManager(const XServer& x) {
    std::string openbox = findInPath("openbox");
    if (openbox.empty()) {
        error_ = "openbox is not installed (scripts/install-deps installs it)";
        return;
    }
    Display* d = x.connect();
    if (!d) {
        error_ = "cannot connect to " + x.name();
        return;
    }
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        x.useInThisProcess();
        redirect(1, "/dev/null", O_WRONLY);
        redirect(2, "/dev/null", O_WRONLY);
        execl(openbox.c_str(), "openbox", "--sm-disable", (char*)nullptr);
        _exit(127);
    }
    if (!pollUntil([&] { return wmRunning(d); }, START_TIMEOUT_MS) || !managesWindows(d)) {
        error_ = "openbox did not start";
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    XCloseDisplay(d);
}

WindowManager::~WindowManager() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
}
