// Shared memory for the pixels sent to the server (MIT-SHM): the server reads rectangles
// straight from our memory instead of receiving them through the connection. Used for
// presenting windows, where whole frames of a large monitor are sent. The shared buffer is the
// surface's frame buffer itself when the visual takes its pixels as they are (no conversion),
// else its display buffer.
#pragma once
#include "display/surface.h"

// Puts the buffer into a segment shared with the server, for the surface's current size. False
// (and nothing changed) when the server cannot share memory with this process.
bool shareSurface(Surface& s);

// Gives the buffer back as ordinary memory, contents kept; nothing when it is not shared.
void unshareSurface(Surface& s);

// Frees both buffers of the surface, the shared one given back to the system, and empties it.
void freeSurface(Surface& s);

// Whether the server reads the frame buffer itself, so that nothing is to be converted.
bool serverReadsFrame(const Surface& s);

// Sends the rectangle of the shared buffer to the window and waits until the server has read
// it, so that the buffer may be written again. False when nothing is shared.
bool putShared(const Surface& s, int x0, int y0, int x1, int y1);
