// Presenting on a projector: view_slides -present on Xorg's dummy driver with a laptop monitor
// and a projector monitor, with and without a window manager, at depths 24 and 16. Captures of
// the projector are compared with Pillow's bilinear resample of the screens; keys go through
// xdotool; the screen saver's state and the pointer's image are read from the server.
#include <gtest/gtest.h>  // before Xlib, whose None macro would break it
#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/scrnsaver.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "helpers/run.h"
#include "helpers/session_bus.h"
#include "helpers/viewer.h"
#include "helpers/xsuite.h"
#include "png/png.h"

namespace {

const char* const kPython = "/usr/bin/python3";

struct Rect {
    int x, y, width, height;
};

const Rect kLaptop = {0, 0, 1366, 768};
const Rect kProjector = {1366, 0, 1920, 1080};

// Ten screens of 160 x 120 in six slides: [0] [1 2 3] [4 5] [6] [7 8] [9]. On the projector
// they fill 1440 x 1080 in the middle.
TestShow tenScreens() { return {160, 120, {false, false, true, true, false, true, false, false, true, false}}; }
const Rect kTenOnProjector = {240, 0, 1440, 1080};

// The window's rectangle on the root window.
Rect placeOf(Display* d, Window w) {
    XWindowAttributes attr;
    Rect r = {0, 0, 0, 0};
    Window child;
    if (!XGetWindowAttributes(d, w, &attr)) return r;
    XTranslateCoordinates(d, w, DefaultRootWindow(d), 0, 0, &r.x, &r.y, &child);
    r.width = attr.width;
    r.height = attr.height;
    return r;
}

bool sameRect(const Rect& a, const Rect& b) {
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

std::string describe(const Rect& r) {
    return std::to_string(r.width) + "x" + std::to_string(r.height) + "+" + std::to_string(r.x) + "+" +
           std::to_string(r.y);
}

// An 8-bit channel as a visual of `bits` bits holds it and a capture reads it back.
unsigned throughBits(unsigned v, int bits) {
    if (bits >= 8) return v;
    unsigned kept = v >> (8 - bits);
    return kept * 255 / ((1u << bits) - 1);
}

// Pillow's resample of every screen of a show to one size, made once for each show and size.
class References {
public:
    // The reference of screen i at width x height, or null when Pillow is not available.
    const Bitmap* get(const TestShow& show, int i, int width, int height) {
        std::string key = std::to_string(show.width) + "x" + std::to_string(show.height) + ":" +
                          std::to_string(show.count()) + ":" + std::to_string(width) + "x" + std::to_string(height);
        auto found = made_.find(key);
        if (found == made_.end()) found = made_.emplace(key, make(show, width, height)).first;
        std::vector<std::unique_ptr<Bitmap>>& all = found->second;
        return i < (int)all.size() ? all[i].get() : nullptr;
    }

private:
    std::map<std::string, std::vector<std::unique_ptr<Bitmap>>> made_;

    static std::vector<std::unique_ptr<Bitmap>> make(const TestShow& show, int width, int height) {
        std::vector<std::unique_ptr<Bitmap>> out;
        TempDir tmp;
        std::vector<std::string> argv = {kPython, std::string(SLIDES_SOURCE_DIR) + "/tests/resample.py",
                                         std::to_string(width), std::to_string(height)};
        Bitmap screen;
        screen.data = allocPixels(show.width, show.height);
        screen.width = show.width;
        screen.height = show.height;
        for (int i = 0; i < show.count(); i++) {
            for (int y = 0; y < show.height; y++)
                for (int x = 0; x < show.width; x++) screen.at(x, y) = screenPixel(i, x, y);
            std::string in = tmp.file("in" + std::to_string(i) + ".png");
            writePng(in.c_str(), screen);
            argv.push_back(in);
            argv.push_back(tmp.file("out" + std::to_string(i) + ".png"));
        }
        if (runProgram(argv).status != 0) return out;
        for (int i = 0; i < show.count(); i++) {
            out.emplace_back(new Bitmap);
            if (!readPng(tmp.file("out" + std::to_string(i) + ".png").c_str(), *out.back())) return {};
        }
        return out;
    }
};

References references;

struct Difference {
    double mean = 1e9;      // mean absolute difference a channel inside the picture
    long long stray = 0;    // pixels of the black bands that are not black
    std::string problem;    // why nothing could be compared
};

// Compares a capture of the window with the reference placed at `picture`, black around it.
Difference compareWithReference(const Pixels& p, const Bitmap& ref, const Rect& picture, int depth) {
    Difference d;
    if (p.width == 0) {
        d.problem = "no capture";
        return d;
    }
    int bits[3] = {8, 8, 8};
    if (depth == 16) bits[0] = 5, bits[1] = 6, bits[2] = 5;
    long long total = 0;
    for (int y = 0; y < p.height; y++)
        for (int x = 0; x < p.width; x++) {
            const unsigned char* got = &p.rgb[((size_t)y * p.width + x) * 3];
            int px = x - picture.x, py = y - picture.y;
            if (px < 0 || py < 0 || px >= picture.width || py >= picture.height) {
                if (got[0] || got[1] || got[2]) d.stray++;
                continue;
            }
            Color c = ref.data[(size_t)py * ref.width + px];
            unsigned want[3] = {c.r, c.g, c.b};
            for (int k = 0; k < 3; k++) total += std::abs((int)got[k] - (int)throughBits(want[k], bits[k]));
        }
    d.mean = (double)total / (3.0 * picture.width * picture.height);
    return d;
}

// Every pixel of the capture has this colour (as the visual holds it).
bool allOneColour(const Pixels& p, unsigned char v) {
    if (p.width == 0) return false;
    for (unsigned char c : p.rgb)
        if (c != v) return false;
    return true;
}

// Asks the window manager to close the window, as a task bar does.
void askWmToClose(Display* d, Window w) {
    const long from_pager = 2;
    sendClientMessage(d, DefaultRootWindow(d), w, "_NET_CLOSE_WINDOW", CurrentTime, from_pager,
                      SubstructureRedirectMask | SubstructureNotifyMask);
}

bool hasFullscreenState(Display* d, Window w) {
    Atom type;
    int format;
    unsigned long count = 0, left;
    unsigned char* data = nullptr;
    Atom fullscreen = XInternAtom(d, "_NET_WM_STATE_FULLSCREEN", False);
    XGetWindowProperty(d, w, XInternAtom(d, "_NET_WM_STATE", False), 0, 64, False, XA_ATOM, &type, &format, &count,
                       &left, &data);
    bool found = false;
    for (unsigned long i = 0; i < count && data; i++) found = found || ((Atom*)data)[i] == fullscreen;
    if (data) XFree(data);
    return found;
}

int screenSaverState(Display* d) {
    XScreenSaverInfo* info = XScreenSaverAllocInfo();
    int state = -1;
    if (info && XScreenSaverQueryInfo(d, DefaultRootWindow(d), info)) state = info->state;
    if (info) XFree(info);
    return state;
}

// Whether the pointer's current image has any pixel that is not fully transparent.
bool pointerVisible(Display* d) {
    XFixesCursorImage* image = XFixesGetCursorImage(d);
    if (!image) return true;
    bool visible = false;
    for (int i = 0; i < image->width * image->height && !visible; i++) visible = (image->pixels[i] >> 24) != 0;
    XFree(image);
    return visible;
}

template <class F>
bool within(int ms, F ready) {
    for (int waited = 0; waited < ms; waited += 20) {
        if (ready()) return true;
        sleepMs(20);
    }
    return ready();
}

// Presenting tests on one two-monitor server (the fixture's type parameter).
template <class Server>
class Presenting : public Server {
protected:
    TempDir tmp_;
    Display* look_ = nullptr;

    void SetUp() override {
        Server::SetUp();
        if (testing::Test::IsSkipped()) return;
        if (access(kPython, X_OK) != 0 || system("/usr/bin/python3 -c 'import PIL' 2>/dev/null") != 0)
            GTEST_SKIP() << "no Pillow for /usr/bin/python3 (python3-pil); presenting tests skipped";
        look_ = this->server->connect();
        ASSERT_NE(look_, nullptr);
    }
    void TearDown() override {
        if (look_) XCloseDisplay(look_);
    }

    std::string archive(const TestShow& show) {
        std::string path = tmp_.file(std::to_string(show.width) + "x" + std::to_string(show.height) + ".slides");
        if (access(path.c_str(), R_OK) != 0) writeShow(path, show);
        return path;
    }

    // Waits until the window shows screen i of the show scaled into `picture` as Pillow does it.
    testing::AssertionResult presents(RunningViewer& v, const TestShow& show, int i, const Rect& picture) {
        const Bitmap* ref = references.get(show, i, picture.width, picture.height);
        if (!ref) return testing::AssertionFailure() << "Pillow made no reference";
        Difference d;
        bool same = within(5000, [&] {
            d = compareWithReference(captureWindow(look_, v.window()), *ref, picture, Server::depth);
            return d.problem.empty() && d.mean <= 0.75 && d.stray == 0;
        });
        if (same) return testing::AssertionSuccess() << "mean difference " << d.mean;
        return testing::AssertionFailure() << "screen " << i << " not shown: mean difference " << d.mean << ", "
                                           << d.stray << " band pixels not black " << d.problem;
    }

    testing::AssertionResult blank(RunningViewer& v, unsigned char level) {
        if (within(5000, [&] { return allOneColour(captureWindow(look_, v.window()), level); }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the window is not all " << (int)level;
    }

    testing::AssertionResult placed(RunningViewer& v, const Rect& want) {
        Rect got;
        if (within(5000, [&] { return sameRect(got = placeOf(look_, v.window()), want); }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the window is at " << describe(got) << ", not " << describe(want);
    }
};

using Bare24 = TwoMonitors<24, false>;
using Bare16 = TwoMonitors<16, false>;
using Openbox24 = TwoMonitors<24, true>;
using Openbox16 = TwoMonitors<16, true>;

// ---- without a window manager, at depths 24 and 16 -----------------------------------------------

template <class Server>
class PresentingBare : public Presenting<Server> {};
using BareServers = testing::Types<Bare24, Bare16>;
TYPED_TEST_SUITE(PresentingBare, BareServers);

TYPED_TEST(PresentingBare, FillsTheProjectorScaledLikePillow) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(this->placed(v, kProjector));
    auto first = this->presents(v, show, 0, kTenOnProjector);
    EXPECT_TRUE(first);
    printf("projector capture against Pillow's bilinear resample, depth %d: %s\n", TypeParam::depth, first.message());
    v.key("space");  // a new slide scrolls in
    EXPECT_TRUE(this->presents(v, show, 1, kTenOnProjector));
    v.key("BackSpace");  // and back
    EXPECT_TRUE(this->presents(v, show, 0, kTenOnProjector));
    XClassHint hint = {};
    ASSERT_TRUE(XGetClassHint(this->look_, v.window(), &hint));
    EXPECT_STREQ(hint.res_name, "view_slides");
    XFree(hint.res_name);
    XFree(hint.res_class);
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingBare, TakesTheKeyboardFocus) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"}, {}, false);
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(within(5000, [&] {
        Window focus;
        int revert;
        XGetInputFocus(this->look_, &focus, &revert);
        return focus == v.window();
    }));
    v.key("space");  // with the pointer over the laptop, keys still reach the show
    EXPECT_TRUE(this->presents(v, show, 1, kTenOnProjector));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingBare, ClickerKeysMoveByScreensAndBlank) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    this->server->xdotool({"mousemove", "2000", "500"});  // clicks go to the projector
    const Rect& at = kTenOnProjector;
    v.key("Next");  // as Space: into the next slide
    EXPECT_TRUE(this->presents(v, show, 1, at));
    v.key("Next");  // an animation step
    EXPECT_TRUE(this->presents(v, show, 2, at));
    v.key("Prior");
    EXPECT_TRUE(this->presents(v, show, 1, at));
    v.key("Down");  // still whole slides
    EXPECT_TRUE(this->presents(v, show, 3, at));
    v.key("Up");
    EXPECT_TRUE(this->presents(v, show, 0, at));
    v.key("Right");
    EXPECT_TRUE(this->presents(v, show, 1, at));

    for (const char* black : {"b", "period", "KP_Decimal"}) {
        v.key(black);
        EXPECT_TRUE(this->blank(v, 0)) << black;
        v.key("space");  // ends the blank only
        EXPECT_TRUE(this->presents(v, show, 1, at)) << black;
    }
    for (const char* white : {"w", "comma"}) {
        v.key(white);
        EXPECT_TRUE(this->blank(v, 255)) << white;
        v.click(1);  // a click ends it too, without moving
        EXPECT_TRUE(this->presents(v, show, 1, at)) << white;
    }
    v.key("b");
    EXPECT_TRUE(this->blank(v, 0));
    v.key("Escape");
    EXPECT_TRUE(this->presents(v, show, 1, at));
    v.key("w");
    EXPECT_TRUE(this->blank(v, 255));
    v.key("F5");
    EXPECT_TRUE(this->presents(v, show, 1, at));

    v.key("Escape");  // never quits
    v.key("F5");
    v.click(1);  // clicks still move
    EXPECT_TRUE(this->presents(v, show, 2, at));
    EXPECT_TRUE(v.running()) << "Escape or F5 ended the show";
    v.key("b");
    EXPECT_TRUE(this->blank(v, 0));
    EXPECT_EQ(v.quitWith("q"), 0);  // q quits, blank or not
}

TYPED_TEST(PresentingBare, DigitsGoToASlide) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    const Rect& at = kTenOnProjector;
    v.key("3");
    v.key("Return");  // slide 3 starts at screen 4
    EXPECT_TRUE(this->presents(v, show, 4, at));
    v.key("1");
    v.key("g");
    EXPECT_TRUE(this->presents(v, show, 0, at));

    // The number shows in a box in the bottom right corner, in the black band.
    v.key("6");
    int corner_x = kProjector.width - 30, corner_y = kProjector.height - 30;
    EXPECT_TRUE(within(5000, [&] {
        Pixels p = captureWindow(this->look_, v.window());
        return p.width && p.rgbAt(corner_x, corner_y) != 0;
    })) << "no number box";
    v.key("BackSpace");  // the box goes with the last digit
    EXPECT_TRUE(this->presents(v, show, 0, at));
    v.key("4");
    v.key("5");
    v.key("BackSpace");
    v.key("KP_Enter");  // slide 4
    EXPECT_TRUE(this->presents(v, show, 6, at));
    v.key("9");
    v.key("9");
    v.key("Return");  // past the last slide: the last one
    EXPECT_TRUE(this->presents(v, show, 9, at));
    v.key("2");
    v.key("Escape");  // drops the number
    EXPECT_TRUE(this->presents(v, show, 9, at));
    v.key("Home");
    EXPECT_TRUE(this->presents(v, show, 0, at));
    v.key("2");
    v.key("space");  // another key drops the number and keeps its meaning
    EXPECT_TRUE(this->presents(v, show, 1, at));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingBare, StartsAtTheGivenSlide) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present", "-start=4"});
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(this->presents(v, show, 6, kTenOnProjector));
    v.key("BackSpace");
    EXPECT_TRUE(this->presents(v, show, 5, kTenOnProjector));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingBare, MonitorByNumberOrNameShowsExactPixelsAtTheirSize) {
    TestShow show = {1366, 768, {false, false, true}};
    for (const char* monitor : {"-monitor=0", "--monitor=laptop"}) {
        RunningViewer v(*this->server, show, this->archive(show), {monitor});
        ASSERT_TRUE(v.ok()) << monitor;
        EXPECT_TRUE(this->placed(v, kLaptop)) << monitor;
        EXPECT_TRUE(v.shows(0)) << monitor;
        v.key("Next");
        EXPECT_TRUE(v.shows(1)) << monitor;
        v.key("space");
        EXPECT_TRUE(v.shows(2)) << monitor;
        EXPECT_EQ(v.quitWith("q"), 0);
    }
}

TYPED_TEST(PresentingBare, ShrinksWithAWidenedFilter) {
    TestShow show = {1920, 1440, {false, false}};  // on the laptop: 1024 x 768
    RunningViewer v(*this->server, show, this->archive(show), {"-monitor=laptop"});
    ASSERT_TRUE(v.ok());
    auto first = this->presents(v, show, 0, {171, 0, 1024, 768});
    EXPECT_TRUE(first);
    printf("laptop capture (shrunk) against Pillow's bilinear resample, depth %d: %s\n", TypeParam::depth,
           first.message());
    v.key("space");
    EXPECT_TRUE(this->presents(v, show, 1, {171, 0, 1024, 768}));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingBare, UnknownMonitorsListTheMonitors) {
    TestShow show = tenScreens();
    const char* list = "the monitors are: 0 laptop 1366x768+0+0 primary, 1 projector 1920x1080+1366+0.\n";
    for (std::string monitor : {"beamer", "2", "-1", "0.5"}) {
        RunResult r = this->server->run({buildProgram("view_slides"), this->archive(show), "-monitor=" + monitor});
        EXPECT_EQ(r.status, 1) << monitor;
        EXPECT_EQ(r.err, "ERROR! There is no monitor " + monitor + "; " + list);
    }
}

// With a screen saver that starts after one idle second, the screen stays on while presenting
// and blanks soon after the show ends, also when it was killed.
TYPED_TEST(PresentingBare, ScreenSaverIsHeldOffUntilTheShowEndsOrIsKilled) {
    TestShow show = tenScreens();
    for (bool kill9 : {false, true}) {
        RunningViewer v(*this->server, show, this->archive(show), {"-present"});
        ASSERT_TRUE(v.ok());
        XSetScreenSaver(this->look_, 1, 0, PreferBlanking, DefaultExposures);
        XSync(this->look_, False);
        sleepMs(2500);
        EXPECT_NE(screenSaverState(this->look_), ScreenSaverOn) << "the screen saver started while presenting";
        if (kill9) {
            kill(v.pid(), SIGKILL);
            EXPECT_EQ(v.finish(), 128 + SIGKILL);
        } else {
            EXPECT_EQ(v.quitWith("q"), 0);
        }
        EXPECT_TRUE(within(5000, [&] { return screenSaverState(this->look_) == ScreenSaverOn; }))
            << (kill9 ? "no screen saver after kill -9" : "no screen saver after q");
        XSetScreenSaver(this->look_, 0, 0, PreferBlanking, DefaultExposures);
        XForceScreenSaver(this->look_, ScreenSaverReset);
        XSync(this->look_, False);
    }
}

// With a session bus, the desktop's screen saver service is asked to inhibit idleness, and
// the inhibition ends with the show's connection, after q or kill -9 alike.
TYPED_TEST(PresentingBare, SessionBusScreenSaverIsInhibitedWhilePresenting) {
    FakeScreenSaver bus;
    if (!bus.ok()) GTEST_SKIP() << bus.error();
    TestShow show = tenScreens();
    for (bool kill9 : {false, true}) {
        RunningViewer v(*this->server, show, this->archive(show), {"-present"},
                        {"DBUS_SESSION_BUS_ADDRESS=" + bus.address()});
        ASSERT_TRUE(v.ok());
        EXPECT_EQ(bus.waitForInhibit(5000), "view_slides|Presenting a slide show");
        if (kill9) {
            kill(v.pid(), SIGKILL);
            EXPECT_EQ(v.finish(), 128 + SIGKILL);
        } else {
            EXPECT_EQ(v.quitWith("q"), 0);
        }
        EXPECT_TRUE(bus.waitUntilCallerLeaves(5000)) << (kill9 ? "after kill -9" : "after q");
    }
}

TYPED_TEST(PresentingBare, PointerHidesAtRestAndShowsWhileMoving) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    this->server->xdotool({"mousemove", "2000", "500"});  // onto the projector
    EXPECT_TRUE(within(1000, [&] { return pointerVisible(this->look_); })) << "hidden while moving";
    EXPECT_TRUE(within(5000, [&] { return !pointerVisible(this->look_); })) << "not hidden at rest";
    this->server->xdotool({"mousemove", "2100", "600"});
    EXPECT_TRUE(within(1000, [&] { return pointerVisible(this->look_); })) << "hidden while moving again";
    v.click(1);
    EXPECT_TRUE(this->presents(v, show, 1, kTenOnProjector));
    this->server->xdotool({"mousemove", "20", "20"});  // over the laptop: the pointer is the desktop's
    EXPECT_TRUE(within(5000, [&] { return pointerVisible(this->look_); }));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingBare, CloseRequestEndsTheShow) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    sendCloseRequest(this->look_, v.window());
    EXPECT_EQ(v.finish(), 0);
}

