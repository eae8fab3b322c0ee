// The window, its two buffers and the conversion of the frame buffer to the visual's pixels.
#include "display/win.h"

#include "display/fullscreen.h"
#include "display/monitors.h"
#include "display/shm.h"

#include <X11/Xutil.h>

#include <climits>
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

static void failMemory() { fail("Error: Not enough memory for screen buffer."); }

// Bytes of one buffer (4 bytes a pixel); a size whose pixel count does not fit an int
// cannot be held and counts as lack of memory.
static size_t bufferBytes(long long width, long long height) {
    if (width < 0 || height < 0 || width * height > INT_MAX / 4) failMemory();
    return (size_t)(width * height) * 4;
}

static void setSize(int width, int height) {
    win_width = width;
    win_height = height;
    win_size = width * height;
}

// Orders the corners and clips the rectangle to the frame buffer; an outside rectangle
// becomes an empty one on the buffer's edge.
static void normalise(int& x0, int& y0, int& x1, int& y1) {
    auto order = [](int& a, int& b) {
        if (a > b) {
            int t = a;
            a = b;
            b = t;
        }
    };
    auto clip = [](int& v, int limit) { v = v < 0 ? 0 : v > limit ? limit : v; };
    order(x0, x1);
    order(y0, y1);
    clip(x0, win_width);
    clip(x1, win_width);
    clip(y0, win_height);
    clip(y1, win_height);
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
static void presentingHints() {
    XClassHint hint = {(char*)"view_slides", (char*)"View_slides"};
    XSetClassHint(display, window, &hint);
    wm_delete_window = XInternAtom(display, "WM_DELETE_WINDOW", False);
    XSetWMProtocols(display, window, &wm_delete_window, 1);
    prepareFullscreen();
}

Display* connectDisplay() {
    Display* d = XOpenDisplay(nullptr);
    if (!d) fail("Error: Could not open display.");
    return d;
}

// Opens the display and a window at the placement, and chooses the pixel conversion;
// before_map (or null) tells the window manager what it must know before the window appears.
static void openWindow(const Placement& at, const char* title, void (*before_map)()) {
    display = connectDisplay();
    screen_no = DefaultScreen(display);
    Visual* visual = DefaultVisual(display, screen_no);
    if (visual->c_class != TrueColor) fail("Error: TrueColor not supported.");

    size_t bytes = bufferBytes(at.width, at.height);
    setSize((int)at.width, (int)at.height);
    win_data = (Color*)malloc(bytes);
    raw_data = malloc(bytes);
    if (!win_data || !raw_data) failMemory();

    window = createWindow(at);
    if (!window) fail("Could not open window.");
    if (title) XStoreName(display, window, title);
    if (before_map) before_map();
    XMapWindow(display, window);
    XFlush(display);

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

static Bool isMapNotify(Display*, XEvent* e, XPointer) { return e->type == MapNotify && e->xmap.window == window; }

void openMonitorWin(const Monitor& monitor, const char* title) {
    Placement at = {monitor.x, monitor.y, (unsigned)monitor.width, (unsigned)monitor.height, 0, NotUseful};
    openWindow(at, title, presentingHints);
    XEvent mapped;
    XIfEvent(display, &mapped, isMapNotify, nullptr);
    XSetInputFocus(display, window, RevertToParent, CurrentTime);
    shareDisplayBuffer();
    XFlush(display);
}

extern "C" int closeWin() {
    unshareDisplayBuffer();
    XDestroyWindow(display, window);
    XAutoRepeatOn(display);
    return XCloseDisplay(display);
}

extern "C" void update(int x0, int y0, int x1, int y1) {
    normalise(x0, y0, x1, y1);
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

static void packRow(const Color* src, uint16_t* dst, int n) {
    for (int i = 0; i < n; i++)
        dst[i] = (uint16_t)((src[i].r >> R_down) << R_up | (src[i].g >> G_down) << G_up | (src[i].b >> B_down) << B_up);
}

static void copyRow(const Color* src, Color* dst, int n) { memcpy(dst, src, (size_t)n * sizeof(Color)); }

static void swapRow(const Color* src, Color* dst, int n) {
    for (int i = 0; i < n; i++) dst[i] = {src[i].b, src[i].g, src[i].r, src[i].transparency};
}

// Converts the rectangle of win_data into the same pixels of raw_data.
static void convert(int x0, int y0, int x1, int y1) {
    for (int y = y0; y < y1; y++) {
        size_t at = (size_t)y * win_width + x0;
        const Color* src = win_data + at;
        if (RGB_conv == -1)
            packRow(src, (uint16_t*)raw_data + at, x1 - x0);
        else if (RGB_conv == 1)
            swapRow(src, (Color*)raw_data + at, x1 - x0);
        else
            copyRow(src, (Color*)raw_data + at, x1 - x0);
    }
}

void exposeWin(int x0, int y0, int x1, int y1) {
    normalise(x0, y0, x1, y1);
    if (x0 == x1 || y0 == y1) return;
    if (!frameBufferShared()) convert(x0, y0, x1, y1);
    if (putShared(x0, y0, x1, y1)) return;
    // The image starts at the rectangle's corner with the buffer's full size and stride, so
    // the rectangle is the image's top-left part; only its rows are ever read.
    bool packed = RGB_conv == -1;
    size_t corner = (size_t)y0 * win_width + x0;
    char* start = packed ? (char*)((uint16_t*)raw_data + corner) : (char*)((Color*)raw_data + corner);
    XImage* image = XCreateImage(display, DefaultVisual(display, screen_no), DefaultDepth(display, screen_no),
                                 ZPixmap, 0, start, win_width, win_height, packed ? 16 : 32, 0);
    if (!image) return;
    XPutImage(display, window, DefaultGC(display, screen_no), image, 0, 0, x0, y0, x1 - x0, y1 - y0);
    free(image);  // not XDestroyImage: raw_data stays ours
}

// Allocates a new buffer, then frees the old one.
static void* replaceBuffer(void* old, size_t bytes) {
    void* fresh = malloc(bytes);
    if (!fresh) failMemory();
    free(old);
    return fresh;
}

void resizeBuffer(int width, int height) {
    if (width == win_width && height == win_height) return;
    printf("[resize request %d*%d]\n", width, height);
    size_t bytes = bufferBytes(width, height);
    unshareDisplayBuffer();  // a presenting window's shared buffer has the old size
    win_data = (Color*)replaceBuffer(win_data, bytes);
    raw_data = replaceBuffer(raw_data, bytes);
    setSize(width, height);
}
