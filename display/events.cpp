// The event queue of the window (and of the console window, when one is open) as (code, x, y)
// records, held keys, key symbols and auto-repeat.
#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <poll.h>
#include <time.h>

#include <cstring>

#include "display/console_win.h"
#include "display/win.h"

extern "C" {
unsigned char key_pressed[512];
int key_repeat = 1;
}

static void fill(int* code, int* x, int* y, int c, int xv, int yv) {
    *code = c;
    *x = xv;
    *y = yv;
}

static void removeHead() {
    XEvent scratch;
    XNextEvent(display, &scratch);
}

// Handles the head event: reports it (returns 1, the event stays queued) or consumes it
// (returns 0).
static int inspect(const XEvent& e, int* code, int* x, int* y) {
    switch (e.type) {
    case KeyPress:
        fill(code, x, y, (int)e.xkey.keycode, e.xkey.x, e.xkey.y);
        key_pressed[e.xkey.keycode & 0xFF] = 1;
        return 1;
    case KeyRelease:
        fill(code, x, y, -(int)e.xkey.keycode, e.xkey.x, e.xkey.y);
        key_pressed[e.xkey.keycode & 0xFF] = 0;
        return 1;
    case ButtonPress:
        fill(code, x, y, EVENT_BUTTON + (int)e.xbutton.button, e.xbutton.x, e.xbutton.y);
        key_pressed[EVENT_BUTTON + (e.xbutton.button & 0xFF)] = 1;
        return 1;
    case ButtonRelease:
        fill(code, x, y, -(EVENT_BUTTON + (int)e.xbutton.button), e.xbutton.x, e.xbutton.y);
        key_pressed[EVENT_BUTTON + (e.xbutton.button & 0xFF)] = 0;
        return 1;
    case MotionNotify:
        fill(code, x, y, EVENT_MOTION, e.xmotion.x, e.xmotion.y);
        return 1;
    case ConfigureNotify:
        if (isConsoleWin(e.xconfigure.window)) {
            if (e.xconfigure.width == console_win.width && e.xconfigure.height == console_win.height) break;
            fill(code, x, y, EVENT_CONSOLE_RESIZE, e.xconfigure.width, e.xconfigure.height);
            return 1;
        }
        fill(code, x, y, EVENT_RESIZE, e.xconfigure.width, e.xconfigure.height);
        return 1;
    case ClientMessage:
        if (!wm_delete_window || (Atom)e.xclient.data.l[0] != wm_delete_window) break;  // presenting only
        fill(code, x, y, EVENT_CLOSE, 0, 0);
        return 1;
    }
    removeHead();
    if (e.type == Expose && isConsoleWin(e.xexpose.window)) {
        sendRect(console_win, 0, 0, console_win.width, console_win.height);
    } else if (e.type == Expose) {
        exposeWin(0, 0, win_width, win_height);  // every exposure repaints everything
    } else if (e.type == FocusIn) {
        if (key_repeat == 0) XAutoRepeatOff(display);
    } else if (e.type == FocusOut) {
        XAutoRepeatOn(display);
        memset(key_pressed, 0, sizeof key_pressed);
    }
    return 0;
}

int peekEvent_helper(int* code, int* x, int* y, int block) {
    fill(code, x, y, 0, 0, 0);
    while (block || XPending(display) > 0) {
        XEvent e;
        XPeekEvent(display, &e);
        if (inspect(e, code, x, y)) return 1;
    }
    return 0;
}

extern "C" int peekEvent(int* code, int* x, int* y) {
    int found = peekEvent_helper(code, x, y, 0);
    if (*code == EVENT_RESIZE) resizeBuffer(*x, *y);
    return found;
}

extern "C" void skipEvent() { removeHead(); }

extern "C" void nextEvent(int* code, int* x, int* y) {
    peekEvent_helper(code, x, y, 1);
    skipEvent();
    int c, nx, ny;
    if (*code == EVENT_MOTION) {
        while (peekEvent(&c, &nx, &ny) && c == EVENT_MOTION) {
            *x = nx;
            *y = ny;
            skipEvent();
        }
    } else if (*code == EVENT_RESIZE) {
        while (peekEvent_helper(&c, &nx, &ny, 0) && c == EVENT_RESIZE) {
            *x = nx;
            *y = ny;
            skipEvent();
        }
        resizeBuffer(*x, *y);
    } else if (*code == EVENT_CONSOLE_RESIZE) {
        resizeConsoleWin(*x, *y);
    }
}

extern "C" unsigned keyToSym(int keycode, unsigned index) {
    if (keycode <= 9) return NO_SYMBOL;
    int lowest, highest;
    XDisplayKeycodes(display, &lowest, &highest);
    int key = keycode & 0xFF;
    if (key < lowest || key > highest) return NO_SYMBOL;  // the server would reject it
    int per_code = 0;
    KeySym* syms = XGetKeyboardMapping(display, (KeyCode)key, 1, &per_code);
    if (!syms) return NO_SYMBOL;
    unsigned sym = index < (unsigned)per_code ? (unsigned)syms[index] : NO_SYMBOL;
    XFree(syms);
    return sym;
}

int keyIsModifier(int sym) {
    return sym == XK_Scroll_Lock || sym == XK_Mode_switch || sym == XK_Num_Lock ||
           (sym >= XK_Shift_L && sym <= XK_Hyper_R);
}

int waitAnyKey() {
    int code, x, y;
    while (peekEvent(&code, &x, &y)) skipEvent();
    for (;;) {
        nextEvent(&code, &x, &y);
        if (code >= 0 && code <= 255 && !keyIsModifier((int)keyToSym(code, 0))) return code;
    }
}

static long long nowMs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (long long)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

int waitEvent(int timeout_ms) {
    long long deadline = nowMs() + timeout_ms;
    int code, x, y;
    for (;;) {
        if (peekEvent_helper(&code, &x, &y, 0)) return 1;
        XFlush(display);
        int left = timeout_ms < 0 ? -1 : (int)(deadline - nowMs());
        if (timeout_ms >= 0 && left <= 0) return 0;
        pollfd p = {ConnectionNumber(display), POLLIN, 0};
        poll(&p, 1, left);
    }
}
