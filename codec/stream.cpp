#include "codec/stream.h"

void writeStreamHead(vec<unsigned char>& out, bool raw, int width, int height, const vec<Color>& table,
                     const vec<int>& freqs) {
    writeVarint(out, raw ? 1 : 0);
    writeVarint(out, (unsigned)width);
    writeVarint(out, (unsigned)height);
    writeVarint(out, (unsigned)table.size);
    for (int i = 1; i < table.size; i++) {
        out.push(table[i].r);
        out.push(table[i].g);
        out.push(table[i].b);
    }
    for (int f : freqs) writeVarint(out, (unsigned)f);
}

long long streamHeadBytes(int width, int height, const vec<int>& freqs) {
    long long bytes = 1 + varintBytes((unsigned)width) + varintBytes((unsigned)height) +
                      varintBytes((unsigned)freqs.size) + 3LL * (freqs.size - 1);
    for (int f : freqs) bytes += varintBytes((unsigned)f);
    return bytes;
}
