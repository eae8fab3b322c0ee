#include <cstdint>
#include <cstring>

#include "codec/codec.h"
#include "codec/huffman.h"
#include "codec/stream.h"

namespace {

// Codes up to this many bits are decoded with one table look-up; longer ones walk the tree.
const int kTableBits = 12;

// Reads bits least significant first from a byte range; positions past the end read as 0 and
// are caught by overrun(), so a short stream never reads outside its bytes.
struct BitReader {
    const unsigned char* bytes;
    size_t length;
    unsigned long long pos = 0;

    // The next 57 or more bits, lowest first.
    __attribute__((always_inline)) uint64_t peek() const {
        size_t i = (size_t)(pos >> 3);
        uint64_t word = 0;
        if (i + 8 <= length)
            word = loadLittleEndian64(bytes + i);
        else
            for (size_t k = 0; k < 8 && i + k < length; k++) word |= (uint64_t)bytes[i + k] << (8 * k);
        return word >> (pos & 7);
    }

    int readBit() {
        size_t i = (size_t)(pos >> 3);
        int bit = i < length ? (bytes[i] >> (pos & 7)) & 1 : 0;
        pos++;
        return bit;
    }

    bool overrun() const { return pos > (unsigned long long)length * 8; }
};

// One look-up entry: after `bits` bits, a leaf (ref < 0, its colour at hand) or the node to go
// on from.
struct TableEntry {
    Color colour;
    int ref;
    int bits;
};

typedef uint32_t Lanes __attribute__((vector_size(16)));

// Sets n pixels to one colour word, four at a time with 16-byte stores.
inline void fillRow(Color* row, int n, uint32_t word) {
    const Lanes wide = {word, word, word, word};
    int x = 0;
    for (; x + 4 <= n; x += 4) memcpy(row + x, &wide, sizeof wide);
    for (; x < n; x++) memcpy(row + x, &word, sizeof word);
}

struct Decoder {
    BitReader in;
    const vec<Pair<int, int> >& tree;
    const vec<Color>& colours;
    vec<TableEntry> table;
    int tableBits = 0;
    Color* pixels = nullptr;
    int width = 0;
    bool lookahead = true;  // whether bits past the stream's last one may be peeked at
    const char* error = nullptr;

    Decoder(BitReader reader, const vec<Pair<int, int> >& t, const vec<Color>& c)
        : in(reader), tree(t), colours(c) {}

    __attribute__((noinline)) int walk(int ref) {
        while (ref >= 0) {
            if (in.overrun()) return 0;
            ref = in.readBit() ? tree[ref].second : tree[ref].first;
        }
        return ~ref;
    }

    // An empty tree is the one-colour stream: symbol 0, no bits. Inlined: it is the hot path.
    __attribute__((always_inline)) Color readColour() {
        if (tableBits == 0) return colours[0];
        if (!lookahead) return colours[walk(tree.size - 1)];
        uint64_t bits = in.peek();
        TableEntry e = table[(int)(bits & ((1u << tableBits) - 1))];
        in.pos += e.bits;
        return e.ref < 0 ? e.colour : colours[walkPeeked(e.ref, bits >> e.bits)];
    }

    // Goes on from node ref with the bits already peeked (at least 57 - tableBits of them), then
    // bit by bit for codes longer than that. Bits past the stream read as 0; cutShort catches them.
    __attribute__((noinline)) int walkPeeked(int ref, uint64_t bits) {
        int used = 0;
        for (; ref >= 0 && used < 57 - kTableBits; used++, bits >>= 1)
            ref = bits & 1 ? tree[ref].second : tree[ref].first;
        in.pos += used;
        return ref < 0 ? ~ref : walk(ref);
    }

    bool cutShort() {
        if (!in.overrun()) return false;
        error = "bit stream cut short";
        return true;
    }

    void fill(int x0, int y0, int x1, int y1, Color c) {
        uint32_t word;
        memcpy(&word, &c, sizeof word);
        for (int y = y0; y < y1; y++) fillRow(pixels + (size_t)y * width + x0, x1 - x0, word);
    }

    bool raw(int w, int h) {
        for (int y = 0; y < h; y++) {
            Color* row = pixels + (size_t)y * width;
            for (int x = 0; x < w; x++) row[x] = readColour();
            if (cutShort()) return false;
        }
        return true;
    }

    // A split 2 x 2 region: four single pixels, top left, top right, bottom left, bottom right.
    bool quad(Color* p) {
        p[0] = readColour();
        p[1] = readColour();
        p[width] = readColour();
        p[width + 1] = readColour();
        return !cutShort();
    }

