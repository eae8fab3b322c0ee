// An invisible cursor for the window: one pixel whose mask is empty.
#include "display/pointer.h"

#include "display/win.h"

static Cursor blankCursor() {
    static Cursor blank = 0;
    static Display* made_on = nullptr;
    if (blank && made_on == display) return blank;
    char empty = 0;
    Pixmap pixel = XCreateBitmapFromData(display, window, &empty, 1, 1);
    XColor black = {};
    blank = XCreatePixmapCursor(display, pixel, pixel, &black, &black, 0, 0);
    XFreePixmap(display, pixel);
    made_on = display;
    return blank;
}

void hidePointer(bool hidden) {
    if (hidden)
        XDefineCursor(display, window, blankCursor());
    else
        XUndefineCursor(display, window);
    XFlush(display);
}
