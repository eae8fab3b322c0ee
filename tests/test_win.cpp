// The window and frame buffer, checked against what a private X server really shows.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>

#include "display/console_win.h"
#include "display/monitors.h"
#include "display/win.h"
#include "helpers/xsuite.h"

namespace {

const int W = 64, H = 48;

Color pattern(int x, int y) { return {(unsigned char)(x * 7), (unsigned char)(y * 13), (unsigned char)((x + y) * 3), 0}; }

void fillBuffer(Color c) {
    for (int i = 0; i < win_size; i++) win_data[i] = c;
}

void drawPattern() {
    for (int y = 0; y < win_height; y++)
        for (int x = 0; x < win_width; x++) win_data[y * win_width + x] = pattern(x, y);
}

uint32_t rgbOf(Color c) { return (uint32_t)c.r << 16 | (uint32_t)c.g << 8 | c.b; }

// What a 5-6-5 visual holds for a colour.
uint32_t packed565(Color c) { return (uint32_t)(c.r >> 3) << 11 | (uint32_t)(c.g >> 2) << 5 | (uint32_t)(c.b >> 3); }

Pixels shown(Display* look) {
    XSync(display, False);
    return captureWindow(look, window);
}

// True when the pixels inside [x0, x1) x [y0, y1) show `inside` and all others `outside`.
bool showsRect(const Pixels& p, int x0, int y0, int x1, int y1, Color inside, Color outside) {
    for (int y = 0; y < p.height; y++)
        for (int x = 0; x < p.width; x++) {
            bool in = x >= x0 && x < x1 && y >= y0 && y < y1;
            if (p.rgbAt(x, y) != rgbOf(in ? inside : outside)) return false;
        }
    return true;
}

std::string capturedOutput() {
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

const Color red = {255, 0, 0, 0}, grey = {90, 90, 90, 0}, white = {255, 255, 255, 0};

class Depth24 : public SharedXWindow<24, W, H> {
protected:
    void SetUp() override {
        SharedXWindow::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        fillBuffer(grey);
        update(0, 0, W, H);
        commit();
    }
};

TEST_F(Depth24, ChoosesTheByteSwapForTheServersLayout) {
    EXPECT_EQ(raw_R, 0xFF0000u);
    EXPECT_EQ(raw_B, 0xFFu);
    EXPECT_EQ(win_R, 0xFFu);
    EXPECT_EQ(win_G, 0xFF00u);
    EXPECT_EQ(win_B, 0xFF0000u);
    EXPECT_EQ(RGB_conv, 1);
    EXPECT_EQ(rgbOf(color_Green), 0x00FF00u);
}

TEST_F(Depth24, CommittedPixelsReachTheWindow) {
    drawPattern();
    update(0, 0, W, H);
    commit();
    EXPECT_EQ(first_cell, nullptr);
    Pixels p = shown(look);
    ASSERT_EQ(p.width, W);
    ASSERT_EQ(p.height, H);
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++) {
            ASSERT_EQ(p.rgbAt(x, y), rgbOf(pattern(x, y))) << "at " << x << "," << y;
            ASSERT_EQ(p.rawAt(x, y) & 0xFFFFFF, rgbOf(pattern(x, y)));
        }
}

TEST_F(Depth24, SwappedCornersAreOrdered) {
    fillBuffer(red);
    update(30, 20, 10, 5);
    ASSERT_NE(first_cell, nullptr);
    EXPECT_EQ(first_cell->x0, 10);
    EXPECT_EQ(first_cell->y0, 5);
    EXPECT_EQ(first_cell->x1, 30);
    EXPECT_EQ(first_cell->y1, 20);
    commit();
    EXPECT_TRUE(showsRect(shown(look), 10, 5, 30, 20, red, grey));
}

TEST_F(Depth24, RectanglesOutsideTheWindowSendNothing) {
    fillBuffer(red);
    update(-50, -40, -10, -5);
    update(W + 5, H + 5, W + 100, H + 100);
    update(-1000, 10, 2000, 20);  // spans the window: clipped to its width
    EXPECT_EQ(first_cell->x0, 0);
    EXPECT_EQ(first_cell->x1, W);
    UpdateCell* outside = first_cell->next;
    EXPECT_EQ(outside->x0, outside->x1);
    EXPECT_EQ(outside->y0, outside->y1);
    commit();
    EXPECT_TRUE(showsRect(shown(look), 0, 10, W, 20, red, grey));
}

TEST_F(Depth24, RightEdgeBeyondTheWidthIsClipped) {
    fillBuffer(red);
    update(50, 0, 1000, 10);
    EXPECT_EQ(first_cell->x1, W);
    commit();
    EXPECT_TRUE(showsRect(shown(look), 50, 0, W, 10, red, grey));
}

TEST_F(Depth24, NewestRectangleIsSentFirst) {
    update(0, 0, 1, 1);
    update(2, 2, 3, 3);
    ASSERT_NE(first_cell, nullptr);
    EXPECT_EQ(first_cell->x0, 2);
    ASSERT_NE(first_cell->next, nullptr);
    EXPECT_EQ(first_cell->next->x0, 0);
    EXPECT_EQ(first_cell->next->next, nullptr);
    commit();
    EXPECT_EQ(first_cell, nullptr);
}

TEST_F(Depth24, ResizeToTheSameSizeKeepsTheBuffers) {
    Color* before = win_data;
    void* raw_before = raw_data;
    testing::internal::CaptureStdout();
    resizeBuffer(W, H);
    EXPECT_EQ(capturedOutput(), "");
    EXPECT_EQ(win_data, before);
    EXPECT_EQ(raw_data, raw_before);
}

TEST_F(Depth24, ResizeAnnouncesAndResizesTheBuffers) {
    testing::internal::CaptureStdout();
    resizeBuffer(40, 30);
    EXPECT_EQ(capturedOutput(), "[resize request 40*30]\n");
    EXPECT_EQ(win_width, 40);
    EXPECT_EQ(win_height, 30);
    EXPECT_EQ(win_size, 1200);
    fillBuffer(red);  // the whole new buffer is writable
    EXPECT_EQ(win_data[win_size - 1], red);
}

TEST_F(Depth24, RectangleQueuedBeforeAShrinkStaysInsideTheBuffer) {
    update(0, 0, W, H);
    testing::internal::CaptureStdout();
    resizeBuffer(20, 10);
    capturedOutput();
    fillBuffer(red);
    commit();
    EXPECT_TRUE(showsRect(shown(look), 0, 0, 20, 10, red, grey));
}

TEST_F(Depth24, ExposureRepaintsTheWholeWindowFromTheBuffer) {
    drawPattern();  // not committed: only the exposure can show it
    XClearArea(look, window, 5, 5, 3, 3, True);
    XSync(look, False);
    ASSERT_TRUE(waitQueued(display, 1, 3000));
    int code = 1, x = 1, y = 1;
    EXPECT_EQ(peekEvent(&code, &x, &y), 0);  // handled, not reported
    Pixels p = shown(look);
    for (int yy = 0; yy < H; yy++)
        for (int xx = 0; xx < W; xx++) ASSERT_EQ(p.rgbAt(xx, yy), rgbOf(pattern(xx, yy)));
}

TEST_F(Depth24, BufferTooLargeIsLackOfMemory) {
    RunResult r = server->runChild([] { openWin(100000, 100000, nullptr); });
    EXPECT_EQ(r.out, "Error: Not enough memory for screen buffer.\n");
    EXPECT_EQ(r.status, 255);
}

using Depth16 = SharedXWindow<16, W, H>;

TEST_F(Depth16, ComputesTheShiftsOf565) {
    EXPECT_EQ(RGB_conv, -1);
    EXPECT_EQ(R_up, 11);
    EXPECT_EQ(G_up, 5);
    EXPECT_EQ(B_up, 0);
    EXPECT_EQ(R_down, 3);
    EXPECT_EQ(G_down, 2);
    EXPECT_EQ(B_down, 3);
}

TEST_F(Depth16, PacksPixelsInto16Bits) {
    drawPattern();
    win_data[0] = white;
    win_data[1] = {8, 4, 8, 0};
    update(0, 0, W, H);
    commit();
    Pixels p = shown(look);
    ASSERT_EQ(p.width, W);
    EXPECT_EQ(p.rawAt(0, 0), 0xFFFFu);
    EXPECT_EQ(p.rawAt(1, 0), 0x0821u);
    EXPECT_EQ(p.rgbAt(0, 0), 0xFFFFFFu);
    for (int y = 1; y < H; y++)
        for (int x = 0; x < W; x++) ASSERT_EQ(p.rawAt(x, y), packed565(pattern(x, y))) << "at " << x << "," << y;
}

TEST_F(Depth16, PartialUpdateUsesTheBufferStride) {
    fillBuffer(white);
    update(0, 0, W, H);
    commit();
    drawPattern();
    update(13, 7, 41, 29);
    commit();
    Pixels p = shown(look);
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++) {
            bool in = x >= 13 && x < 41 && y >= 7 && y < 29;
            ASSERT_EQ(p.rawAt(x, y), in ? packed565(pattern(x, y)) : 0xFFFFu) << "at " << x << "," << y;
        }
}

