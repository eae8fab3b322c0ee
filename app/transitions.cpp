// Scrolling transitions: the window's picture moves on the server with XCopyArea and only the
// newly revealed band is sent from the frame buffer. The first forward transition measures how
// long a step takes and sets the step so that a whole transition lasts about trans_time.
#include <sys/time.h>

#include <cstdio>

#include "show/unpack.h"
#include "app/view.h"
#include "display/win.h"

int trans_step = 3;
double trans_time = 0.3;
bool trans_probed = false;

static const int PROBE_STEPS = 100;

static double now() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    return tv.tv_sec + tv.tv_usec / 1000000.0;
}

// A transition needs the image to fill the window exactly; otherwise it is drawn at once.
static bool canScroll(const Image& image) {
    return trans_step != 0 && image.width == win_width && image.height == win_height &&
           imagePixelCount(image) == win_size;
}

// Sets trans_step from the time of the first PROBE_STEPS steps.
static void probeSpeed(double t0) {
    double step_time = (now() - t0) / (float)PROBE_STEPS;
    if (debug) printf("win_height * T: %g\n", win_height * step_time);
    trans_step = (int)(step_time * win_height / trans_time + (float)0.5);
    if (trans_step < 1) trans_step = 1;
    if (trans_step >= win_height / 10) trans_step = win_height / 10;
    if (debug) printf("trans_step = %d\n", trans_step);
    trans_probed = true;
}

void nextSlide(Image& image) {
    if (!canScroll(image)) return drawSlide(image);
    int step = trans_step;
    GC gc = DefaultGC(display, screen_no);
    double t0 = now();
    for (int y = 0; y < win_height;) {
        int end = y + step;
        if (end > win_height) step = win_height - y, end = win_height;
        XCopyArea(display, window, window, gc, 0, step, win_width, win_height - step, 0, 0);
        XFlush(display);
        copyPixels(image, y * win_width, step * win_width, win_data + win_size - step * win_width);
        update(0, win_height - step, win_width, win_height);
        commit();
        y = end;
        if (!trans_probed && y == trans_step * PROBE_STEPS) {
            probeSpeed(t0);
            step = trans_step;
        }
    }
    copyPixels(image, 0, win_size, win_data);
}

void prevSlide(Image& image) {
    if (!canScroll(image)) return drawSlide(image);
    int step = trans_step;
    GC gc = DefaultGC(display, screen_no);
    for (int y = 0; y < win_height;) {
        int end = y + step;
        if (end > win_height) step = win_height - y, end = win_height;
        XCopyArea(display, window, window, gc, 0, 0, win_width, win_height - step, 0, step);
        copyPixels(image, (win_height - end) * win_width, step * win_width, win_data);
        update(0, 0, win_width, step);
        commit();
        y = end;
    }
    copyPixels(image, 0, win_size, win_data);
}
