// Input events of the window, produced by a private X server: merging, key and button records,
// held keys, focus and auto-repeat, key symbols, waiting for a key.
#include <X11/keysym.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "display/console_win.h"
#include "display/monitors.h"
#include "display/win.h"
#include "helpers/xsuite.h"

namespace {

class Events : public SharedXWindow<24, 200, 150, 640, 480> {
protected:
    // Moves the pointer inside the window; done before any later xdotool input.
    void warp(int x, int y) {
        XWarpPointer(look, None, window, 0, 0, 0, 0, x, y);
        XSync(look, False);
    }
    // Waits until the window's connection holds count events (sent by look or xdotool).
    void expectQueued(int count) {
        XSync(look, False);
        ASSERT_TRUE(waitQueued(display, count, 3000)) << "expected " << count << " events";
    }
    // Moves the input focus and lets the window handle the focus events.
    void focus(Window to) {
        XSetInputFocus(look, to, RevertToNone, CurrentTime);
        XSync(look, False);
        XSync(display, False);
        int code, x, y;
        EXPECT_EQ(peekEvent(&code, &x, &y), 0) << "focus events are handled, not reported";
        XSync(display, False);
    }
    void press(const std::vector<std::string>& args) { ASSERT_EQ(server->xdotool(args).status, 0); }
    int keycode(KeySym sym) { return XKeysymToKeycode(look, sym); }
    bool noneHeld() {
        for (unsigned char k : key_pressed)
            if (k) return false;
        return true;
    }
};

TEST_F(Events, EmptyQueueReportsNothing) {
    int code = 5, x = 6, y = 7;
    EXPECT_EQ(peekEvent(&code, &x, &y), 0);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(x, 0);
    EXPECT_EQ(y, 0);
}

TEST_F(Events, TenMotionsComeBackAsOne) {
    for (int i = 0; i < 10; i++) warp(10 + i, 20 + 2 * i);
    expectQueued(10);
    int code, x, y;
    nextEvent(&code, &x, &y);
    EXPECT_EQ(code, EVENT_MOTION);
    EXPECT_EQ(x, 19);
    EXPECT_EQ(y, 38);
    EXPECT_EQ(peekEvent(&code, &x, &y), 0);
}

TEST_F(Events, PeekLeavesTheEventQueued) {
    warp(33, 44);
    expectQueued(1);
    int code, x, y;
    ASSERT_EQ(peekEvent(&code, &x, &y), 1);
    EXPECT_EQ(code, EVENT_MOTION);
    int again_code, again_x, again_y;
    ASSERT_EQ(peekEvent(&again_code, &again_x, &again_y), 1);
    EXPECT_EQ(again_code, code);
    EXPECT_EQ(again_x, 33);
    EXPECT_EQ(again_y, 44);
    skipEvent();
    EXPECT_EQ(peekEvent(&code, &x, &y), 0);
}

TEST_F(Events, ThreeResizesMergeIntoTheLast) {
    XResizeWindow(look, window, 100, 80);
    XResizeWindow(look, window, 260, 190);
    XResizeWindow(look, window, 90, 70);
    expectQueued(3);
    testing::internal::CaptureStdout();
    int code, x, y;
    nextEvent(&code, &x, &y);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[resize request 90*70]\n");
    EXPECT_EQ(code, EVENT_RESIZE);
    EXPECT_EQ(x, 90);
    EXPECT_EQ(y, 70);
    EXPECT_EQ(win_width, 90);
    EXPECT_EQ(win_height, 70);
    EXPECT_EQ(win_size, 90 * 70);
    EXPECT_EQ(peekEvent(&code, &x, &y), 0);
}

TEST_F(Events, PeekedResizeResizesTheBuffer) {
    XResizeWindow(look, window, 120, 60);
    expectQueued(1);
    testing::internal::CaptureStdout();
    int code, x, y;
    EXPECT_EQ(peekEvent(&code, &x, &y), 1);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[resize request 120*60]\n");
    EXPECT_EQ(code, EVENT_RESIZE);
    EXPECT_EQ(win_width, 120);
    EXPECT_EQ(win_height, 60);
}

// The console window's new size comes as its own event with its buffers resized, the designed
// window's untouched; a move that keeps its size is not reported.
TEST_F(Events, ConsoleResizeResizesTheConsoleOnly) {
    openConsoleWin(monitorAt(300, 50, 100, 80, false), "console test");
    int code, x, y;
    XSync(display, False);
    while (peekEvent(&code, &x, &y)) skipEvent();
    XMoveWindow(look, console_win.window, 320, 60);
    XResizeWindow(look, console_win.window, 130, 90);
    expectQueued(2);
    testing::internal::CaptureStdout();
    nextEvent(&code, &x, &y);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(code, EVENT_CONSOLE_RESIZE);
    EXPECT_EQ(x, 130);
    EXPECT_EQ(y, 90);
    EXPECT_EQ(console_win.width, 130);
    EXPECT_EQ(console_win.height, 90);
    EXPECT_EQ(win_width, 200);
    EXPECT_EQ(win_height, 150);
    EXPECT_EQ(peekEvent(&code, &x, &y), 0);
    closeConsoleWin();
}

TEST_F(Events, MotionThenKeyAreNotMerged) {
    warp(5, 6);
    press({"key", "a"});
    expectQueued(3);
    int a = keycode(XK_a), code, x, y;
    nextEvent(&code, &x, &y);
    EXPECT_EQ(code, EVENT_MOTION);
    EXPECT_EQ(x, 5);
    EXPECT_EQ(y, 6);
    nextEvent(&code, &x, &y);
    EXPECT_EQ(code, a);
    EXPECT_EQ(x, 5);
    EXPECT_EQ(y, 6);
    EXPECT_EQ(key_pressed[a], 1);
    nextEvent(&code, &x, &y);
    EXPECT_EQ(code, -a);
    EXPECT_EQ(key_pressed[a], 0);
}

TEST_F(Events, ButtonsAreReportedAbove256) {
    warp(40, 50);
    press({"mousedown", "1"});
    expectQueued(2);
    int code, x, y;
    nextEvent(&code, &x, &y);
    ASSERT_EQ(code, EVENT_MOTION);
    nextEvent(&code, &x, &y);
    EXPECT_EQ(code, 257);
    EXPECT_EQ(x, 40);
    EXPECT_EQ(y, 50);
    EXPECT_EQ(key_pressed[257], 1);
    press({"mouseup", "1"});
    expectQueued(1);
    nextEvent(&code, &x, &y);
    EXPECT_EQ(code, -257);
    EXPECT_EQ(key_pressed[257], 0);
}

TEST_F(Events, LosingFocusReleasesEverything) {
    warp(10, 10);
    press({"keydown", "a", "mousedown", "3"});
    expectQueued(3);
    int code, x, y;
    for (int i = 0; i < 3; i++) nextEvent(&code, &x, &y);
    ASSERT_EQ(key_pressed[keycode(XK_a)], 1);
    ASSERT_EQ(key_pressed[256 + 3], 1);
    focus(None);
    EXPECT_TRUE(noneHeld());
    press({"keyup", "a", "mouseup", "3"});
}

bool autoRepeatOn(Display* d) {
    XKeyboardState state;
    XGetKeyboardControl(d, &state);
    return state.global_auto_repeat == AutoRepeatModeOn;
}

TEST_F(Events, FocusSwitchesAutoRepeatWhenAskedTo) {
    focus(None);
    key_repeat = 0;
    focus(window);
    EXPECT_FALSE(autoRepeatOn(look));
    focus(None);
    EXPECT_TRUE(autoRepeatOn(look));
    key_repeat = 1;
}

TEST_F(Events, FocusLeavesAutoRepeatAloneByDefault) {
    focus(None);
    XAutoRepeatOff(look);  // the user's own choice
    focus(window);
    EXPECT_FALSE(autoRepeatOn(look));
    XAutoRepeatOn(look);
}

TEST_F(Events, KeySymbols) {
    int a = keycode(XK_a);
    int per_code = 0;
    KeySym* syms = XGetKeyboardMapping(look, (KeyCode)a, 1, &per_code);
    ASSERT_NE(syms, nullptr);
    ASSERT_GT(per_code, 0);
    EXPECT_EQ(keyToSym(a, 0), (unsigned)XK_a);
    EXPECT_EQ(keyToSym(a, 1), (unsigned)syms[1]);
    EXPECT_EQ(keyToSym(a, per_code - 1), (unsigned)syms[per_code - 1]);
    EXPECT_EQ(keyToSym(a, per_code), NO_SYMBOL);
    EXPECT_EQ(keyToSym(a, 5), per_code > 5 ? (unsigned)syms[5] : NO_SYMBOL);
    EXPECT_EQ(keyToSym(a, 0xFFFFFFFFu), NO_SYMBOL);
    EXPECT_EQ(keyToSym(a + 512, 0), (unsigned)XK_a);  // only the low byte is a key code
    XFree(syms);
    EXPECT_EQ(keyToSym(9, 0), NO_SYMBOL);
    EXPECT_EQ(keyToSym(-a, 0), NO_SYMBOL);
    EXPECT_EQ(keyToSym(256 + 3, 0), NO_SYMBOL);  // key code 3 does not exist
}

TEST_F(Events, ModifierSymbols) {
    for (int s : {XK_Shift_L, XK_Shift_R, XK_Control_L, XK_Caps_Lock, XK_Alt_L, XK_Hyper_R, XK_Num_Lock,
                     XK_Scroll_Lock, XK_Mode_switch})
        EXPECT_TRUE(keyIsModifier(s)) << std::hex << s;
    for (int s : {XK_a, XK_space, XK_Return, XK_Escape, XK_Left, XK_F1, XK_Delete, 0xFFE0, 0xFFEF})
        EXPECT_FALSE(keyIsModifier(s)) << std::hex << s;
}

TEST_F(Events, WaitAnyKeySkipsPendingModifiersReleasesAndButtons) {
    warp(20, 20);
    press({"key", "c", "keydown", "d"});  // pending before the wait: thrown away
    expectQueued(3);
    pid_t input = server->xdotoolAsync({"sleep", "0.15", "keyup", "d", "key", "Shift_L", "key", "Control_L", "key",
                                        "Alt_L", "key", "Caps_Lock", "key", "Caps_Lock", "click", "2", "key", "b"});
    alarm(20);  // a wait that never ends fails loudly instead of hanging the run
    int got = waitAnyKey();
    alarm(0);
    EXPECT_EQ(waitChild(input), 0);
    EXPECT_EQ(got, keycode(XK_b));
}

}  // namespace
