// The presenter's console: a second window, over a whole monitor, on the designed window's
// display connection, with a frame buffer of its own. Its events come through the one event
// queue: keys and buttons as the designed window's, exposures repaint it from its buffer, and a
// new size is reported as EVENT_CONSOLE_RESIZE once its buffers have that size.
#pragma once
#include "display/surface.h"

struct Monitor;

// The console's surface; its window is 0 while no console is open.
extern Surface console_win;

// Opens the console window over the monitor (after the designed window), with its buffers
// shared with the server when it can be.
void openConsoleWin(const Monitor& monitor, const char* title);
void closeConsoleWin();

// Whether w is the console window.
bool isConsoleWin(Window w);

// Gives the console's buffers a new size (contents undefined).
void resizeConsoleWin(int width, int height);
