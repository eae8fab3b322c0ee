// Drawing figures measured in a private X server of depth 24.
#pragma once
#include <string>

#include "show/image.h"
#include "support/vec.h"

struct DrawFigures {
    bool measured = false;
    std::string skipped;        // why nothing was measured
    double draw_ms = 0;         // drawSlide (copy, update, commit) per full screen, server synced
    double transition_ms = 0;   // one scrolling transition after the speed probe
    double wanted_ms = 0;       // trans_time
    int step = 0;               // trans_step the probe chose
};

// Opens a window the size of the screens on a fresh Xvfb and times drawing and transitions.
DrawFigures measureDrawing(vec<Image>& images);