// ---- with openbox, at depths 24 and 16 ----------------------------------------------------------------

template <class Server>
class PresentingOpenbox : public Presenting<Server> {};
using OpenboxServers = testing::Types<Openbox24, Openbox16>;
TYPED_TEST_SUITE(PresentingOpenbox, OpenboxServers);

TYPED_TEST(PresentingOpenbox, FullScreenOnTheProjector) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(this->placed(v, kProjector));
    EXPECT_TRUE(within(5000, [&] { return hasFullscreenState(this->look_, v.window()); }));
    EXPECT_TRUE(this->presents(v, show, 0, kTenOnProjector));
    v.key("Next");
    EXPECT_TRUE(this->presents(v, show, 1, kTenOnProjector));
    v.key("period");
    EXPECT_TRUE(this->blank(v, 0));
    v.key("Escape");
    EXPECT_TRUE(this->presents(v, show, 1, kTenOnProjector));
    v.key("3");
    v.key("g");
    EXPECT_TRUE(this->presents(v, show, 4, kTenOnProjector));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingOpenbox, FullScreenOnTheChosenMonitor) {
    TestShow show = {1366, 768, {false, false}};
    RunningViewer v(*this->server, show, this->archive(show), {"-monitor=laptop"});
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(this->placed(v, kLaptop));
    EXPECT_TRUE(v.shows(0));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingOpenbox, ClosingFromTheWindowManagerEndsTheShow) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(this->placed(v, kProjector));
    askWmToClose(this->look_, v.window());
    EXPECT_EQ(v.finish(), 0);
}

