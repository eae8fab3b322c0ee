// Full screen through the window manager's EWMH state _NET_WM_STATE_FULLSCREEN. Without a window
// manager the window already covers its monitor exactly.
#include "display/fullscreen.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include "display/win.h"

// The 32-bit items of a window property (Xlib hands them out as longs); none when it is absent.
struct PropertyItems {
    unsigned long* items = nullptr;
    unsigned long count = 0;

    PropertyItems(Window on, const char* name, Atom type) {
        Atom got_type;
        int format = 0;
        unsigned long left;
        unsigned char* data = nullptr;
        Atom property = XInternAtom(display, name, False);
        if (XGetWindowProperty(display, on, property, 0, 4096, False, type, &got_type, &format, &count, &left,
                               &data) != Success)
            count = 0;
        items = (unsigned long*)data;
        if (format != 32) count = 0;
    }
    ~PropertyItems() {
        if (items) XFree(items);
    }
    PropertyItems(const PropertyItems&) = delete;
    PropertyItems& operator=(const PropertyItems&) = delete;
};

// The window that a running EWMH window manager names on the root and on itself, or 0.
static Window supportingWm() {
    PropertyItems on_root(RootWindow(display, screen_no), "_NET_SUPPORTING_WM_CHECK", XA_WINDOW);
    if (on_root.count != 1) return 0;
    Window wm = on_root.items[0];
    PropertyItems on_wm(wm, "_NET_SUPPORTING_WM_CHECK", XA_WINDOW);
    return on_wm.count == 1 && on_wm.items[0] == wm ? wm : 0;
}

bool wmSupportsFullscreen() {
    if (!supportingWm()) return false;
    PropertyItems supported(RootWindow(display, screen_no), "_NET_SUPPORTED", XA_ATOM);
    Atom fullscreen = XInternAtom(display, "_NET_WM_STATE_FULLSCREEN", False);
    for (unsigned long i = 0; i < supported.count; i++)
        if (supported.items[i] == fullscreen) return true;
    return false;
}

void prepareFullscreen(Window w) {
    XSizeHints hints = {};
    hints.flags = USPosition | USSize;
    XSetWMNormalHints(display, w, &hints);
    if (!wmSupportsFullscreen()) return;
    Atom state = XInternAtom(display, "_NET_WM_STATE", False);
    Atom fullscreen = XInternAtom(display, "_NET_WM_STATE_FULLSCREEN", False);
    XChangeProperty(display, w, state, XA_ATOM, 32, PropModeReplace, (unsigned char*)&fullscreen, 1);
}
