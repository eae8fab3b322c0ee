// Shared memory for the display buffer (MIT-SHM): the server reads rectangles straight from
// raw_data instead of receiving them through the connection. Used for presenting windows,
// where whole frames of a large monitor are sent.
#pragma once

// Puts raw_data into a segment shared with the server, for the window's current size. False
// (and nothing changed) when the server cannot share memory with this process.
bool shareDisplayBuffer();

// Gives raw_data back as ordinary memory of the same size; nothing when it is not shared.
void unshareDisplayBuffer();

// Sends the rectangle of the shared raw_data to the window and waits until the server has read
// it, so that raw_data may be written again. False when raw_data is not shared.
bool putShared(int x0, int y0, int x1, int y1);
