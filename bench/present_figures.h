// Presenting figures: scaled drawing at 1920 x 1080 and 3840 x 2160 on Xvfb of depth 24, and
// the clock-paced scroll on Xvfb and on Xorg's dummy driver.
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

struct PresentFigures {
    bool measured = false;
    std::string skipped;
    double draw_1080_ms = 0, redraw_1080_ms = 0;  // a screen scaled and drawn; a kept picture drawn
    double draw_2160_ms = 0, redraw_2160_ms = 0;
    ScrollFigure xvfb, xorg;
};

PresentFigures measurePresenting(vec<Image>& images);
