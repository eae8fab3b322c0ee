#include <utility>

#include "codec/codec.h"
#include "codec/huffman.h"
#include "codec/stream.h"

namespace {

// Colour -> index, open addressing over a power-of-two table; indices are given in order of
// first appearance, which is all the stream depends on.
class ColourIndex {
public:
    ColourIndex() { rehash(1024); }

    // The index of key, or next when it is new (then *added is set).
    unsigned lookup(uint32_t key, unsigned next, bool* added) {
        if ((count + 1) * 2 > slots.size) rehash(slots.size * 2);
        int i = slotOf(key);
        while (slots[i].index != 0) {
            if (slots[i].key == key) return slots[i].index - 1;
            i = (i + 1) & (slots.size - 1);
        }
        slots[i] = Slot{key, next + 1};
        count++;
        *added = true;
        return next;
    }

private:
    struct Slot {
        uint32_t key;
        unsigned index;  // index + 1; 0 marks a free slot
    };
    vec<Slot> slots;
    int count = 0;
    int shift = 0;

    int slotOf(uint32_t key) const { return (int)((key * 0x9E3779B1u) >> shift); }

    void rehash(int size) {
        vec<Slot> old;
        std::swap(old.data, slots.data);
        std::swap(old.size, slots.size);
        std::swap(old.cap, slots.cap);
        slots.resize(size);
        shift = 32 - __builtin_ctz((unsigned)size);
        for (const Slot& s : old) {
            if (s.index == 0) continue;
            int i = slotOf(s.key);
            while (slots[i].index != 0) i = (i + 1) & (size - 1);
            slots[i] = s;
        }
    }
};

// Indexes every pixel in row order; index 0 is the see-through pixel, present from the start.
void indexColours(const Bitmap& bitmap, vec<unsigned>& indices, vec<Color>& colours, vec<int>& freqs) {
    ColourIndex map;
    bool added = false;
    map.lookup(colorKey(color_SeeThrough), 0, &added);
    colours.push(color_SeeThrough);
    freqs.push(0);
    int count = bitmap.width > 0 && bitmap.height > 0 ? bitmap.width * bitmap.height : 0;
    indices.resize(count);
    uint32_t lastKey = colorKey(color_SeeThrough);
    unsigned lastIndex = 0;
    for (int i = 0; i < count; i++) {
        uint32_t key = colorKey(bitmap.data[i]);
        if (key != lastKey) {
            added = false;
            lastIndex = map.lookup(key, (unsigned)colours.size, &added);
            lastKey = key;
            if (added) {
                colours.push(bitmap.data[i]);
                freqs.push(0);
            }
        }
        indices[i] = lastIndex;
        freqs[(int)lastIndex]++;
    }
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

struct Encoder {
    const vec<unsigned>& indices;
    const vec<Huff>& codes;
    int width;
    BitWriter& bits;

    unsigned at(int x, int y) const { return indices[y * width + x]; }

    void putIndex(unsigned index) { bits.putCode(codes[(int)index]); }

    void raw(int w, int h) {
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w; x++) putIndex(at(x, y));
    }

    // An empty region counts as uniform; its corner still lies inside the bitmap.
    bool uniform(int x0, int y0, int x1, int y1, unsigned corner) const {
        for (int y = y0; y < y1; y++) {
            const unsigned* row = indices.data + (size_t)y * width;
            for (int x = x0; x < x1; x++)
                if (row[x] != corner) return false;
        }
        return true;
    }

    void region(int x0, int y0, int x1, int y1) {
        for (;;) {
            unsigned corner = at(x0, y0);
            if (uniform(x0, y0, x1, y1, corner)) {
                if (!(x1 - x0 == 1 && y1 - y0 == 1)) bits.put(0, 1);
                putIndex(corner);
                return;
            }
            bits.put(1, 1);
            int xm = x0 + highestPowerOfTwo(x1 - x0 - 1);
            int ym = y0 + highestPowerOfTwo(y1 - y0 - 1);
            region(x0, y0, xm, ym);
            region(xm, y0, x1, ym);
            region(x0, ym, xm, y1);
            x0 = xm;
            y0 = ym;
        }
    }
};

}  // namespace

void compress(Bitmap& bitmap, vec<unsigned char>& out, bool raw) {
    writeVarint(out, raw ? 1 : 0);
    writeVarint(out, (unsigned)bitmap.width);
    writeVarint(out, (unsigned)bitmap.height);
    vec<unsigned> indices;
    vec<Color> colours;
    vec<int> freqs;
    indexColours(bitmap, indices, colours, freqs);
    writeVarint(out, (unsigned)colours.size);
    for (int i = 1; i < colours.size; i++) {
        out.push(colours[i].r);
        out.push(colours[i].g);
        out.push(colours[i].b);
    }
    for (int f : freqs) writeVarint(out, (unsigned)f);
    if (bitmap.width <= 0 || bitmap.height <= 0) return;

    vec<Huff> codes;
    vec<Pair<int, int> > tree;
    computeHuffcodes(freqs, codes, tree);
    BitWriter bits{out};
    Encoder e{indices, codes, bitmap.width, bits};
    if (raw)
        e.raw(bitmap.width, bitmap.height);
    else
        e.region(0, 0, bitmap.width, bitmap.height);
    bits.finish();
}
