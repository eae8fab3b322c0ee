// Presenting figures: scaled drawing at 1920 x 1080 and 3840 x 2160 on Xvfb of depth 24, the
// clock-paced scroll on Xvfb and on Xorg's dummy driver, and the presenter's console's update
// after a move at 1366 x 768.
#pragma once
#include <string>

#include "show/image.h"
#include "support/vec.h"

struct ScrollFigure {
    bool measured = false;
    std::string skipped;
    double seconds = 0;  // mean duration of a whole scroll
    double frames = 0;   // mean frames drawn
};

// Milliseconds the console takes to show a move (drawn and sent, server synced).
struct ConsoleFigure {
    double step_ms = 0, step_worst_ms = 0;  // one screen forward, with the pictures made ahead while idle
    double jump_ms = 0, jump_worst_ms = 0;  // to a screen far away, nothing made ahead
};

struct PresentFigures {
    bool measured = false;
    std::string skipped;
    double draw_1080_ms = 0, redraw_1080_ms = 0;  // a screen scaled and drawn; a kept picture drawn
    double draw_2160_ms = 0, redraw_2160_ms = 0;
    ScrollFigure xvfb, xorg;
    ConsoleFigure console, console_notes;  // without notes, and with a notes picture for every screen
};

// `pages` are the screens' bitmaps, from which the notes pictures are made.
PresentFigures measurePresenting(vec<Image>& images, const vec<bool>& flags, const vec<Bitmap>& pages);
