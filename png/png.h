// Reading and writing a Bitmap as a PNG file. Alpha is 255 minus the pixel's transparency.
#pragma once
#include "codec/bitmap.h"

// Reads path into bitmap (hand it a new or cleared bitmap). False on any failure: a file that
// cannot be opened or has no PNG signature leaves the bitmap untouched; a later failure (corrupt
// data, size beyond sizeWithinLimits) leaves it cleared.
bool readPng(const char* path, Bitmap& bitmap);

// Writes bitmap as 8-bit RGBA. True when the file was written completely.
bool writePng(const char* path, const Bitmap& bitmap);

// Why the last readPng or writePng failed: the system's reason (a missing file, a full disk),
// "not a PNG file", a file cut short, or libpng's own message; "" after a success.
const char* pngLastError();
