// grab_window: writes the picture of an X window (found by its title; the root window when no
// title is given) as a PNG file. Used to take the README's screenshot under Xvfb.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <cstdio>
#include <cstring>

#include "png/png.h"

static Window findByTitle(Display* dpy, Window at, const char* title) {
    char* name = nullptr;
    if (XFetchName(dpy, at, &name) && name) {
        bool match = strcmp(name, title) == 0;
        XFree(name);
        if (match) return at;
    }
    Window root, parent, *children = nullptr;
    unsigned n = 0;
    Window found = 0;
    if (XQueryTree(dpy, at, &root, &parent, &children, &n)) {
        for (unsigned i = 0; i < n && !found; i++) found = findByTitle(dpy, children[i], title);
        if (children) XFree(children);
    }
    return found;
}

// The 8-bit value of a channel given its mask in the visual.
static unsigned char channel(unsigned long pixel, unsigned long mask) {
    if (!mask) return 0;
    int shift = 0;
    while (!(mask >> shift & 1)) shift++;
    unsigned long max = mask >> shift;
    return (unsigned char)(((pixel & mask) >> shift) * 255 / max);
}

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "ERROR! Usage: grab_window OUT.png [TITLE]\n");
        return 1;
    }
    Display* dpy = XOpenDisplay(nullptr);
    if (!dpy) {
        fprintf(stderr, "ERROR! Could not open the display.\n");
        return 1;
    }
    Window w = argc == 3 ? findByTitle(dpy, DefaultRootWindow(dpy), argv[2]) : DefaultRootWindow(dpy);
    XWindowAttributes attr;
    if (!w || !XGetWindowAttributes(dpy, w, &attr)) {
        fprintf(stderr, "ERROR! No window titled: %s\n", argc == 3 ? argv[2] : "(root)");
        return 1;
    }
    XImage* image = XGetImage(dpy, w, 0, 0, attr.width, attr.height, AllPlanes, ZPixmap);
    if (!image) {
        fprintf(stderr, "ERROR! Could not read the window's pixels.\n");
        return 1;
    }
    Bitmap shot;
    shot.data = allocPixels(attr.width, attr.height);
    shot.width = attr.width;
    shot.height = attr.height;
    for (int y = 0; y < attr.height; y++)
        for (int x = 0; x < attr.width; x++) {
            unsigned long p = XGetPixel(image, x, y);
            shot.at(x, y) = Color{channel(p, image->red_mask), channel(p, image->green_mask),
                                  channel(p, image->blue_mask), 0};
        }
    XDestroyImage(image);
    XCloseDisplay(dpy);
    if (!writePng(argv[1], shot)) {
        fprintf(stderr, "ERROR! Could not write: %s\n", argv[1]);
        return 1;
    }
    return 0;
}
