// The window: opening it (at the screens' size, or over a monitor for presenting), its update
// queue and resizing, and the choice of the conversion to the visual's pixels, which surface.cpp
// applies.
#include "display/win.h"

#include "display/fullscreen.h"
#include "display/monitors.h"
#include "display/shm.h"
#include "display/surface.h"

#include <X11/Xutil.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
Display* display;
Window window;
int screen_no;
int win_width, win_height, win_size;
Color* win_data;
void* raw_data;
UpdateCell* first_cell;

int RGB_conv;
int R_down, G_down, B_down;
int R_up, G_up, B_up;
uint32_t raw_R, raw_G, raw_B;
uint32_t win_R, win_G, win_B;
Color color_Red, color_Green, color_Blue;
}

static const long EVENT_MASK = KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask |
                               PointerMotionMask | ExposureMask | StructureNotifyMask | FocusChangeMask;

Atom wm_delete_window;

static void fail(const char* message) {
    puts(message);
    exit(-1);
}

static void setSize(int width, int height) {
    win_width = width;
    win_height = height;
    win_size = width * height;
}

// The designed window's surface: its globals, read afresh before each use (tools and tests set
// them), and written back whenever its buffers move. Its shared segment is kept here.
static Surface designed;

static Surface& designedSurface() {
    designed.window = window;
    designed.width = win_width;
    designed.height = win_height;
    designed.data = win_data;
    designed.raw = raw_data;
    return designed;
}

static void keepDesigned() {
    win_data = designed.data;
    raw_data = designed.raw;
    setSize(designed.width, designed.height);
}

// Position of the lowest set bit, and the number of bits from there to the highest.
static int lowBit(uint32_t mask) { return mask ? __builtin_ctz(mask) : 0; }
static int bitCount(uint32_t bits) { return bits ? 32 - __builtin_clz(bits) : 0; }

// Shifts that turn an 8-bit channel into the field of a 16-bit visual's mask.
static void packShifts(uint32_t mask, int& down, int& up) {
    up = lowBit(mask);
    int bits = bitCount(mask >> up);
    down = bits == 0 ? 8 : bits > 8 ? 0 : 8 - bits;
}

static bool sameMasks(uint32_t r, uint32_t g, uint32_t b) { return raw_R == r && raw_G == g && raw_B == b; }

static void unsupportedDepth() {
    puts("ERROR! Unsupported byte order in Video RGB representation\n");
    printf("Internal RGB representation: %.8X %.8X %.8X\n", win_R, win_G, win_B);
    printf("Video RGB representation   : %.8X %.8X %.8X\n", raw_R, raw_G, raw_B);
    exit(20);
}

static void chooseConversion(int depth) {
    if (depth == 24 || depth == 32) {
        if (sameMasks(win_R, win_G, win_B))
            RGB_conv = 0;
        else if (sameMasks(0xFF0000, 0xFF00, 0xFF))
            RGB_conv = 1;
    } else if (depth == 15 || depth == 16) {
        RGB_conv = -1;
        packShifts(raw_R, R_down, R_up);
        packShifts(raw_G, G_down, G_up);
        packShifts(raw_B, B_down, B_up);
    } else {
        unsupportedDepth();
    }
}

// Where a window goes: the viewer's at the root's corner with a border, a presenting one
// over a whole monitor without one.
struct Placement {
    int x, y;
    unsigned width, height, border;
    int backing_store;  // a presenting window repaints itself instead, sparing the server a copy
};

static Placement monitorPlacement(const Monitor& monitor) {
    return Placement{monitor.x, monitor.y, (unsigned)monitor.width, (unsigned)monitor.height, 0, NotUseful};
}

static Window createWindow(const Placement& at) {
    XSetWindowAttributes attr = {};
    attr.background_pixel = BlackPixel(display, screen_no);
    attr.border_pixel = WhitePixel(display, screen_no);
    attr.backing_store = at.backing_store;
    attr.event_mask = EVENT_MASK;
    attr.override_redirect = 1;  // not in the mask: the window manager keeps managing it
    unsigned long mask = CWBackPixel | CWBorderPixel | CWBackingStore | CWEventMask;
    return XCreateWindow(display, RootWindow(display, screen_no), at.x, at.y, at.width, at.height, at.border,
                         DefaultDepth(display, screen_no), InputOutput, DefaultVisual(display, screen_no), mask,
                         &attr);
}

