// Shared memory for the pixels sent to the server (MIT-SHM): the server reads rectangles
// straight from our memory instead of receiving them through the connection. Used for
// presenting windows, where whole frames of a large monitor are sent. The shared buffer is
// win_data itself when the visual takes its pixels as they are (no conversion), else raw_data.
#pragma once

// Puts the buffer into a segment shared with the server, for the window's current size. False
// (and nothing changed) when the server cannot share memory with this process.
bool shareDisplayBuffer();

// Gives the buffer back as ordinary memory, contents kept; nothing when it is not shared.
void unshareDisplayBuffer();

// Whether the server reads win_data itself, so that nothing is to be converted.
bool frameBufferShared();

// Sends the rectangle of the shared buffer to the window and waits until the server has read
// it, so that the buffer may be written again. False when nothing is shared.
bool putShared(int x0, int y0, int x1, int y1);
