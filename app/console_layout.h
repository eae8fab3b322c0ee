// Where the presenter's console puts things on its monitor: the current screen large on the
// left, the next screen (and the notes, when the show has them) on the right, and two lines of
// text along the bottom: the slide and the clocks above, the step and the time left below.
#pragma once
#include "app/scale.h"

// A line of text: at most `chars` glyphs of the big font at `scale`, from the area's left edge.
struct TextField {
    Rect area;  // the glyph cells of the longest text
    int chars;
    int scale;
};

struct ConsoleLayout {
    int scale;                   // of all text
    Rect current, next, notes;   // boxes the pictures are fitted into; notes is empty without notes
    TextField slide, step;       // "slide 3 / 12", "step 2 / 4"
    TextField elapsed, clock;    // "12:34", "14:05"
    TextField left;              // "5:00 left"
};

// The layout for a console of width x height; `notes` when the show carries notes.
ConsoleLayout consoleLayout(int width, int height, bool notes);