// What a presenting window tells the window manager before it appears: a class, the close
// request of the manager's close button, and the wish for full screen. The designed window
// carries its title alone.
static void presentingHints(Window w) {
    XClassHint hint = {(char*)"view_slides", (char*)"View_slides"};
    XSetClassHint(display, w, &hint);
    wm_delete_window = XInternAtom(display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(display, w, &wm_delete_window, 1);
    prepareFullscreen(w);
}

Display* connectDisplay() {
    Display* d = XOpenDisplay(nullptr);
    if (!d) fail("Error: Could not open display.");
    return d;
}

// Creates a window at the placement with the title and maps it; before_map (or null) tells the
// window manager what it must know before the window appears.
static Window createMapped(const Placement& at, const char* title, void (*before_map)(Window)) {
    Window w = createWindow(at);
    if (!w) fail("Could not open window.");
    if (title) XStoreName(display, w, title);
    if (before_map) before_map(w);
    XMapWindow(display, w);
    XFlush(display);
    return w;
}

// Opens the display and the designed window at the placement, and chooses the pixel conversion.
static void openWindow(const Placement& at, const char* title, void (*before_map)(Window)) {
    display = connectDisplay();
    screen_no = DefaultScreen(display);
    Visual* visual = DefaultVisual(display, screen_no);
    if (visual->c_class != TrueColor) fail("Error: TrueColor not supported.");

    allocSurface(designedSurface(), (int)at.width, (int)at.height);
    keepDesigned();
    window = createMapped(at, title, before_map);

    raw_R = (uint32_t)visual->red_mask;
    raw_G = (uint32_t)visual->green_mask;
    raw_B = (uint32_t)visual->blue_mask;
    color_Red = {255, 0, 0, 0};
    color_Green = {0, 255, 0, 0};
    color_Blue = {0, 0, 255, 0};
    win_R = colorKey(color_Red);
    win_G = colorKey(color_Green);
    win_B = colorKey(color_Blue);
    chooseConversion(DefaultDepth(display, screen_no));
}

extern "C" void openWin(unsigned width, unsigned height, const char* title) {
    openWindow(Placement{0, 0, width, height, 1, Always}, title, nullptr);
}

static Bool isMapNotify(Display*, XEvent* e, XPointer w) {
    return e->type == MapNotify && e->xmap.window == *(Window*)w;
}

static void waitMapped(Window w) {
    XEvent mapped;
    XIfEvent(display, &mapped, isMapNotify, (XPointer)&w);
}

void openMonitorWin(const Monitor& monitor, const char* title) {
    openWindow(monitorPlacement(monitor), title, presentingHints);
    waitMapped(window);
    XSetInputFocus(display, window, RevertToParent, CurrentTime);
    shareSurface(designedSurface());
    keepDesigned();
    XFlush(display);
}

Window openMonitorWindow(const Monitor& monitor, const char* title) {
    Window w = createMapped(monitorPlacement(monitor), title, presentingHints);
    waitMapped(w);
    return w;
}

extern "C" int closeWin() {
    unshareSurface(designedSurface());
    keepDesigned();
    XDestroyWindow(display, window);
    XAutoRepeatOn(display);
    return XCloseDisplay(display);
}

extern "C" void update(int x0, int y0, int x1, int y1) {
    clipRect(designedSurface(), x0, y0, x1, y1);
    UpdateCell* cell = (UpdateCell*)malloc(sizeof(UpdateCell));
    *cell = {x0, y0, x1, y1, first_cell};
    first_cell = cell;
}

extern "C" int commit() {
    while (first_cell) {
        UpdateCell* cell = first_cell;
        exposeWin(cell->x0, cell->y0, cell->x1, cell->y1);
        first_cell = cell->next;
        free(cell);
    }
    return XFlush(display);
}

void exposeWin(int x0, int y0, int x1, int y1) { sendRect(designedSurface(), x0, y0, x1, y1); }

void resizeBuffer(int width, int height) {
    if (width == win_width && height == win_height) return;
    printf("[resize request %d*%d]\n", width, height);
    resizeSurface(designedSurface(), width, height);
    keepDesigned();
}
