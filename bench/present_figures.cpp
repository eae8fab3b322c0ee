#include "present_figures.h"

#include <time.h>

#include <algorithm>
#include <vector>

#include "app/console.h"
#include "app/projector.h"
#include "app/view.h"
#include "codec/codec.h"
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
    openMonitorWin(monitorAt(0, 0, width, height, false), "bench");
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

static const int CONSOLE_MOVES = 40;  // screens moved through, each with notes

// The console's update for the view, timed until the server has it.
static double followMs(Console& console, const AudienceView& view) {
    double t0 = seconds();
    console.follow(view);
    XSync(display, False);
    return (seconds() - t0) * 1e3;
}

// A console of 1366 x 768 beside the projector window: moves one screen forward at a time,
// with the pictures made ahead between moves as the viewer does while idle, and jumps across
// the show with nothing made ahead.
static ConsoleFigure consoleMoves(vec<Image>& images, const vec<bool>& flags, const ShowNotes* notes) {
    ConsoleFigure f;
    Monitor laptop = monitorAt(1920, 0, 1366, 768, true);
    ConsoleOptions options;
    options.monitor = &laptop;
    options.notes = notes;
    options.duration = 1800;
    AudienceView view;
    Console console(images, flags, options, view);
    int n = std::min(images.size, CONSOLE_MOVES);
    for (int k = 1; k < n; k++) {
        while (console.prepare()) {
        }
        view.screen = k;
        double ms = followMs(console, view);
        f.step_ms += ms / (n - 1);
        f.step_worst_ms = std::max(f.step_worst_ms, ms);
    }
    for (int k = 0; k < n; k++) {
        view.screen = k % 2 ? n / 2 + k / 2 : k / 2;  // half the screens away each time
        double ms = followMs(console, view);
        f.jump_ms += ms / n;
        f.jump_worst_ms = std::max(f.jump_worst_ms, ms);
    }
    return f;
}

// Notes for the first CONSOLE_MOVES screens: each screen's own picture, coded whole.
static void screensAsNotes(const vec<Bitmap>& pages, ShowNotes& notes) {
    for (int i = 0; i < pages.size; i++) {
        notes.of_screen.push(i < CONSOLE_MOVES ? i : -1);
        if (i < CONSOLE_MOVES) compress(const_cast<Bitmap&>(pages[i]), notes.pictures.push(), false);
    }
}

static void consoleAt(const XServer& x, vec<Image>& images, const vec<bool>& flags, const vec<Bitmap>& pages,
                      PresentFigures& f) {
    ShowNotes notes;
    screensAsNotes(pages, notes);
    openPresentingWindow(x, 1920, 1080);
    projectorDraw(images[0]);
    f.console = consoleMoves(images, flags, nullptr);
    f.console_notes = consoleMoves(images, flags, &notes);
    closeWin();
}

PresentFigures measurePresenting(vec<Image>& images, const vec<bool>& flags, const vec<Bitmap>& pages) {
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
        consoleAt(x, images, flags, pages, f);
    }
    XServer xorg(DummyXorg{24, 1920, 1080});
    f.xorg = scrollOn(xorg, images);
    f.measured = true;
    return f;
}
