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

#include "show/archive.h"
#include "codec/codec.h"
#include "helpers/archives.h"
#include "helpers/run.h"
#include "helpers/xsuite.h"

namespace {

const char* kTitle = "Marrowgate -- Pell Ormsby, KVORM 2007";

// The colour of pixel (x, y) of test screen i: a per-screen colour with a stripe pattern, so
// that screens and their rows are told apart.
Color screenPixel(int i, int x, int y) {
    unsigned char band = (unsigned char)(((x / 8 + y / 8) & 1) * 40);
    return Color{(unsigned char)(i & 0xFF), (unsigned char)(40 + (i >> 8) * 60 + band), (unsigned char)(200 - y % 100), 0};
}

struct TestShow {
    int width, height;
    std::vector<bool> flags;
    int count() const { return (int)flags.size(); }
};

// Writes the test show as a separate archive: one background, every screen coded whole.
void writeShow(const std::string& path, const TestShow& show) {
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
    writeArchiveFile(path, ARCHIVE_SEPARATE, "", backgrounds, screens, flags);
}

void sleepMs(int ms) {
    timespec t = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&t, nullptr);
}

// Packs 5-6-5 as a 16-bit visual holds it.
uint32_t pack565(Color c) { return (uint32_t)(c.r >> 3) << 11 | (uint32_t)(c.g >> 2) << 5 | (c.b >> 3); }

// X errors about windows that went away between looking and poking are not fatal here.
int ignoreXError(Display*, XErrorEvent*) { return 0; }

// Waits until no window of an earlier viewer is left on the server.
void waitForNoViewer(Display* d) {
    for (int tries = 0; tries < 250 && findWindow(d, kTitle); tries++) sleepMs(20);
}

// A running view_slides on a private X server.
class Viewer {
public:
    Viewer(const XServer& x, const TestShow& show, const std::string& archive, std::vector<std::string> args = {})
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
            freopen(out_.c_str(), "w", stdout);
            freopen(err_.c_str(), "w", stderr);
            std::vector<char*> a;
            for (auto& s : argv) a.push_back((char*)s.c_str());
            a.push_back(nullptr);
            execv(a[0], a.data());
            _exit(127);
        }
        window_ = waitForWindow(look_, kTitle, 10000);
        if (!window_) return;
        depth16_ = DefaultDepth(look_, DefaultScreen(look_)) == 16;
        x.xdotool({"mousemove", "20", "20"});
        XSetInputFocus(look_, window_, RevertToParent, CurrentTime);
        XSync(look_, False);
    }

    ~Viewer() {
        if (pid_ > 0 && !done_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (look_) XCloseDisplay(look_);
    }

    bool ok() const { return window_ != 0; }
    Window window() const { return window_; }

    // Keys go through the server (XTest) to the focused window. Sending them to the window
    // directly would fail on the release of a key that quits, leaving the key held down.
    void key(const std::string& name) { x_.xdotool({"key", name}); }
    void click(int button) { x_.xdotool({"click", std::to_string(button)}); }

    // Waits until the window shows screen i (clipped to w x h when given); fails after 5 s.
    ::testing::AssertionResult shows(int i, int w = -1, int h = -1) {
        std::string why;
        for (int tries = 0; tries < 250; tries++) {
            why = compare(i, w, h);
            if (why.empty()) return ::testing::AssertionSuccess();
            sleepMs(20);
        }
        return ::testing::AssertionFailure() << "window does not show screen " << i << ": " << why;
    }

    // Sends the key and waits for the program to end; returns its exit status.
    int quitWith(const std::string& name) {
        key(name);
        return finish();
    }

    int finish() {
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

    std::string out() const { return readFileBytes(out_); }
    std::string err() const { return readFileBytes(err_); }

private:
    std::string compare(int i, int w, int h) {
        Pixels p = captureWindow(look_, window_);
        if (w < 0) w = show_.width, h = show_.height;
        if (p.width != w || p.height != h)
            return "window is " + std::to_string(p.width) + " x " + std::to_string(p.height);
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w; x++) {
                Color c = screenPixel(i, x, y);
                bool same = depth16_ ? p.rawAt(x, y) == pack565(c)
                                     : p.rgbAt(x, y) == ((uint32_t)c.r << 16 | c.g << 8 | c.b);
                if (!same) return "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") differs";
            }
        return "";
    }

    const XServer& x_;
    TestShow show_;
    TempDir tmp_;
    std::string out_, err_;
    pid_t pid_ = -1;
    bool done_ = false;
    bool depth16_;
    Display* look_ = nullptr;
    Window window_ = 0;
};

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