// The console window: a frame buffer of its own, sent with the designed window's conversion; its
// exposures repaint it from that buffer and leave the designed window alone. `held` gives the
// value a capture holds for a colour.
void checkConsoleWindow(Display* look, uint32_t (*held)(const Pixels&, int, int), uint32_t (*want)(Color)) {
    fillBuffer(grey);
    update(0, 0, W, H);
    commit();
    openConsoleWin(monitorAt(300, 200, 80, 60, false), "console test");
    ASSERT_EQ(console_win.width, 80);
    Color* frame = console_win.data;
    auto paint = [&](Color (*colour)(int, int)) {
        for (int y = 0; y < 60; y++)
            for (int x = 0; x < 80; x++) frame[y * 80 + x] = colour(x, y);
    };
    auto showsIn = [&](Window w, int width, int height, Color (*colour)(int, int)) {
        XSync(display, False);
        Pixels p = captureWindow(look, w);
        if (p.width != width) return false;
        for (int y = 0; y < height; y++)
            for (int x = 0; x < width; x++)
                if (held(p, x, y) != want(colour(x, y))) return false;
        return true;
    };
    auto shows = [&](Color (*colour)(int, int)) { return showsIn(console_win.window, 80, 60, colour); };
    auto whiteAt = [](int, int) { return white; };
    paint(whiteAt);
    sendRect(console_win, 0, 0, 80, 60);
    EXPECT_TRUE(shows(whiteAt));
    paint(pattern);
    sendRect(console_win, 0, 0, 80, 60);
    EXPECT_TRUE(shows(pattern));

    // An exposure of the console repaints it from its buffer, not the designed window.
    paint([](int x, int y) { return x < 40 ? red : pattern(x, y); });
    fillBuffer(white);  // not committed: the designed window keeps its grey
    XClearArea(look, console_win.window, 0, 0, 0, 0, True);
    XSync(look, False);
    int code, x, y;
    for (int tries = 0; tries < 50 && !shows([](int x, int y) { return x < 40 ? red : pattern(x, y); }); tries++) {
        peekEvent(&code, &x, &y);
        usleep(10000);
    }
    EXPECT_TRUE(shows([](int x, int y) { return x < 40 ? red : pattern(x, y); }));
    EXPECT_TRUE(showsIn(window, W, H, [](int, int) { return grey; }));
    closeConsoleWin();
    EXPECT_EQ(console_win.window, 0u);
}

