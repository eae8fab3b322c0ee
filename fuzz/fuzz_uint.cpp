// The packed-integer reader over a file of arbitrary bytes: every value read is written again and
// must read back the same, and a value never takes more than nine bytes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/memfile.h"
#include "io/file.h"
#include "support/alloc.h"

static const int kMaxValues = 4096;
static const long long kMaxBytesPerValue = 9;

// Reads packed integers until the end of the file.
static void readAll(File& file, vec<unsigned long long>& values, long long size) {
    try {
        while (values.size < kMaxValues) {
            long long before = file.tell();
            values.push(getUInt(file));
            long long after = file.tell();
            if (after <= before || (after - before > kMaxBytesPerValue && after <= size)) abort();
        }
    } catch (Exception_EOF&) {
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vec<unsigned long long> values;
    {
        File file;
        file.open(memFile(data, size), READ, false);
        readAll(file, values, (long long)size);
    }

    File copy;
    copy.open(memFile(nullptr, 0), WRITE, false);
    for (int i = 0; i < values.size; i++) putUInt(copy, values[i]);
    long long written = copy.tell();
    copy.seek(0, SEEK_SET);
    vec<unsigned long long> again;
    readAll(copy, again, written);
    if (again.size != values.size) abort();
    for (int i = 0; i < values.size; i++)
        if (again[i] != values[i]) abort();
    return 0;
}
