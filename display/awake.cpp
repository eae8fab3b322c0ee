// The X screen saver extension's suspension, which also holds off display power saving. The
// server ends it by itself when the connection that asked for it closes.
#include "display/awake.h"

#include <X11/extensions/scrnsaver.h>

#include "display/win.h"

void suspendScreenSaver() {
    int event_base, error_base;
    if (!XScreenSaverQueryExtension(display, &event_base, &error_base)) return;
    XScreenSaverSuspend(display, True);
    XFlush(display);
}
