// Image: the compact in-memory form of one screen.
#pragma once
#include <cstdint>

#include "codec/bitmap.h"
#include "show/image_room.h"
#include "support/alloc.h"

// A fixed-size array: elements, a 31-bit count and an ownership flag in one word.
template <class T>
struct Array {
    T* data = nullptr;
    unsigned count : 31;
    unsigned owned : 1;
    Array() : count(0x7FFFFFFF), owned(0) {}
};

// A palette of distinct colours in order of first appearance and one 16-bit index per pixel.
// A screen with more than 65535 colours cannot be indexed in 16 bits: it keeps its pixels as
// colours in `colors` instead, and `palette` and `pixels` stay empty.
struct Image {
    int width;
    int height;
    Array<Color> palette;
    Array<uint16_t> pixels;
    Array<Color> colors;
};

// Fills image from bitmap (only read). Whatever image held before is overwritten, not released.
// Throws Exception_MemOut when memory runs out, releasing what it had built.
void makeImage(Bitmap& bitmap, Image& image);

// The same with the index array taken from room when it has one of the bitmap's size left: the
// room keeps that array (it is not owned by the image and lives as long as the room).
void makeImage(Bitmap& bitmap, Image& image, ImageRoom* room);

// Copies count pixels starting at pixel index first (row-major) of the image into out.
// A range that does not lie within the image copies nothing.
void copyPixels(const Image& image, int first, int count, Color* out);

// Number of pixels the image holds (0 for an empty image, which owns no array and has none).
int imagePixelCount(const Image& image);

// Releases the arrays the image owns and leaves it empty.
void releaseImage(Image& image);
