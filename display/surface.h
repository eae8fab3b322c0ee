// A window's pixels on their way to the server: the frame buffer that callers draw into (Color
// pixels, row-major, stride `width`, no padding), the display buffer holding the same pixels in
// the visual's layout, and the memory shared with the server when there is any (shm.h). The
// designed window's surface is made of its globals (win.h); a second window has its own.
#pragma once
#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>

#include "codec/bitmap.h"

// A segment shared with the server (MIT-SHM) and the server's view of it.
struct SharedImage {
    XShmSegmentInfo segment = {};
    XImage* image = nullptr;
};

struct Surface {
    Window window = 0;
    int width = 0, height = 0;
    Color* data = nullptr;  // the frame buffer
    void* raw = nullptr;    // the display buffer: 4 bytes a pixel allocated, 2 used at depth 15 and 16
    SharedImage shared;
};

// Orders the corners and clips the rectangle to the surface; an outside rectangle becomes an
// empty one on its edge.
void clipRect(const Surface& s, int& x0, int& y0, int& x1, int& y1);

// Converts the rectangle of the frame buffer to the visual's pixels and sends it to the window
// at once (corners in any order, clipped).
void sendRect(const Surface& s, int x0, int y0, int x1, int y1);

// Allocates both buffers for width x height pixels (contents undefined); running out of memory
// is the display's memory error and ends the process.
void allocSurface(Surface& s, int width, int height);

// Gives the surface new buffers of another size (contents undefined), taking them out of shared
// memory first; the old buffers are freed once the new ones are there.
void resizeSurface(Surface& s, int width, int height);
