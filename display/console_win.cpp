#include "display/console_win.h"

#include "display/monitors.h"
#include "display/shm.h"
#include "display/win.h"

Surface console_win;

void openConsoleWin(const Monitor& monitor, const char* title) {
    allocSurface(console_win, monitor.width, monitor.height);
    console_win.window = openMonitorWindow(monitor, title);
    shareSurface(console_win);
}

void closeConsoleWin() {
    if (!console_win.window) return;
    XDestroyWindow(display, console_win.window);
    freeSurface(console_win);
}

bool isConsoleWin(Window w) { return w && w == console_win.window; }

void resizeConsoleWin(int width, int height) {
    resizeSurface(console_win, width, height);
    shareSurface(console_win);
}
