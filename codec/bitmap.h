// Pixels and bitmaps.
#pragma once
#include <cstdint>
#include <cstdlib>

// One pixel. The fourth byte is a transparency: 0 opaque, 255 see-through.
struct Color {
    unsigned char r, g, b, transparency;
};

inline bool operator==(Color a, Color b) {
    return a.r == b.r && a.g == b.g && a.b == b.b && a.transparency == b.transparency;
}
inline bool operator!=(Color a, Color b) { return !(a == b); }

// The four bytes as a little-endian word, red lowest.
inline uint32_t colorKey(Color c) {
    return c.r | (uint32_t)c.g << 8 | (uint32_t)c.b << 16 | (uint32_t)c.transparency << 24;
}

const Color color_SeeThrough = {0, 0, 0, 255};

// Four pixels' colour words side by side, for comparing and filling four pixels at once.
typedef uint32_t PixelLanes __attribute__((vector_size(16)));

inline bool isSeeThrough(Color c) { return colorKey(c) == 0xFF000000u; }

// Row-major pixels; the bitmap frees data when it owns it. A cleared bitmap is owned, empty, 0 x 0.
struct Bitmap {
    bool owned = true;
    Color* data = nullptr;
    int width = 0;
    int height = 0;

    Bitmap() {}
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;
    ~Bitmap() {
        if (owned) free(data);
    }

    void clear() {
        if (owned && data) free(data);
        owned = true;
        data = nullptr;
        width = 0;
        height = 0;
    }

    Color& at(int x, int y) { return data[(size_t)y * width + x]; }
    const Color& at(int x, int y) const { return data[(size_t)y * width + x]; }
};

// Largest bitmap that the codec and the PNG reader accept; checked before allocating.
const int kMaxSide = 65535;
#ifdef SLIDES_FUZZING
const long long kMaxPixels = 1LL << 16;  // fuzz builds: small bitmaps keep every try fast
#else
const long long kMaxPixels = 1LL << 26;
#endif

inline bool sizeWithinLimits(long long width, long long height) {
    return width >= 0 && height >= 0 && width <= kMaxSide && height <= kMaxSide &&
           width * height <= kMaxPixels;
}

// Puts a bitmap into the cleared state without freeing anything: for fillers that failed after
// releasing their own fresh array (what the bitmap held before was never theirs to free).
inline void resetBitmap(Bitmap& bitmap) {
    bitmap.owned = true;
    bitmap.data = nullptr;
    bitmap.width = 0;
    bitmap.height = 0;
}

// Allocates width * height pixels with malloc; throws Exception_MemOut when a non-empty
// allocation fails. The caller stores the result in a bitmap.
Color* allocPixels(int width, int height);
