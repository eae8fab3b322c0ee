#include "codec/bitmap.h"

#include "support/alloc.h"

Color* allocPixels(int width, int height) {
    size_t count = (size_t)width * (size_t)height;
    if (width <= 0 || height <= 0) return nullptr;
    Color* pixels = (Color*)malloc(count * sizeof(Color));
    if (!pixels) throw Exception_MemOut();
    return pixels;
}
