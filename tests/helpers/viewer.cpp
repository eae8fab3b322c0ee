#include "viewer.h"

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "show/archive.h"
#include "archives.h"
#include "codec/codec.h"

const char* const kTitle = "Marrowgate -- Pell Ormsby, KVORM 2007";

Color screenPixel(int i, int x, int y) {
    unsigned char band = (unsigned char)(((x / 8 + y / 8) & 1) * 40);
    return Color{(unsigned char)(i * 53 & 0xFF), (unsigned char)(40 + (i >> 8) * 60 + band), (unsigned char)(200 - y % 100),
                 0};
}

void writeShow(const std::string& path, const TestShow& show, const ShowNotes* notes) {
    vec<vec<unsigned char> > backgrounds;
    Bitmap bitmap;
    bitmap.data = allocPixels(show.width, show.height);
    bitmap.width = show.width;
    bitmap.height = show.height;
    for (int p = 0; p < show.width * show.height; p++) bitmap.data[p] = Color{0, 0, 0, 0};
    compress(bitmap, backgrounds.push(), false);
    vec<ScreenRecord> screens;
    vec<bool> flags;
    for (int i = 0; i < show.count(); i++) {
        for (int y = 0; y < show.height; y++)
            for (int x = 0; x < show.width; x++) bitmap.at(x, y) = screenPixel(i, x, y);
        ScreenRecord& r = screens.push();
        r.selector = 0;
        compress(bitmap, r.payload, false);
        flags.push(show.flags[i]);
    }
    writeArchiveFile(path, ARCHIVE_SEPARATE, "", backgrounds, screens, flags, notes);
}

void sleepMs(int ms) {
    timespec t = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&t, nullptr);
}

uint32_t pack565(Color c) { return (uint32_t)(c.r >> 3) << 11 | (uint32_t)(c.g >> 2) << 5 | (c.b >> 3); }

namespace {

// X errors about windows that went away between looking and poking are not fatal here.
int ignoreXError(Display*, XErrorEvent*) { return 0; }

// Waits until no window of an earlier viewer is left on the server.
void waitForNoViewer(Display* d) {
    for (int tries = 0; tries < 250 && findWindow(d, kTitle); tries++) sleepMs(20);
}

}  // namespace

RunningViewer::RunningViewer(const XServer& x, const TestShow& show, const std::string& archive,
                             std::vector<std::string> args, const std::vector<std::string>& env, bool focus)
    : x_(x), show_(show), depth16_(false) {
    XSetErrorHandler(ignoreXError);
    look_ = x.connect();
    if (!look_) return;
    waitForNoViewer(look_);
    out_ = tmp_.file("out");
    err_ = tmp_.file("err");
    std::vector<std::string> argv = {buildProgram("view_slides"), archive};
    argv.insert(argv.end(), args.begin(), args.end());
    pid_ = fork();
    if (pid_ == 0) {
        setenv("DISPLAY", x.name().c_str(), 1);
        unsetenv("DBUS_SESSION_BUS_ADDRESS");
        for (const std::string& e : env) putenv((char*)e.c_str());
        freopen(out_.c_str(), "w", stdout);
        freopen(err_.c_str(), "w", stderr);
        std::vector<char*> a;
        for (auto& s : argv) a.push_back((char*)s.c_str());
        a.push_back(nullptr);
        execv(a[0], a.data());
        _exit(127);
    }
    window_ = waitForWindow(look_, kTitle, 30000);  // unpacking under sanitizers on a loaded machine is slow
    if (!window_) return;
    depth16_ = DefaultDepth(look_, DefaultScreen(look_)) == 16;
    x.xdotool({"mousemove", "20", "20"});
    if (focus) XSetInputFocus(look_, window_, RevertToParent, CurrentTime);
    XSync(look_, False);
}

::testing::AssertionResult RunningViewer::ok() const {
    if (window_) return ::testing::AssertionSuccess();
    if (!look_) return ::testing::AssertionFailure() << "cannot connect to " << x_.name();
    int status = 0;
    bool ended = waitpid(pid_, &status, WNOHANG) == pid_;
    ::testing::AssertionResult failure = ::testing::AssertionFailure() << "no viewable window titled \"" << kTitle << "\"; ";
    if (ended) failure << "the viewer ended with status " << (WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    else failure << "the viewer still runs";
    return failure << "; its output: [" << out() << "], its errors: [" << err() << "]";
}

RunningViewer::~RunningViewer() {
    if (pid_ > 0 && !done_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (look_) XCloseDisplay(look_);
}

::testing::AssertionResult RunningViewer::shows(int i, int w, int h) {
    std::string why;
    for (int tries = 0; tries < 250; tries++) {
        why = compare(i, w, h);
        if (why.empty()) return ::testing::AssertionSuccess();
        sleepMs(20);
    }
    return ::testing::AssertionFailure() << "window does not show screen " << i << ": " << why;
}

int RunningViewer::quitWith(const std::string& name) {
    key(name);
    return finish();
}

int RunningViewer::finish() {
    int status = 0;
    for (int tries = 0; tries < 500; tries++) {
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            done_ = true;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        sleepMs(10);
    }
    return -1;
}

std::string RunningViewer::compare(int i, int w, int h) {
    Pixels p = captureWindow(look_, window_);
    if (w < 0) w = show_.width, h = show_.height;
    if (p.width != w || p.height != h) return "window is " + std::to_string(p.width) + " x " + std::to_string(p.height);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) {
            Color c = screenPixel(i, x, y);
            bool same = depth16_ ? p.rawAt(x, y) == pack565(c) : p.rgbAt(x, y) == ((uint32_t)c.r << 16 | c.g << 8 | c.b);
            if (!same) return "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") differs";
        }
    return "";
}
