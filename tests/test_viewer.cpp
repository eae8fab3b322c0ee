// The slide show in a real X server: view_slides is started on a private Xvfb, driven with
// keys and buttons through xdotool, and its window is compared pixel by pixel with the screen
// that must be shown.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <X11/Xutil.h>

#include "helpers/run.h"
#include "helpers/viewer.h"
#include "helpers/xsuite.h"

namespace {

using Viewer = RunningViewer;

// Ten screens in six slides: [0] [1 2 3] [4 5] [6] [7 8] [9].
TestShow tenScreens() { return {160, 120, {false, false, true, true, false, true, false, false, true, false}}; }

class ViewerTest : public SharedXServer<24> {
protected:
    std::string archive(const TestShow& show) {
        std::string path = tmp_.file("show.slides");
        writeShow(path, show);
        return path;
    }
    TempDir tmp_;
};

TEST_F(ViewerTest, SpaceAndBackSpaceMoveThroughScreensAndSteps) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(v.shows(0));
    v.key("BackSpace");  // nothing before the first screen
    EXPECT_TRUE(v.shows(0));
    int expected[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 9};  // the last Space stays on the last screen
    for (int e : expected) {
        v.key("space");
        EXPECT_TRUE(v.shows(e));
    }
    for (int e = 8; e >= 0; e--) {
        v.key("BackSpace");
        EXPECT_TRUE(v.shows(e));
    }
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ViewerTest, ReturnRightLeftHomeEnd) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    v.key("Return");
    EXPECT_TRUE(v.shows(1));
    v.key("Right");
    EXPECT_TRUE(v.shows(2));
    v.key("Left");
    EXPECT_TRUE(v.shows(1));
    v.key("End");
    EXPECT_TRUE(v.shows(9));
    v.key("Home");
    EXPECT_TRUE(v.shows(0));
    v.key("Left");
    EXPECT_TRUE(v.shows(0));
    EXPECT_EQ(v.quitWith("Escape"), 0);
}

TEST_F(ViewerTest, PageKeysAndArrowsMoveByWholeSlides) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    v.key("space");
    EXPECT_TRUE(v.shows(1));  // first screen of the slide [1 2 3]
    v.key("Next");
    EXPECT_TRUE(v.shows(3));  // from the middle of an animated slide: its completed form
    v.key("Next");
    EXPECT_TRUE(v.shows(5));
    v.key("Prior");
    EXPECT_TRUE(v.shows(3));
    v.key("Prior");
    EXPECT_TRUE(v.shows(0));
    v.key("Down");
    EXPECT_TRUE(v.shows(3));
    v.key("Down");
    EXPECT_TRUE(v.shows(5));
    v.key("Down");
    EXPECT_TRUE(v.shows(6));
    v.key("Up");
    EXPECT_TRUE(v.shows(5));
    v.key("Prior");
    v.key("Prior");
    v.key("Prior");  // from within the first slide the target clamps to 0
    EXPECT_TRUE(v.shows(0));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ViewerTest, MouseButtonsAndWheel) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    v.click(1);
    EXPECT_TRUE(v.shows(1));
    v.click(1);
    EXPECT_TRUE(v.shows(2));
    v.click(3);
    EXPECT_TRUE(v.shows(1));
    v.click(5);  // wheel down: to the end of the next complete slide
    EXPECT_TRUE(v.shows(3));
    v.click(5);
    EXPECT_TRUE(v.shows(5));
    v.click(4);  // wheel up
    EXPECT_TRUE(v.shows(3));
    v.click(2);  // the middle button does nothing
    EXPECT_TRUE(v.shows(3));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ViewerTest, SectionKeysJumpToTheirScreens) {
    TestShow show{64, 48, std::vector<bool>(260, false)};
    for (int i = 0; i < 260; i++) show.flags[i] = i % 3 == 2;
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    v.key("c");
    EXPECT_TRUE(v.shows(249));
    v.key("r");
    EXPECT_TRUE(v.shows(212));
    v.key("e");
    EXPECT_TRUE(v.shows(108));
    v.key("e");
    EXPECT_TRUE(v.shows(141));
    v.key("m");
    EXPECT_TRUE(v.shows(9));
    v.key("m");
    EXPECT_TRUE(v.shows(82));
    v.key("End");
    EXPECT_TRUE(v.shows(259));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ViewerTest, SectionKeysClampToTheLastScreen) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    v.key("c");
    EXPECT_TRUE(v.shows(9));
    v.key("m");
    EXPECT_TRUE(v.shows(9));  // 9 is screen m's target: the next m goes to 82, clamped
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ViewerTest, ExposureRepaintsTheCurrentScreen) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    v.key("End");
    EXPECT_TRUE(v.shows(9));
    server->xdotool({"windowunmap", "--sync", std::to_string(v.window())});
    server->xdotool({"windowmap", "--sync", std::to_string(v.window())});
    EXPECT_TRUE(v.shows(9));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ViewerTest, ResizeRedrawsClippedAndKeepsWorking) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    v.key("space");
    EXPECT_TRUE(v.shows(1));
    server->xdotool({"windowsize", "--sync", std::to_string(v.window()), "100", "70"});
    EXPECT_TRUE(v.shows(1, 100, 70));
    v.key("space");
    EXPECT_TRUE(v.shows(2, 100, 70));
    v.key("Next");
    EXPECT_TRUE(v.shows(3, 100, 70));
    v.key("BackSpace");
    EXPECT_TRUE(v.shows(2, 100, 70));
    server->xdotool({"windowsize", "--sync", std::to_string(v.window()), "160", "120"});
    EXPECT_TRUE(v.shows(2));
    EXPECT_EQ(v.quitWith("q"), 0);
}