    // Regions never reach outside the bitmap: every part lies within the region it splits.
    bool region(int x0, int y0, int x1, int y1) {
        for (;;) {
            if (x1 - x0 == 1 && y1 - y0 == 1) {
                pixels[(size_t)y0 * width + x0] = readColour();
                return !cutShort();
            }
            if (!in.readBit()) {
                fill(x0, y0, x1, y1, readColour());
                return !cutShort();
            }
            if (x1 <= x0 || y1 <= y0) {
                error = "split of an empty region";
                return false;
            }
            if (x1 - x0 == 2 && y1 - y0 == 2) return quad(pixels + (size_t)y0 * width + x0);
            int xm = x0 + highestPowerOfTwo(x1 - x0 - 1);
            int ym = y0 + highestPowerOfTwo(y1 - y0 - 1);
            if (!region(x0, y0, xm, ym) || !region(xm, y0, x1, ym) || !region(x0, ym, xm, y1)) return false;
            x0 = xm;
            y0 = ym;
        }
    }
};

int maxCodeLength(const vec<Huff>& codes) {
    int longest = 0;
    for (const Huff& h : codes)
        if (h.length > longest) longest = h.length;
    return longest;
}

// Fills the look-up table from the tree: a leaf at depth d covers every entry whose low d bits
// are its code; a node at the table's depth is where the walk goes on.
void buildTable(Decoder& d, const vec<Huff>& codes) {
    if (d.tree.size == 0) return;
    int longest = maxCodeLength(codes);
    d.tableBits = longest < kTableBits ? longest : kTableBits;
    d.table.resize(1 << d.tableBits);
    struct Pending {
        int ref;
        int depth;
        unsigned code;
    };
    vec<Pending> stack;
    stack.push(Pending{d.tree.size - 1, 0, 0});
    while (stack.size > 0) {
        Pending p = stack[--stack.size];
        if (p.ref < 0 || p.depth == d.tableBits) {
            Color leaf = p.ref < 0 ? d.colours[~p.ref] : color_SeeThrough;
            for (unsigned high = 0; high < (1u << (d.tableBits - p.depth)); high++)
                d.table[(int)(p.code | high << p.depth)] = TableEntry{leaf, p.ref, p.depth};
            continue;
        }
        stack.push(Pending{d.tree[p.ref].first, p.depth + 1, p.code});
        stack.push(Pending{d.tree[p.ref].second, p.depth + 1, p.code | 1u << p.depth});
    }
}

struct Header {
    unsigned raw = 0, width = 0, height = 0;
};

const char* readHeader(ByteReader& r, Header& h) {
    if (!readVarint(r, h.raw) || !readVarint(r, h.width) || !readVarint(r, h.height))
        return "stream cut short in the header";
    if (!sizeWithinLimits(h.width, h.height)) return "bitmap size beyond the limits";
    return nullptr;
}

// Colour count, colour table (index 0 is always the see-through pixel) and frequencies.
const char* readColours(ByteReader& r, vec<Color>& colours, vec<int>& freqs) {
    unsigned count;
    if (!readVarint(r, count)) return "stream cut short in the colour count";
    int n = (int)count;
    if (n <= 0) return "colour count is 0 or negative";
    // Every colour but index 0 needs three table bytes, and every colour a frequency byte.
    if ((long long)(n - 1) * 3 + n > r.end - r.p) return "colour count larger than the stream";
    colours.resize(n);
    colours[0] = color_SeeThrough;
    for (int i = 1; i < n; i++) {
        colours[i] = Color{r.p[0], r.p[1], r.p[2], 0};
        r.p += 3;
    }
    freqs.resize(n);
    for (int i = 0; i < n; i++) {
        unsigned f;
        if (!readVarint(r, f)) return "stream cut short in the frequencies";
        freqs[i] = (int)f;
    }
    return nullptr;
}

const char* fail(Bitmap& bitmap, Color* pixels, const char* error) {
    free(pixels);
    resetBitmap(bitmap);
    return error;
}

const char* decode(Bitmap& bitmap, const unsigned char*& in, const unsigned char* end, bool lookahead) {
    ByteReader r{in, end};
    Header h;
    vec<Color> colours;
    vec<int> freqs;
    const char* error = readHeader(r, h);
    if (!error) error = readColours(r, colours, freqs);
    if (error) return fail(bitmap, nullptr, error);

    vec<Huff> codes;
    vec<Pair<int, int> > tree;
    computeHuffcodes(freqs, codes, tree);
    Decoder d(BitReader{r.p, (size_t)(r.end - r.p)}, tree, colours);
    d.lookahead = lookahead;
    buildTable(d, codes);

    int width = (int)h.width, height = (int)h.height;
    d.pixels = allocPixels(width, height);
    d.width = width;
    if (width > 0 && height > 0) {
        bool ok = h.raw ? d.raw(width, height) : d.region(0, 0, width, height);
        if (!ok) return fail(bitmap, d.pixels, d.error);
    }
    bitmap.data = d.pixels;
    bitmap.width = width;
    bitmap.height = height;
    in = r.p + (size_t)(d.in.pos >> 3);
    return nullptr;
}

}  // namespace

const char* decompress(Bitmap& bitmap, const unsigned char*& in, const unsigned char* end) {
    return decode(bitmap, in, end, true);
}

const char* decompress(Bitmap& bitmap, vec<unsigned char>& buffer) {
    const unsigned char* in = buffer.data;
    return decompress(bitmap, in, buffer.data + buffer.size);
}

const char* decompress(Bitmap& bitmap, unsigned char*& in) {
    // No length known: allow the stream to run to the top of the address space, and read
    // bit by bit so that no byte past the stream's last bit is touched.
    const unsigned char* start = in;
    const unsigned char* end = start + ((uintptr_t)-1 - (uintptr_t)start) / 2;
    const char* error = decode(bitmap, start, end, false);
    if (!error) in = const_cast<unsigned char*>(start);
    return error;
}
