// The interactive slide show and its scrolling transitions.
#pragma once
#include "show/image.h"
#include "support/vec.h"

extern int trans_step;      // rows moved per transition step; 0 switches transitions off
extern double trans_time;   // wanted duration of a whole transition, in seconds
extern bool trans_probed;   // the step has been measured

// Opens the window, shows the screens until the user quits, closes the window.
void view(vec<Image>& images, vec<bool>& flags);

// Shows the image at once. A window of another size shows the image clipped, with black beyond it.
void drawSlide(Image& image);

// Scroll the image in from the bottom (forward) or from the top (backward).
void nextSlide(Image& image);
void prevSlide(Image& image);