// A window of 400 rows lets the first forward transition measure the speed; with -debug the
// measurement is printed, which tells a scroll from a drawing at once.
TestShow tallShow() { return {120, 400, {false, true, false, false, true}}; }

TEST_F(ViewerTest, SpaceIntoAnAnimationStepDrawsAtOnce) {
    TestShow show = tallShow();
    Viewer v(*server, show, archive(show), {"-debug"});
    ASSERT_TRUE(v.ok());
    v.key("space");
    EXPECT_TRUE(v.shows(1));
    EXPECT_EQ(v.quitWith("q"), 0);
    EXPECT_EQ(v.out().find("trans_step = "), std::string::npos) << "a step must not scroll";
}

TEST_F(ViewerTest, SpaceToANewSlideScrollsAndMeasuresOnce) {
    TestShow show = tallShow();
    Viewer v(*server, show, archive(show), {"-debug"});
    ASSERT_TRUE(v.ok());
    v.key("Right");  // at once, into the step
    EXPECT_TRUE(v.shows(1));
    v.key("space");  // a new slide: scrolls in, measuring the speed
    EXPECT_TRUE(v.shows(2));
    v.key("space");
    EXPECT_TRUE(v.shows(3));
    v.key("BackSpace");
    EXPECT_TRUE(v.shows(2));
    EXPECT_EQ(v.quitWith("q"), 0);
    std::string out = v.out();
    size_t probe = out.find("win_height * T: ");
    ASSERT_NE(probe, std::string::npos) << out;
    size_t step = out.find("trans_step = ", probe);
    ASSERT_NE(step, std::string::npos) << out;
    int measured = atoi(out.c_str() + step + 13);
    EXPECT_GE(measured, 1);
    EXPECT_LE(measured, 40);  // at most a tenth of the window height
    EXPECT_EQ(out.find("trans_step = ", step + 1), std::string::npos) << "measured once";
}

TEST_F(ViewerTest, HomeOnTheFirstScreenForcesTheNextStepToScroll) {
    TestShow show = tallShow();
    Viewer v(*server, show, archive(show), {"-debug"});
    ASSERT_TRUE(v.ok());
    v.key("Home");   // moves nothing, but the next redraw scrolls
    v.key("space");  // into the animation step, with a scroll
    EXPECT_TRUE(v.shows(1));
    EXPECT_EQ(v.quitWith("q"), 0);
    EXPECT_NE(v.out().find("trans_step = "), std::string::npos);
}