uint32_t rgbHeld(const Pixels& p, int x, int y) { return p.rgbAt(x, y); }
uint32_t rawHeld(const Pixels& p, int x, int y) { return p.rawAt(x, y); }

TEST_F(Depth24, ConsoleWindowHasItsOwnBufferAndTheSameConversion) { checkConsoleWindow(look, rgbHeld, rgbOf); }
TEST_F(Depth16, ConsoleWindowHasItsOwnBufferAndTheSameConversion) {
    checkConsoleWindow(look, rawHeld, packed565);
}

// A display number nobody serves.
std::string deadDisplay() {
    for (int n = 250;; n++)
        if (access(("/tmp/.X11-unix/X" + std::to_string(n)).c_str(), F_OK) != 0) return ":" + std::to_string(n);
}

TEST(OpenWinFailure, NoDisplay) {
    RunResult r = runChild(deadDisplay(), [] { openWin(10, 10, nullptr); });
    EXPECT_EQ(r.out, "Error: Could not open display.\n");
    EXPECT_EQ(r.status, 255);
}

TEST(OpenWinFailure, Depth30IsUnsupported) {
    XServer x(30, 64, 64);
    if (!x.ok()) GTEST_SKIP() << x.error();
    RunResult r = x.runChild([] { openWin(10, 10, "deep"); });
    EXPECT_EQ(r.out,
              "ERROR! Unsupported byte order in Video RGB representation\n\n"
              "Internal RGB representation: 000000FF 0000FF00 00FF0000\n"
              "Video RGB representation   : 3FF00000 000FFC00 000003FF\n");
    EXPECT_EQ(r.status, 20);
}

TEST(OpenWinFailure, PaletteVisualIsRefused) {
    XServer x(8, 64, 64);
    if (!x.ok()) GTEST_SKIP() << x.error();
    RunResult r = x.runChild([] { openWin(10, 10, nullptr); });
    EXPECT_EQ(r.out, "Error: TrueColor not supported.\n");
    EXPECT_EQ(r.status, 255);
}

}  // namespace
