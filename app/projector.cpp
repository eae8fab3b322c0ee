// The window's frame is the picture of the screen shown, placed in the middle, with black
// around it. Frames are composed row by row from the kept pictures straight into the frame
// buffer. Scrolls move the window's content on the server with XCopyArea and send only the band
// that enters, as the window's transitions do, but each frame moves as far as the clock says.
#include "app/projector.h"

#include <time.h>

#include <cstdio>
#include <cstring>

#include "app/pictures.h"
#include "app/view.h"
#include "display/win.h"
#include "display/winstd.h"

namespace {

const int KEPT_PICTURES = 3;
Pictures pictures(KEPT_PICTURES);

// The image's picture for the window's current size.
const Picture& pictureOf(const Image& image) { return pictures.get(image, win_width, win_height); }

Image* shown = nullptr;  // the screen the frame shows

struct Box {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};
Box number_box;  // where the number box was drawn last; empty when there is none
Box framed;      // the picture of the last frame sent whole, which has black all around it

Box placement(const Picture& p) {
    Rect r = placeIn(Rect{0, 0, win_width, win_height}, p.width, p.height);
    Box b;
    b.x0 = r.x;
    b.y0 = r.y;
    b.x1 = r.x + r.width;
    b.y1 = r.y + r.height;
    return b;
}

bool sameBox(const Box& a, const Box& b) { return a.x0 == b.x0 && a.y0 == b.y0 && a.x1 == b.x1 && a.y1 == b.y1; }

const Color black = {0, 0, 0, 0};

void fillColor(Color* out, int n, Color c) {
    for (int i = 0; i < n; i++) out[i] = c;
}

// Writes rows y0 .. y1-1 of the frame that shows the picture into out, win_width pixels a row.
void frameRows(const Picture& p, int y0, int y1, Color* out) {
    int left = (win_width - p.width) / 2, top = (win_height - p.height) / 2;
    for (int y = y0; y < y1; y++, out += win_width) {
        int py = y - top;
        if (py < 0 || py >= p.height) {
            fillColor(out, win_width, black);
            continue;
        }
        fillColor(out, left, black);
        memcpy(out + left, p.pixels.data + (size_t)py * p.width, (size_t)p.width * sizeof(Color));
        fillColor(out + left + p.width, win_width - left - p.width, black);
    }
}

double now() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

void sleepSeconds(double s) {
    timespec t = {(time_t)s, (long)((s - (time_t)s) * 1e9)};
    nanosleep(&t, nullptr);
}

// Rows of the scroll that are due at time t after its start.
int rowsDue(double t, int height) {
    if (t >= trans_time) return height;
    return (int)(t / trans_time * height);
}

}  // namespace

// The black around a picture is sent only when the window may show something else there.
void projectorDraw(Image& image) {
    const Picture& p = pictureOf(image);
    shown = &image;
    number_box = Box();
    Box at = placement(p);
    if (sameBox(at, framed)) {
        for (int y = 0; y < p.height; y++)
            memcpy(win_data + (size_t)(at.y0 + y) * win_width + at.x0, p.pixels.data + (size_t)y * p.width,
                   (size_t)p.width * sizeof(Color));
        update(at.x0, at.y0, at.x1, at.y1);
    } else {
        frameRows(p, 0, win_height, win_data);
        update(0, 0, win_width, win_height);
    }
    commit();
    framed = at;
}

int scrollIn(Image& image, bool forward) {
    const Picture& p = pictureOf(image);
    shown = &image;
    number_box = Box();
    int w = win_width, h = win_height;
    int most = (h + MIN_SCROLL_FRAMES - 1) / MIN_SCROLL_FRAMES;  // rows a frame may move at most
    GC gc = DefaultGC(display, screen_no);
    double start = now();
    int frames = 0;
    for (int done = 0; done < h;) {
        int step = rowsDue(now() - start, h) - done;
        if (step <= 0) {  // ahead of the clock: wait for the next row
            sleepSeconds(trans_time / h);
            continue;
        }
        if (step > most) step = most;
        if (forward) {
            XCopyArea(display, window, window, gc, 0, step, w, h - step, 0, 0);
            frameRows(p, done, done + step, win_data + (size_t)(h - step) * w);
            update(0, h - step, w, h);
        } else {
            XCopyArea(display, window, window, gc, 0, 0, w, h - step, 0, step);
            frameRows(p, h - done - step, h - done, win_data);
            update(0, 0, w, step);
        }
        commit();
        XSync(display, False);
        done += step;
        frames++;
    }
    frameRows(p, 0, h, win_data);  // for repaints after exposure
    framed = placement(p);
    return frames;
}

void projectorForward(Image& image) { scrollIn(image, true); }
void projectorBackward(Image& image) { scrollIn(image, false); }

void projectorFill(Color color) {
    number_box = framed = Box();
    fillColor(win_data, win_size, color);
    update(0, 0, win_width, win_height);
    commit();
}

void projectorNumber(const char* digits) {
    const int glyph_width = 15, glyph_height = 24, pad = 10, margin = 24, border = 2;
    const Color frame = {255, 255, 255, 0}, inside = {40, 40, 40, 0};
    Box old = number_box;
    framed = Box();
    if (shown && old.y1 > old.y0) frameRows(pictureOf(*shown), old.y0, old.y1, win_data + (size_t)old.y0 * win_width);
    number_box = Box();
    if (digits[0]) {
        char text[48];
        snprintf(text, sizeof text, "Slide %s", digits);
        int tw = (int)strlen(text) * glyph_width;
        Box b;
        b.x1 = win_width - margin;
        b.y1 = win_height - margin;
        b.x0 = b.x1 - tw - 2 * pad;
        b.y0 = b.y1 - glyph_height - 2 * pad;
        if (b.x0 < 0) b.x0 = 0;
        if (b.y0 < 0) b.y0 = 0;
        for (int y = b.y0; y < b.y1; y++)
            for (int x = b.x0; x < b.x1; x++) {
                bool edge = x < b.x0 + border || x >= b.x1 - border || y < b.y0 + border || y >= b.y1 - border;
                win_data[(size_t)y * win_width + x] = edge ? frame : inside;
            }
        putBigText(text, b.x0 + pad, b.y0 + pad, frame, 2, 2, false);
        number_box = b;
    }
    if (old.y1 > old.y0) update(old.x0, old.y0, old.x1, old.y1);
    if (number_box.y1 > number_box.y0) update(number_box.x0, number_box.y0, number_box.x1, number_box.y1);
    commit();
}

void projectorPrepare(Image& image) {
    if (!pictures.has(image, win_width, win_height)) pictureOf(image);
}
