// The codec stream decoder over arbitrary bytes. A stream that decodes must leave the reader
// inside the input, and its bitmap must survive an encode and decode unchanged.
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bitmap bitmap;
    const unsigned char* in = data;
    const char* error = decompress(bitmap, in, data + size);
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
