// Byte-level pieces shared by the codec's reader and writer.
#pragma once
#include <cstdint>
#include <cstring>

#include "support/vec.h"

// Reads bytes from [p, end).
struct ByteReader {
    const unsigned char* p;
    const unsigned char* end;
};

// An unsigned varint: 7 bits a byte, lowest group first, high bit set on all bytes but the
// last; accumulated in 32 bits (groups beyond bit 31 are dropped). False when cut short.
inline bool readVarint(ByteReader& r, unsigned& value) {
    value = 0;
    for (int shift = 0;; shift += shift < 32 ? 7 : 0) {
        if (r.p == r.end) return false;
        unsigned char b = *r.p++;
        if (shift < 32) value |= (unsigned)(b & 0x7F) << shift;
        if (!(b & 0x80)) return true;
    }
}

inline void writeVarint(vec<unsigned char>& out, unsigned value) {
    while (value > 127) {
        out.push((unsigned char)((value & 0x7F) | 0x80));
        value >>= 7;
    }
    out.push((unsigned char)value);
}

inline uint64_t loadLittleEndian64(const unsigned char* p) {
    uint64_t word;
    memcpy(&word, p, 8);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

// The highest power of two not above v; 0 for 0.
inline int highestPowerOfTwo(int v) { return v > 0 ? 1 << (31 - __builtin_clz((unsigned)v)) : 0; }