// ---- bad input ------------------------------------------------------------------------------

class PresentingErrors : public testing::Test {
protected:
    TempDir tmp_;
    std::string archive() {
        std::string path = tmp_.file("show.slides");
        writeShow(path, tenScreens());
        return path;
    }
};

TEST_F(PresentingErrors, PresentWithoutADisplayIsTheDisplayError) {
    RunResult r = runProgram({buildProgram("view_slides"), archive(), "-present"}, "", {"DISPLAY=:1999"});
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.out.find("Error: Could not open display.\n"), std::string::npos) << r.out;
}

TEST_F(PresentingErrors, StartMustBeASlideNumber) {
    RunResult zero = runProgram({buildProgram("view_slides"), archive(), "-start=0"});
    EXPECT_EQ(zero.status, 10);
    EXPECT_EQ(zero.err, "ERROR! Slides are counted from 1: start=0\n");
    RunResult text = runProgram({buildProgram("view_slides"), archive(), "-start=abc"});
    EXPECT_EQ(text.status, 10);
    EXPECT_EQ(text.err, "ERROR! Expected number as argument to switch: start\n");
    RunResult half = runProgram({buildProgram("view_slides"), archive(), "-start=1.5"});
    EXPECT_EQ(half.status, 10);
    EXPECT_EQ(half.err, "ERROR! Expected integer as argument to switch: start\n");
}

