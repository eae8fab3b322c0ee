// Asking the window manager for a full-screen window.
#pragma once
#include <X11/Xlib.h>

// Before the window is mapped: keeps it where it was placed and, when a window manager that
// knows the full-screen state runs, asks for that state on the monitor the window is on.
void prepareFullscreen(Window w);

// Whether a running window manager supports the EWMH full-screen state.
bool wmSupportsFullscreen();
