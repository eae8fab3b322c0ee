// The PNG reader over a file of arbitrary bytes. A file that reads must give a bitmap within the
// size limits; one that does not must leave it cleared or untouched.
#include <cstdint>
#include <cstdlib>

#include "fuzz/memfile.h"
#include "png/png.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    memFile(data, size);
    Bitmap bitmap;
    bool ok = readPng(memFilePath(), bitmap);
    if (!ok && (bitmap.data || bitmap.width || bitmap.height)) abort();
    if (ok && !sizeWithinLimits(bitmap.width, bitmap.height)) abort();
    if (ok && bitmap.width && bitmap.height) {
        // Every pixel must be readable: touch the last one.
        volatile unsigned char last = bitmap.at(bitmap.width - 1, bitmap.height - 1).transparency;
        (void)last;
    }
    return 0;
}
