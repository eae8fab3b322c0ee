// Byte-level pieces of the codec stream shared by its reader and its two writers (compress and
// the packer's encoder): varints, the header with its colour table and frequencies, the bit
// writer, and the size a stream takes.
#pragma once
#include <cstdint>
#include <cstring>

#include "codec/bitmap.h"
#include "codec/huffman.h"
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

inline int varintBytes(unsigned value) {
    int n = 1;
    for (; value > 127; value >>= 7) n++;
    return n;
}

// The stream's header: raw flag, width, height, colour count, the colours of indices 1 and up
// (table[0] is the see-through pixel, which is never written) and the frequencies of every index.
void writeStreamHead(vec<unsigned char>& out, bool raw, int width, int height, const vec<Color>& table,
                     const vec<int>& freqs);

// The bytes writeStreamHead writes for a table of freqs.size colours with these frequencies.
long long streamHeadBytes(int width, int height, const vec<int>& freqs);

// The bytes of a whole stream: its header and `bits` bits of region tree.
inline long long streamBytes(int width, int height, const vec<int>& freqs, long long bits) {
    return streamHeadBytes(width, height, freqs) + (bits + 7) / 8;
}

// Collects bits lowest first into bytes; the last byte keeps its unused high bits 0.
struct BitWriter {
    vec<unsigned char>& out;
    uint64_t pending = 0;
    int count = 0;

    // Appends the n (at most 32) low bits of bits.
    void put(uint32_t bits, int n) {
        pending |= (uint64_t)bits << count;
        count += n;
        while (count >= 8) {
            out.push((unsigned char)pending);
            pending >>= 8;
            count -= 8;
        }
    }

    // Codes of up to 32 bits are their low bits; longer ones are tested bit by bit with the
    // depth mask, as the code construction set them.
    void putCode(const Huff& h) {
        if (h.length <= 32) {
            put((uint32_t)h.code, h.length);
            return;
        }
        for (int d = 0; d < h.length; d++) put((h.code & codeBit(d)) != 0, 1);
    }

    void finish() {
        if (count > 0) out.push((unsigned char)pending);
    }
};

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
