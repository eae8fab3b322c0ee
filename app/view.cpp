#include "app/view.h"

#include <X11/keysym.h>
#include <time.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "app/projector.h"
#include "app/session_idle.h"
#include "display/awake.h"
#include "display/monitors.h"
#include "display/pointer.h"
#include "display/win.h"

static const char* const title = "Marrowgate -- Pell Ormsby, KVORM 2007";

// Fixed first screens of the carried presentation's sub-sections.
enum { SECTION_C = 249, SECTION_R = 212, SECTION_E = 108, SECTION_E2 = 141, SECTION_M = 9, SECTION_M2 = 82 };

void drawSlide(Image& image) {
    int pixels = imagePixelCount(image);
    if (image.width == win_width && image.height == win_height && pixels == win_size) {
        copyPixels(image, 0, win_size, win_data);
    } else {
        int w = pixels ? (image.width < win_width ? image.width : win_width) : 0;
        int h = pixels ? (image.height < win_height ? image.height : win_height) : 0;
        for (int y = 0; y < win_height; y++) {
            Color* row = win_data + (size_t)y * win_width;
            int shown = y < h ? w : 0;
            if (shown) copyPixels(image, y * image.width, shown, row);
            for (int x = shown; x < win_width; x++) row[x] = Color{0, 0, 0, 0};
        }
    }
    update(0, 0, win_width, win_height);
    commit();
}

struct Flags {
    const vec<bool>& flags;
    bool operator()(int j) const { return j >= 0 && j < flags.size && flags[j]; }
};

// The last screen of the slide that holds screen cur + 1.
static int forwardScan(int cur, const Flags& flag) {
    int j = cur + 2;
    while (flag(j)) j++;
    return j - 1;
}

// The last screen of the slide before the one that holds cur.
static int backwardScan(int cur, const Flags& flag) {
    int j = cur;
    while (flag(j)) j--;
    return j - 1;
}

int firstScreenOfSlide(const vec<bool>& flags, int slide) {
    int first = 0, seen = 0;
    for (int i = 0; i < flags.size; i++) {
        if (i > 0 && flags[i]) continue;
        first = i;
        if (++seen == slide) break;
    }
    return first;
}

// What a key or button does.
enum Action {
    NEXT, PREV, NEXT_AT_ONCE, PREV_AT_ONCE, SLIDE_AHEAD_AT_ONCE, SLIDE_BACK_AT_ONCE, SLIDE_AHEAD, SLIDE_BACK,
    FIRST, LAST, SECTION_C_KEY, SECTION_R_KEY, SECTION_E_KEY, SECTION_M_KEY, QUIT,
    BLACK, WHITE, CANCEL, GO, ERASE, RESET_CLOCK, NOTHING
};

struct KeyBinding {
    unsigned sym;
    Action action;
};

// The window's keys.
static const KeyBinding window_keys[] = {
    {XK_space, NEXT}, {XK_Return, NEXT}, {XK_BackSpace, PREV}, {XK_Right, NEXT_AT_ONCE}, {XK_Left, PREV_AT_ONCE},
    {XK_Down, SLIDE_AHEAD_AT_ONCE}, {XK_Up, SLIDE_BACK_AT_ONCE}, {XK_Next, SLIDE_AHEAD}, {XK_Prior, SLIDE_BACK},
    {XK_Home, FIRST}, {XK_End, LAST}, {XK_c, SECTION_C_KEY}, {XK_r, SECTION_R_KEY}, {XK_e, SECTION_E_KEY},
    {XK_m, SECTION_M_KEY}, {XK_q, QUIT}, {XK_Escape, QUIT}, {NO_SYMBOL, QUIT},
};

// Keys that mean something else while presenting. A clicker sends Page Down / Page Up for its
// buttons, F5 and Escape for start / stop, and period for blank; Escape arrives as a key without
// a symbol (its key code is 9 on today's servers), so that one must not quit either.
static const KeyBinding presenting_keys[] = {
    {XK_Next, NEXT}, {XK_Prior, PREV}, {XK_b, BLACK}, {XK_period, BLACK}, {XK_KP_Decimal, BLACK},
    {XK_w, WHITE}, {XK_comma, WHITE}, {XK_Escape, CANCEL}, {XK_F5, CANCEL}, {NO_SYMBOL, CANCEL},
};

// The console's keys: they neither end a blank nor drop a number being typed.
static const KeyBinding console_keys[] = {
    {XK_t, RESET_CLOCK},
};

// Keys that mean something else while a slide number is being typed.
static const KeyBinding typing_keys[] = {
    {XK_Return, GO}, {XK_KP_Enter, GO}, {XK_g, GO}, {XK_BackSpace, ERASE},
};

template <size_t N>
static bool lookUp(const KeyBinding (&table)[N], unsigned sym, Action& action) {
    for (const KeyBinding& b : table)
        if (b.sym == sym) {
            action = b.action;
            return true;
        }
    return false;
}

