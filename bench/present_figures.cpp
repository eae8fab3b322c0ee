#include "present_figures.h"

#include <time.h>

#include <algorithm>
#include <vector>

#include "app/projector.h"
#include "app/view.h"
#include "display/monitors.h"
#include "display/win.h"
#include "xserver.h"

static double seconds() {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

static const int DRAWN = 8;  // more screens than pictures are kept, so each one is scaled anew

// Mean time of drawing each of the first DRAWN screens, scaled anew (fresh) or from its kept
// picture; every screen's best of five rounds, so that other work on the machine counts less.
static double drawMs(vec<Image>& images, bool fresh) {
    int n = std::min(images.size, DRAWN);
    std::vector<double> best(n, 1e9);
    for (int round = 0; round < 5; round++)
        for (int i = 0; i < n; i++) {
            if (!fresh) projectorDraw(images[i]);
            double t0 = seconds();
            projectorDraw(images[i]);
            XSync(display, False);
            best[i] = std::min(best[i], seconds() - t0);
        }
    double total = 0;
    for (double b : best) total += b;
    return total / n * 1e3;
}

// A presenting window covering the top left width x height of the server's screen.
static void openPresentingWindow(const XServer& x, int width, int height) {
    x.useInThisProcess();
    Monitor m = {};
    m.width = width;
    m.height = height;
    openMonitorWin(m, "bench");
}

static void drawAt(const XServer& x, vec<Image>& images, int width, int height, double& fresh, double& kept) {
    openPresentingWindow(x, width, height);
    fresh = drawMs(images, true);
    kept = drawMs(images, false);
    closeWin();
}

static ScrollFigure scrollOn(const XServer& x, vec<Image>& images) {
    ScrollFigure f;
    if (!x.ok()) {
        f.skipped = x.error();
        return f;
    }
    openPresentingWindow(x, 1920, 1080);
    const int runs = 6;
    double total = 0, frames = 0;
    projectorDraw(images[0]);
    for (int k = 0; k < runs; k++) {
        Image& next = images[(k + 1) % 2];
        projectorPrepare(next);  // as the viewer does while waiting for the key
        double t0 = seconds();
        frames += scrollIn(next, k % 2 == 0);
        total += seconds() - t0;
    }
    closeWin();
    f.seconds = total / runs;
    f.frames = frames / runs;
    f.measured = true;
    return f;
}

PresentFigures measurePresenting(vec<Image>& images) {
    PresentFigures f;
    if (images.size < 2) {
        f.skipped = "fewer than two screens";
        return f;
    }
    {
        XServer x(24, 3840, 2160);
        if (!x.ok()) {
            f.skipped = "no private X server: " + x.error();
            return f;
        }
        drawAt(x, images, 1920, 1080, f.draw_1080_ms, f.redraw_1080_ms);
        drawAt(x, images, 3840, 2160, f.draw_2160_ms, f.redraw_2160_ms);
        f.xvfb = scrollOn(x, images);
    }
    XServer xorg(DummyXorg{24, 1920, 1080});
    f.xorg = scrollOn(xorg, images);
    f.measured = true;
    return f;
}
