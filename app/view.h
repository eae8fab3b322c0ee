// The interactive slide show and its scrolling transitions.
#pragma once
#include "app/console.h"
#include "show/image.h"
#include "support/vec.h"

struct Monitor;

extern int trans_step;      // rows moved per transition step; 0 switches transitions off
extern double trans_time;   // wanted duration of a whole transition, in seconds
extern bool trans_probed;   // the step has been measured

struct ViewOptions {
    int first_screen = 0;              // the screen shown first
    const Monitor* monitor = nullptr;  // present on this monitor; null: the window of the screens' size
    ConsoleOptions console;            // the presenter's console while presenting, when it has a monitor
};

// Opens the window, shows the screens until the user quits, closes the window.
void view(vec<Image>& images, vec<bool>& flags);
void view(vec<Image>& images, vec<bool>& flags, const ViewOptions& options);

// The first screen of slide number `slide` (counted from 1, as -png-slides numbers them); a
// number past the last slide gives the last slide's first screen.
int firstScreenOfSlide(const vec<bool>& flags, int slide);

// Shows the image at once. A window of another size shows the image clipped, with black beyond it.
void drawSlide(Image& image);

// Scroll the image in from the bottom (forward) or from the top (backward).
void nextSlide(Image& image);
void prevSlide(Image& image);