// The key's symbol while presenting: a keypad key counts as its number (or decimal point)
// whether Num Lock is on or not.
static unsigned presentingSym(int code) {
    unsigned sym = keyToSym(code, 0);
    if (sym < XK_KP_Space || sym > XK_KP_9) return sym;
    unsigned number = keyToSym(code, 1);
    return (number >= XK_KP_0 && number <= XK_KP_9) || number == XK_KP_Decimal ? number : sym;
}

static int digitOf(unsigned sym) {
    if (sym >= XK_0 && sym <= XK_9) return (int)(sym - XK_0);
    if (sym >= XK_KP_0 && sym <= XK_KP_9) return (int)(sym - XK_KP_0);
    return -1;
}

// How screens reach the window: at their own size in the window, or scaled on a presenting monitor.
struct Painter {
    void (*draw)(Image&);
    void (*forward)(Image&);
    void (*backward)(Image&);
};

static const Painter window_painter = {drawSlide, nextSlide, prevSlide};
static const Painter projector_painter = {projectorDraw, projectorForward, projectorBackward};

static const int MAX_DIGITS = 6;

struct Viewer {
    vec<Image>& images;
    Flags flag;
    bool presenting;
    int cur = 0, prev = 0;
    bool transitions_on = true;
    bool force_transition = false;
    bool blank = false;
    Color blank_color = {0, 0, 0, 0};
    char digits[MAX_DIGITS + 1] = "";
    Console* console = nullptr;  // the presenter's console, when there is one

    AudienceView audience() const {
        AudienceView v;
        v.screen = cur;
        v.blank = blank;
        v.blank_color = blank_color;
        return v;
    }

    const Painter& paint() const { return presenting ? projector_painter : window_painter; }
    int count() const { return images.size; }

    void show() {
        if (cur == prev) return;
        bool one_step = (flag(cur) && cur == prev + 1) || (flag(cur + 1) && cur == prev - 1);
        if (!transitions_on || (one_step && !force_transition)) {
            paint().draw(images[cur]);
            transitions_on = true;
        } else if (cur < prev) {
            paint().backward(images[cur]);
        } else {
            paint().forward(images[cur]);
        }
        force_transition = false;
    }

    // Redraws what the window shows now (after a resize, or when a blank ends).
    void redraw() {
        if (blank) return projectorFill(blank_color);
        paint().draw(images[cur]);
        if (digits[0]) projectorNumber(digits);
    }

    // Changes the digits typed so far: drops the last `drop` and appends `digit` (if >= 0).
    void editDigits(int drop, int digit) {
        size_t n = strlen(digits);
        n = drop > (int)n ? 0 : n - drop;
        if (digit >= 0 && n < MAX_DIGITS) digits[n++] = (char)('0' + digit);
        digits[n] = 0;
        projectorNumber(digits);
    }

    // Applies one action; returns false when it quits.
    bool act(Action action, int& target) {
        switch (action) {
        case NEXT: target = cur + 1; break;
        case PREV: target = cur - 1; break;
        case NEXT_AT_ONCE: target = cur + 1; transitions_on = false; break;
        case PREV_AT_ONCE: target = cur - 1; transitions_on = false; break;
        case SLIDE_AHEAD_AT_ONCE: target = forwardScan(cur, flag); transitions_on = false; break;
        case SLIDE_BACK_AT_ONCE: target = backwardScan(cur, flag); transitions_on = false; break;
        case SLIDE_AHEAD: target = forwardScan(cur, flag); force_transition = true; break;
        case SLIDE_BACK: target = backwardScan(cur, flag); force_transition = true; break;
        case FIRST: target = 0; force_transition = true; break;
        case LAST: target = count() - 1; force_transition = true; break;
        case SECTION_C_KEY: target = SECTION_C; break;
        case SECTION_R_KEY: target = SECTION_R; break;
        case SECTION_E_KEY: target = cur == SECTION_E ? SECTION_E2 : SECTION_E; break;
        case SECTION_M_KEY: target = cur == SECTION_M ? SECTION_M2 : SECTION_M; break;
        case QUIT: return false;
        case BLACK: case WHITE:
            blank = true;
            blank_color = action == BLACK ? Color{0, 0, 0, 0} : Color{255, 255, 255, 0};
            projectorFill(blank_color);
            break;
        case GO:
            if (atoi(digits) > 0) {
                target = firstScreenOfSlide(flag.flags, atoi(digits));
                force_transition = true;
            }
            editDigits(MAX_DIGITS, -1);
            break;
        case ERASE: editDigits(1, -1); break;
        case CANCEL: if (digits[0]) editDigits(MAX_DIGITS, -1); break;
        case RESET_CLOCK: console->resetClock(); break;
        case NOTHING: break;
        }
        return true;
    }

