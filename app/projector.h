// Drawing screens on a presenting window: each screen is scaled to fit the window with its
// aspect ratio kept and centred on black bands. Scaled pictures are made when first shown and a
// few are kept.
#pragma once
#include "show/image.h"

// Shows the image at once.
void projectorDraw(Image& image);

// Scroll the image in from the bottom (forward) or from the top (backward), paced by the clock
// so that a whole scroll lasts trans_time, in at least MIN_SCROLL_FRAMES frames. scrollIn
// returns the number of frames drawn.
const int MIN_SCROLL_FRAMES = 10;
int scrollIn(Image& image, bool forward);
void projectorForward(Image& image);
void projectorBackward(Image& image);

// Covers the whole window with one colour (a blank screen); projectorDraw shows the screen again.
void projectorFill(Color color);

// Shows the digits of a slide number being typed in a box in the bottom right corner over the
// screen last drawn; an empty text removes the box.
void projectorNumber(const char* digits);

// Makes the image's picture for the window's size ahead of its showing, if it is not kept yet.
void projectorPrepare(Image& image);
