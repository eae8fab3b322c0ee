// What the console's lines of text say: where the talk stands and its clocks.
#pragma once
#include <ctime>

#include "codec/bitmap.h"
#include "support/vec.h"

// One line of text.
struct Line {
    char text[32] = "";
};

bool operator==(const Line& a, const Line& b);
inline bool operator!=(const Line& a, const Line& b) { return !(a == b); }

// Where a screen stands, counted from 1: its slide of all slides, its step of its slide's steps.
struct Position {
    int slide, slides, step, steps;
};

// `flags` are the screens' continuation flags.
Position positionOf(const vec<bool>& flags, int screen);

Line slideLine(const Position& p);  // "slide 3 / 12"
Line stepLine(const Position& p);   // "step 2 / 4" inside an animated slide, else empty

// Whole seconds as "m:ss", or "h:mm:ss" from an hour on.
Line durationLine(long long seconds);
// Wall-clock time as "hh:mm", local time.
Line clockLine(time_t t);

// The time left of a talk of `duration` seconds after `elapsed` seconds: "m:ss left", counted in
// whole seconds rounded up, or "m:ss over" once the time is up.
Line leftLine(double elapsed, double duration);

// The colour of the time left: white, amber in the last LAST_MINUTES minutes, red when over.
const int LAST_MINUTES = 5;
Color leftColour(double elapsed, double duration);

const Color text_white = {255, 255, 255, 0};
const Color text_amber = {255, 176, 0, 0};
const Color text_red = {255, 64, 64, 0};
