// The codec stream decoder over arbitrary bytes. A stream that decodes must leave the reader
// inside the input, and its bitmap must survive an encode and decode unchanged. Decoding over
// a background or over one colour must agree with decoding and then compositing, failures
// included.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "codec/codec.h"

// Re-encoding is checked only for small bitmaps, to keep the run fast.
static const long long kRoundTripPixels = 1 << 12;

static void checkRoundTrip(Bitmap& decoded, bool raw) {
    vec<unsigned char> stream;
    compress(decoded, stream, raw);
    Bitmap again;
    const char* error = decompress(again, stream);
    if (error || again.width != decoded.width || again.height != decoded.height) abort();
    size_t bytes = sizeof(Color) * decoded.width * decoded.height;
    if (bytes && memcmp(again.data, decoded.data, bytes) != 0) abort();
}

// Whether screen is decoded with every see-through pixel replaced by under[i * step]: step 1
// for a picture, 0 for one colour.
static bool composited(const Bitmap& screen, const Bitmap& decoded, const Color* under, long long step) {
    for (long long i = 0; i < (long long)decoded.width * decoded.height; i++)
        if (screen.data[i] != (isSeeThrough(decoded.data[i]) ? under[i * step] : decoded.data[i])) return false;
    return true;
}

static void checkOver(const uint8_t* data, size_t size, const char* error, const Bitmap& decoded,
                      const unsigned char* decoded_in) {
    int width = 0, height = 0;
    if (readStreamSize(data, data + size, width, height)) {
        if (!error) abort();
        return;
    }
    Bitmap background;
    background.data = allocPixels(width, height);
    background.width = width;
    background.height = height;
    for (long long i = 0; i < (long long)width * height; i++) background.data[i] = Color{(unsigned char)i, 1, 2, 0};
    Bitmap screen;
    const unsigned char* in = data;
    const char* over_error = decompressOver(screen, background, in, data + size);
    if (!over_error != !error) abort();
    if (error) return;
    if (in != decoded_in || screen.width != width || screen.height != height) abort();
    if (!composited(screen, decoded, background.data, 1)) abort();
    const Color plain = {7, 8, 9, 0};
    in = data;
    if (decompressOver(screen, plain, in, data + size) || in != decoded_in) abort();
    if (!composited(screen, decoded, &plain, 0)) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bitmap bitmap;
    const unsigned char* in = data;
    const char* error = decompress(bitmap, in, data + size);
    checkOver(data, size, error, bitmap, in);
    if (error) {
        if (bitmap.data || bitmap.width || bitmap.height) abort();  // a failure leaves it cleared
        return 0;
    }
    if (in < data || in > data + size) abort();
    if ((long long)bitmap.width * bitmap.height <= kRoundTripPixels) {
        checkRoundTrip(bitmap, false);
        checkRoundTrip(bitmap, true);
    }
    return 0;
}
