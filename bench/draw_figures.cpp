#include "draw_figures.h"

#include <time.h>

#include <algorithm>

#include "app/view.h"
#include "display/win.h"
#include "xserver.h"

static double seconds() {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

// Times fn on the server's side too: the clock stops once the server has done everything.
template <class F>
static double syncedSeconds(F fn) {
    double t0 = seconds();
    fn();
    XSync(display, False);
    return seconds() - t0;
}

DrawFigures measureDrawing(vec<Image>& images) {
    DrawFigures f;
    if (images.size < 2) {
        f.skipped = "fewer than two screens";
        return f;
    }
    XServer x(24);
    if (!x.ok()) {
        f.skipped = "no private X server: " + x.error();
        return f;
    }
    Display* look = openTestWindow(x, images[0].width, images[0].height);
    if (!look) {
        f.skipped = "the window did not open on Xvfb";
        return f;
    }
    double best = 1e9;
    for (int round = 0; round < 3; round++) {
        double total = 0;
        for (int i = 0; i < images.size; i++) total += syncedSeconds([&] { drawSlide(images[i]); });
        best = std::min(best, total / images.size);
    }
    f.draw_ms = best * 1e3;

    // The first forward transition probes the speed and sets the step; time the ones after it.
    trans_probed = false;
    nextSlide(images[1]);
    XSync(display, False);
    double transitions = 0;
    const int runs = 4;
    for (int k = 0; k < runs; k++)
        transitions += syncedSeconds([&] { nextSlide(images[k % 2]); });
    f.transition_ms = transitions / runs * 1e3;
    f.wanted_ms = trans_time * 1e3;
    f.step = trans_step;
    f.measured = true;
    closeTestWindow(look);
    return f;
}