    // Applies one key press; returns false when it quits.
    bool key(int code, int& target) {
        if (!presenting) {
            Action action = NOTHING;
            lookUp(window_keys, keyToSym(code, 0), action);
            return act(action, target);
        }
        unsigned sym = presentingSym(code);
        if (keyIsModifier((int)sym)) return true;
        Action action = NOTHING;
        if (console && lookUp(console_keys, sym, action)) return act(action, target);
        if (blank && sym != XK_q) {
            blank = false;
            redraw();
            return true;
        }
        int digit = digitOf(sym);
        if (digit >= 0) {
            editDigits(0, digit);
            return true;
        }
        bool typing = digits[0] != 0;
        if (typing && lookUp(typing_keys, sym, action)) return act(action, target);
        if (typing) editDigits(MAX_DIGITS, -1);  // any other key drops the number
        if (!lookUp(presenting_keys, sym, action)) lookUp(window_keys, sym, action);
        return act(action, target);
    }

    // A mouse button while presenting first ends a blank and drops a number being typed.
    bool button(int code, int& target) {
        if (presenting && blank) {
            blank = false;
            redraw();
            return true;
        }
        if (presenting && digits[0]) editDigits(MAX_DIGITS, -1);
        switch (code - EVENT_BUTTON) {
        case 1: target = cur + 1; break;
        case 3: target = cur - 1; break;
        case 4: target = backwardScan(cur, flag); transitions_on = false; break;
        case 5: target = forwardScan(cur, flag); transitions_on = false; break;
        }
        return true;
    }

    // Applies one event; returns false when the user quits.
    bool event(int code) {
        int target = cur;
        if (code == EVENT_CLOSE) return false;
        if (code == EVENT_RESIZE) {
            redraw();  // the frame buffer was reallocated at the new size
        } else if (code == EVENT_CONSOLE_RESIZE) {
            if (console) console->resized();
        } else if (code >= 1 && code <= 255) {
            if (!key(code, target)) return false;
        } else if (code > EVENT_BUTTON && code <= EVENT_BUTTON + 255) {
            button(code, target);
        }
        if (target > count() - 1) target = count() - 1;
        if (target < 0) target = 0;
        prev = cur;
        cur = target;
        return true;
    }
};

static double seconds() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

static const double POINTER_REST = 2.0;  // seconds at rest before the pointer hides

// The sooner of two timeouts, a negative one being none.
static int sooner(int a_ms, int b_ms) { return a_ms < 0 ? b_ms : b_ms < 0 || a_ms < b_ms ? a_ms : b_ms; }

// While presenting: the pointer shows while the mouse moves and hides after a rest, the pictures
// the next move needs are made while nothing else is to be done, and the console's clocks go on.
struct PresentingWait {
    bool pointer_shown = false;
    double moved = 0;

    void wait(Viewer& v) {
        if (!waitEvent(0) && v.cur + 1 < v.count()) projectorPrepare(v.images[v.cur + 1]);
        while (v.console && !waitEvent(0) && v.console->prepare()) {
        }
        for (;;) {
            int pointer_ms = pointer_shown ? (int)((moved + POINTER_REST - seconds()) * 1000) + 1 : -1;
            int tick_ms = v.console ? v.console->msToTick() : -1;
            int left = sooner(pointer_ms, tick_ms);
            if (waitEvent(left)) return;
            if (pointer_ms >= 0 && left == pointer_ms) {
                hidePointer(true);
                pointer_shown = false;
            }
            if (v.console) v.console->tick();
        }
    }

    void moving() {
        if (!pointer_shown) hidePointer(false);
        pointer_shown = true;
        moved = seconds();
    }
};

static void openPresenting(const Monitor& monitor) {
    openMonitorWin(monitor, title);
    hidePointer(true);
    suspendScreenSaver();
    inhibitSessionIdle("view_slides", "Presenting a slide show");
}

void view(vec<Image>& images, vec<bool>& flags, const ViewOptions& options) {
    Viewer viewer{images, Flags{flags}, options.monitor != nullptr};
    if (options.monitor)
        openPresenting(*options.monitor);
    else
        openWin(images[0].width, images[0].height, title);
    viewer.cur = viewer.prev = options.first_screen;
    viewer.paint().draw(images[options.first_screen]);
    std::unique_ptr<Console> console;
    if (options.monitor && options.console.monitor)
        console.reset(new Console(images, flags, options.console, viewer.audience()));
    viewer.console = console.get();
    PresentingWait presenting;
    int code = 0, x = 0, y = 0;
    for (;;) {
        viewer.show();
        if (viewer.console) viewer.console->follow(viewer.audience());
        if (viewer.presenting) presenting.wait(viewer);
        nextEvent(&code, &x, &y);
        if (viewer.presenting && code == EVENT_MOTION) presenting.moving();
        if (!viewer.event(code)) break;
    }
    console.reset();
    closeWin();
}

void view(vec<Image>& images, vec<bool>& flags) { view(images, flags, ViewOptions()); }
