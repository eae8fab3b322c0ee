// Presenting on a projector: view_slides -present on Xorg's dummy driver with a laptop monitor
// and a projector monitor, with and without a window manager, at depths 24 and 16. Captures of
// the projector are compared with Pillow's bilinear resample of the screens; keys go through
// xdotool; the screen saver's state and the pointer's image are read from the server.
#include <gtest/gtest.h>  // before Xlib, whose None macro would break it
#include <X11/Xutil.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/scrnsaver.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "helpers/presenting.h"
#include "helpers/run.h"
#include "helpers/session_bus.h"
#include "helpers/viewer.h"
#include "helpers/xsuite.h"

namespace {

// Asks the window manager to close the window, as a task bar does.
void askWmToClose(Display* d, Window w) {
    const long from_pager = 2;
    sendClientMessage(d, DefaultRootWindow(d), w, "_NET_CLOSE_WINDOW", CurrentTime, from_pager,
                      SubstructureRedirectMask | SubstructureNotifyMask);
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

// ---- without a window manager, at depths 24 and 16 -----------------------------------------------

template <class Server>
class PresentingBare : public Presenting<Server> {};
using BareServers = testing::Types<Bare24, Bare16>;
TYPED_TEST_SUITE(PresentingBare, BareServers);

TYPED_TEST(PresentingBare, FillsTheProjectorScaledLikePillow) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(this->placed(v.window(), kProjector));
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
    EXPECT_TRUE(within(kSettleMs, [&] {
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
    EXPECT_TRUE(within(kSettleMs, [&] {
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
        EXPECT_TRUE(this->placed(v.window(), kLaptop)) << monitor;
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
        EXPECT_TRUE(within(kSettleMs, [&] { return screenSaverState(this->look_) == ScreenSaverOn; }))
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
    EXPECT_TRUE(within(kSettleMs, [&] { return !pointerVisible(this->look_); })) << "not hidden at rest";
    this->server->xdotool({"mousemove", "2100", "600"});
    EXPECT_TRUE(within(1000, [&] { return pointerVisible(this->look_); })) << "hidden while moving again";
    v.click(1);
    EXPECT_TRUE(this->presents(v, show, 1, kTenOnProjector));
    this->server->xdotool({"mousemove", "20", "20"});  // over the laptop: the pointer is the desktop's
    EXPECT_TRUE(within(kSettleMs, [&] { return pointerVisible(this->look_); }));
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
    EXPECT_TRUE(this->placed(v.window(), kProjector));
    EXPECT_TRUE(within(kSettleMs, [&] { return hasFullscreenState(this->look_, v.window()); }));
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
    EXPECT_TRUE(this->placed(v.window(), kLaptop));
    EXPECT_TRUE(v.shows(0));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(PresentingOpenbox, ClosingFromTheWindowManagerEndsTheShow) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-present"});
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(this->placed(v.window(), kProjector));
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
