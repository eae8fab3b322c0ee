// Conversion of frame-buffer rectangles to the visual's pixels and their way to the server, and
// the buffers of a surface.
#include "display/surface.h"

#include <X11/Xutil.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "display/shm.h"
#include "display/win.h"

static void failMemory() {
    puts("Error: Not enough memory for screen buffer.");
    exit(-1);
}

// Bytes of one buffer (4 bytes a pixel); a size whose pixel count does not fit an int
// cannot be held and counts as lack of memory.
static size_t bufferBytes(long long width, long long height) {
    if (width < 0 || height < 0 || width * height > INT_MAX / 4) failMemory();
    return (size_t)(width * height) * 4;
}

void clipRect(const Surface& s, int& x0, int& y0, int& x1, int& y1) {
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
    clip(x0, s.width);
    clip(x1, s.width);
    clip(y0, s.height);
    clip(y1, s.height);
}

static void packRow(const Color* src, uint16_t* dst, int n) {
    for (int i = 0; i < n; i++)
        dst[i] = (uint16_t)((src[i].r >> R_down) << R_up | (src[i].g >> G_down) << G_up | (src[i].b >> B_down) << B_up);
}

static void copyRow(const Color* src, Color* dst, int n) { memcpy(dst, src, (size_t)n * sizeof(Color)); }

static void swapRow(const Color* src, Color* dst, int n) {
    for (int i = 0; i < n; i++) dst[i] = {src[i].b, src[i].g, src[i].r, src[i].transparency};
}

// Converts the rectangle of the frame buffer into the same pixels of the display buffer.
static void convert(const Surface& s, int x0, int y0, int x1, int y1) {
    for (int y = y0; y < y1; y++) {
        size_t at = (size_t)y * s.width + x0;
        const Color* src = s.data + at;
        if (RGB_conv == -1)
            packRow(src, (uint16_t*)s.raw + at, x1 - x0);
        else if (RGB_conv == 1)
            swapRow(src, (Color*)s.raw + at, x1 - x0);
        else
            copyRow(src, (Color*)s.raw + at, x1 - x0);
    }
}

void sendRect(const Surface& s, int x0, int y0, int x1, int y1) {
    clipRect(s, x0, y0, x1, y1);
    if (x0 == x1 || y0 == y1) return;
    if (!serverReadsFrame(s)) convert(s, x0, y0, x1, y1);
    if (putShared(s, x0, y0, x1, y1)) return;
    // The image starts at the rectangle's corner with the buffer's full size and stride, so
    // the rectangle is the image's top-left part; only its rows are ever read.
    bool packed = RGB_conv == -1;
    size_t corner = (size_t)y0 * s.width + x0;
    char* start = packed ? (char*)((uint16_t*)s.raw + corner) : (char*)((Color*)s.raw + corner);
    XImage* image = XCreateImage(display, DefaultVisual(display, screen_no), DefaultDepth(display, screen_no),
                                 ZPixmap, 0, start, s.width, s.height, packed ? 16 : 32, 0);
    if (!image) return;
    XPutImage(display, s.window, DefaultGC(display, screen_no), image, 0, 0, x0, y0, x1 - x0, y1 - y0);
    free(image);  // not XDestroyImage: the display buffer stays ours
}

void allocSurface(Surface& s, int width, int height) {
    size_t bytes = bufferBytes(width, height);
    s.width = width;
    s.height = height;
    s.data = (Color*)malloc(bytes);
    s.raw = malloc(bytes);
    if (!s.data || !s.raw) failMemory();
}

// Allocates a new buffer, then frees the old one.
static void* replaceBuffer(void* old, size_t bytes) {
    void* fresh = malloc(bytes);
    if (!fresh) failMemory();
    free(old);
    return fresh;
}

void resizeSurface(Surface& s, int width, int height) {
    size_t bytes = bufferBytes(width, height);
    unshareSurface(s);  // the shared buffer has the old size
    s.data = (Color*)replaceBuffer(s.data, bytes);
    s.raw = replaceBuffer(s.raw, bytes);
    s.width = width;
    s.height = height;
}
