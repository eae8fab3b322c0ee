// The monitors of the X screen: RandR 1.5 monitors as `xrandr --listmonitors` numbers and names
// them, else Xinerama's heads, else the whole screen.
#pragma once
#include <X11/Xlib.h>

#include "support/vec.h"

struct Monitor {
    char name[64];  // RandR's monitor name; empty for Xinerama heads and the whole screen
    int x, y, width, height;
    bool primary;
};

// A monitor without a name.
Monitor monitorAt(int x, int y, int width, int height, bool primary);

// Lists the monitors of the display's default screen; there is always at least one.
void listMonitors(Display* d, vec<Monitor>& monitors);

// The monitor a show is presented on when none is named: the first that is not the primary one
// (the projector beside a laptop), or the only one.
int defaultMonitor(const vec<Monitor>& monitors);

// The monitor the presenter's console goes on when none is named: the primary one when the show
// is on another, else the first one that is not the show's; -1 when there is no other.
int defaultConsoleMonitor(const vec<Monitor>& monitors, int show);

// The monitor named by its index (from 0) or its name, or -1.
int findMonitor(const vec<Monitor>& monitors, int index);
int findMonitor(const vec<Monitor>& monitors, const char* name);

// "0 laptop 1366x768+0+0 primary, 1 projector 1920x1080+1366+0": for messages.
void describeMonitors(const vec<Monitor>& monitors, char* out, size_t size);
// One of them: "1 projector 1920x1080+1366+0".
void describeMonitor(const vec<Monitor>& monitors, int i, char* out, size_t size);