TEST_F(ViewerTest, ScreensLeftEmptyByDebugShowBlack) {
    TestShow show{64, 48, std::vector<bool>(24, false)};
    Viewer v(*server, show, archive(show), {"-debug"});
    ASSERT_TRUE(v.ok());
    v.key("End");
    Display* d = server->connect();
    ASSERT_NE(d, nullptr);
    bool black = false;
    for (int tries = 0; tries < 250 && !black; tries++, sleepMs(20)) {
        Pixels p = captureWindow(d, v.window());
        black = p.width == 64;
        for (size_t i = 0; black && i < p.rgb.size(); i++) black = p.rgb[i] == 0;
    }
    XCloseDisplay(d);
    EXPECT_TRUE(black);
    v.key("Home");
    EXPECT_TRUE(v.shows(0));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ViewerTest, StartBeginsAtTheSlidesFirstScreen) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show), {"-start=3"});  // slides [0] [1 2 3] [4 5] ...
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(v.shows(4));
    v.key("BackSpace");
    EXPECT_TRUE(v.shows(3));
    EXPECT_EQ(v.quitWith("q"), 0);
    Viewer past(*server, show, archive(show), {"--start=40"});  // past the last slide: the last one
    ASSERT_TRUE(past.ok());
    EXPECT_TRUE(past.shows(9));
    EXPECT_EQ(past.quitWith("q"), 0);
}

// The designed window carries its title and nothing a window manager would act on; the class
// and the close request belong to the presenting window.
TEST_F(ViewerTest, WindowCarriesNoClassAndNoCloseRequest) {
    TestShow show = tenScreens();
    Viewer v(*server, show, archive(show));
    ASSERT_TRUE(v.ok());
    Display* d = server->connect();
    ASSERT_NE(d, nullptr);
    XClassHint hint = {};
    EXPECT_FALSE(XGetClassHint(d, v.window(), &hint));
    Atom* protocols = nullptr;
    int count = 0;
    if (XGetWMProtocols(d, v.window(), &protocols, &count)) XFree(protocols);
    EXPECT_EQ(count, 0);
    sendCloseRequest(d, v.window());  // ignored, as any client message is
    XCloseDisplay(d);
    v.key("space");
    EXPECT_TRUE(v.shows(1));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST(ViewerDepth16, ShowsScreensIn565) {
    XServer x(16);
    if (!x.ok()) GTEST_SKIP() << "no private X server: " << x.error();
    TempDir tmp;
    TestShow show = tenScreens();
    writeShow(tmp.file("show.slides"), show);
    Viewer v(x, show, tmp.file("show.slides"));
    ASSERT_TRUE(v.ok());
    EXPECT_TRUE(v.shows(0));
    v.key("space");
    EXPECT_TRUE(v.shows(1));
    v.key("End");
    EXPECT_TRUE(v.shows(9));
    v.key("BackSpace");
    EXPECT_TRUE(v.shows(8));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST(ViewerErrors, NoDisplay) {
    TempDir tmp;
    TestShow show = tenScreens();
    writeShow(tmp.file("show.slides"), show);
    RunResult r = runProgram({buildProgram("view_slides"), tmp.file("show.slides")}, "", {"DISPLAY=:1999"});
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.out.find("Error: Could not open display.\n"), std::string::npos) << r.out;
}

TEST(ViewerErrors, UnsupportedDepth) {
    XServer x(30);
    if (!x.ok()) GTEST_SKIP() << "no private X server of depth 30: " << x.error();
    TempDir tmp;
    TestShow show = tenScreens();
    writeShow(tmp.file("show.slides"), show);
    RunResult r = x.run({buildProgram("view_slides"), tmp.file("show.slides")});
    EXPECT_EQ(r.status, 20);
    EXPECT_NE(r.out.find("ERROR! Unsupported byte order in Video RGB representation\n\n"
                         "Internal RGB representation: 000000FF 0000FF00 00FF0000\n"
                         "Video RGB representation   : "),
              std::string::npos)
        << r.out;
}

}  // namespace