TEST_F(PresentingErrors, MonitorNeedsANumberOrAName) {
    for (const char* bad : {"-monitor", "-monitor=[1;2]"}) {
        RunResult r = runProgram({buildProgram("view_slides"), archive(), bad}, "", {"DISPLAY=:1999"});
        EXPECT_EQ(r.status, 10) << bad;
        EXPECT_EQ(r.err, "ERROR! Expected a monitor number or name as argument to switch: monitor\n") << bad;
    }
    RunResult twice = runProgram({buildProgram("view_slides"), archive(), "-present", "-present"});
    EXPECT_EQ(twice.status, 10);
    EXPECT_EQ(twice.err, "ERROR! Unknown switch: present\n");
}

TEST_F(PresentingErrors, HelpListsTheSwitchesAndKeysOfBothModes) {
    RunResult r = runProgram({buildProgram("view_slides"), "-help"}, "", {"DISPLAY=:1999"});
    EXPECT_EQ(r.status, 0);
    for (const char* text : {"-present", "-monitor=N|NAME", "-start=N", "-png-slides", "-debug", "Keys in the window",
                             "Keys while presenting", "Black screen", "White screen", "Go to that slide"})
        EXPECT_NE(r.out.find(text), std::string::npos) << text;
    EXPECT_EQ(r.out.find("Decompressing"), std::string::npos) << "-help unpacked the show";
}

}  // namespace
