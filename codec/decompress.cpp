#include <cstdint>
#include <cstring>

#include "codec/codec.h"
#include "codec/huffman.h"
#include "codec/stream.h"

namespace {

// Codes up to this many bits are decoded with one table look-up; longer ones walk the tree.
const int kTableBits = 13;
static_assert(kTableBits < 16, "a table entry keeps the code length in 4 bits");

// The bits of a byte range, least significant first, read at a bit position that the decoder
// keeps in a register. Positions past the end read as 0, so a short stream never reads outside
// its bytes; the decoder checks for the overrun once it is done.
struct Bits {
    const unsigned char* bytes;
    size_t length;

    // The 57 or more bits from position pos on, lowest first.
    __attribute__((always_inline)) uint64_t peek(uint64_t pos) const {
        size_t i = (size_t)(pos >> 3);
        uint64_t word = 0;
        if (i + 8 <= length)
            word = loadLittleEndian64(bytes + i);
        else
            for (size_t k = 0; k < 8 && i + k < length; k++) word |= (uint64_t)bytes[i + k] << (8 * k);
        return word >> (pos & 7);
    }

    int at(uint64_t pos) const {
        size_t i = (size_t)(pos >> 3);
        return i < length ? (bytes[i] >> (pos & 7)) & 1 : 0;
    }

    bool overrun(uint64_t pos) const { return pos > (uint64_t)length * 8; }
};

// A symbol and the bit position after its code.
struct Symbol {
    uint64_t pos;
    int symbol;
};

// One look-up entry, 4 bytes so that the table stays in the first-level cache: after
// `step & 15` bits, the leaf of symbol `~(step >> 4)` (step < 0) or the node `step >> 4` to go
// on from.
struct TableEntry {
    int32_t step;

    int bits() const { return step & 15; }
    int node() const { return step >> 4; }
    int symbol() const { return ~(step >> 4); }
};

// Trees with more nodes than this cannot be named in a table entry; they are walked bit by bit.
const int kMaxTableTree = 1 << 26;

// Sets n pixels to one colour word, four at a time with 16-byte stores.
inline void fillRow(Color* row, int n, uint32_t word) {
    const PixelLanes wide = {word, word, word, word};
    int x = 0;
    for (; x + 4 <= n; x += 4) memcpy(row + x, &wide, sizeof wide);
    for (; x < n; x++) memcpy(row + x, &word, sizeof word);
}

// Bits peeked at a position and how many of them are real.
struct Peeked {
    uint64_t bits;
    int valid;
};

// Decodes into pixels. Over another picture (Over = true) a see-through pixel takes the pixel
// of under at the same place; under may be pixels itself, whose pixels then stay as they were.
// The bit position travels through the calls by value, so that it stays in a register.
struct Decoder {
    Bits in;
    const vec<Pair<int, int> >& tree;
    const vec<Color>& colours;
    vec<TableEntry> table;
    uint64_t tableMask = 0;
    Color* pixels = nullptr;
    int width = 0;
    const Color* under = nullptr;
    int under_width = 0;
    bool lookahead = true;  // whether bits past the stream's last one may be peeked at
    const char* error = nullptr;

    static const uint64_t kFailed = ~0ull;

    Decoder(Bits bits, const vec<Pair<int, int> >& t, const vec<Color>& c) : in(bits), tree(t), colours(c) {}

    __attribute__((noinline)) Symbol walk(int ref, uint64_t pos) const {
        while (ref >= 0) {
            if (in.overrun(pos)) return Symbol{pos, 0};
            ref = in.at(pos++) ? tree[ref].second : tree[ref].first;
        }
        return Symbol{pos, ~ref};
    }

    // Goes on from node ref with `valid` bits already peeked, then bit by bit for codes longer
    // than that.
    __attribute__((noinline)) Symbol walkPeeked(int ref, uint64_t bits, int valid, uint64_t pos) const {
        for (; ref >= 0 && valid > 0; valid--, pos++, bits >>= 1)
            ref = bits & 1 ? tree[ref].second : tree[ref].first;
        return ref < 0 ? Symbol{pos, ~ref} : walk(ref, pos);
    }

    // One symbol from bits peeked at pos: a table look-up, and a walk for longer codes.
    __attribute__((always_inline)) Color colourFrom(uint64_t bits, int valid, uint64_t& pos) const {
        const TableEntry e = table[bits & tableMask];
        pos += e.bits();
        if (e.step < 0) return colours[e.symbol()];
        Symbol s = walkPeeked(e.node(), bits >> e.bits(), valid - e.bits(), pos);
        pos = s.pos;
        return colours[s.symbol];
    }

    __attribute__((always_inline)) Color readColour(uint64_t& pos) const {
        if (lookahead) return colourFrom(in.peek(pos), 57, pos);
        Symbol s = walk(tree.size - 1, pos);
        pos = s.pos;
        return colours[s.symbol];
    }

    // The next symbol of a run of symbols read from one peek while it holds a whole table code.
    __attribute__((always_inline)) Color nextColour(Peeked& p, uint64_t& pos) const {
        if (!lookahead) return readColour(pos);
        if (p.valid < kTableBits) p = Peeked{in.peek(pos), 57};
        const TableEntry e = table[p.bits & tableMask];
        if (e.step >= 0) {
            Color c = colourFrom(p.bits, p.valid, pos);
            p.valid = 0;
            return c;
        }
        pos += e.bits();
        p.bits >>= e.bits();
        p.valid -= e.bits();
        return colours[e.symbol()];
    }

    // A split bit and, when it is 0, the symbol after it, read from one peek. True on a split.
    __attribute__((always_inline)) bool readSplit(Color* c, uint64_t& pos) const {
        if (!lookahead) {
            if (in.at(pos++)) return true;
            *c = readColour(pos);
            return false;
        }
        uint64_t bits = in.peek(pos++);
        if (bits & 1) return true;
        *c = colourFrom(bits >> 1, 56, pos);
        return false;
    }

    template <bool Over>
    __attribute__((always_inline)) void put(int x, int y, Color c) {
        if (Over && isSeeThrough(c)) c = under[(size_t)y * under_width + x];
        pixels[(size_t)y * width + x] = c;
    }

    template <bool Over>
    void fill(int x0, int y0, int x1, int y1, Color c) {
        if (Over && isSeeThrough(c)) {
            if (under == pixels) return;
            for (int y = y0; y < y1; y++)
                memcpy(pixels + (size_t)y * width + x0, under + (size_t)y * under_width + x0,
                       (size_t)(x1 - x0) * sizeof(Color));
            return;
        }
        uint32_t word;
        memcpy(&word, &c, sizeof word);
        for (int y = y0; y < y1; y++) fillRow(pixels + (size_t)y * width + x0, x1 - x0, word);
    }

    template <bool Over>
    uint64_t raw(int w, int h, uint64_t pos) {
        Peeked p{0, 0};
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w; x++) put<Over>(x, y, nextColour(p, pos));
        return pos;
    }

    // A split 2 x 2 region: four single pixels, top left, top right, bottom left, bottom right.
    template <bool Over>
    __attribute__((always_inline)) void quad(int x, int y, uint64_t& pos) {
        Peeked p{0, 0};
        put<Over>(x, y, nextColour(p, pos));
        put<Over>(x + 1, y, nextColour(p, pos));
        put<Over>(x, y + 1, nextColour(p, pos));
        put<Over>(x + 1, y + 1, nextColour(p, pos));
    }

    enum Step { DONE, FAILED, SPLIT };

    // One node of the region tree. Single pixels, uniform regions and split 2 x 2 regions, which
    // make up most nodes, are decoded here; a larger split region is left to split().
    template <bool Over>
    __attribute__((always_inline)) Step node(int x0, int y0, int x1, int y1, uint64_t& pos) {
        if (x1 - x0 == 1 && y1 - y0 == 1) {
            put<Over>(x0, y0, readColour(pos));
            return DONE;
        }
        Color c;
        if (!readSplit(&c, pos)) {
            fill<Over>(x0, y0, x1, y1, c);
            return DONE;
        }
        if (x1 <= x0 || y1 <= y0) {
            error = "split of an empty region";
            return FAILED;
        }
        if (x1 - x0 == 2 && y1 - y0 == 2) {
            quad<Over>(x0, y0, pos);
            return DONE;
        }
        return SPLIT;
    }

    // Decodes a node and, when it splits, its parts; the bit position after it, or kFailed.
    template <bool Over>
    __attribute__((always_inline)) uint64_t part(int x0, int y0, int x1, int y1, uint64_t pos) {
        Step step = node<Over>(x0, y0, x1, y1, pos);
        return step == SPLIT ? split<Over>(x0, y0, x1, y1, pos) : step == DONE ? pos : kFailed;
    }

    // The four parts of a split region, the last one in the same call. Parts never reach
    // outside the bitmap: each lies within the region it splits. Bits past the stream's end
    // read as 0, which splits nothing, so a stream cut short still ends; decodeAll() reports
    // it once the tree is done.
    template <bool Over>
    uint64_t split(int x0, int y0, int x1, int y1, uint64_t pos) {
        for (;;) {
            int xm = x0 + highestPowerOfTwo(x1 - x0 - 1);
            int ym = y0 + highestPowerOfTwo(y1 - y0 - 1);
            if ((pos = part<Over>(x0, y0, xm, ym, pos)) == kFailed ||
                (pos = part<Over>(xm, y0, x1, ym, pos)) == kFailed ||
                (pos = part<Over>(x0, ym, xm, y1, pos)) == kFailed)
                return kFailed;
            x0 = xm;
            y0 = ym;
            Step step = node<Over>(x0, y0, x1, y1, pos);
            if (step != SPLIT) return step == DONE ? pos : kFailed;
        }
    }

    // Decodes the whole bitmap; the bit position after it, or kFailed with error set.
    template <bool Over>
    uint64_t decodeAll(bool is_raw, int w, int h) {
        uint64_t pos = 0;
        if (w > 0 && h > 0) pos = is_raw ? raw<Over>(w, h, pos) : part<Over>(0, 0, w, h, pos);
        if (pos == kFailed) return kFailed;
        if (in.overrun(pos)) {
            error = "bit stream cut short";
            return kFailed;
        }
        return pos;
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
// An empty tree (the one-colour stream) gives one entry: symbol 0 in no bits.
void buildTable(Decoder& d, const vec<Huff>& codes) {
    int longest = maxCodeLength(codes);
    int tableBits = longest < kTableBits ? longest : kTableBits;
    d.table.resize(1 << tableBits);
    d.tableMask = (1u << tableBits) - 1;
    struct Pending {
        int ref;
        int depth;
        unsigned code;
    };
    vec<Pending> stack;
    stack.push(Pending{d.tree.size - 1, 0, 0});
    while (stack.size > 0) {
        Pending p = stack[--stack.size];
        if (p.ref < 0 || p.depth == tableBits) {
            for (unsigned high = 0; high < (1u << (tableBits - p.depth)); high++)
                d.table[(int)(p.code | high << p.depth)] = TableEntry{p.ref * 16 + p.depth};
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

// Everything before the bit stream: header, colour table and the codes built from the
// frequencies.
struct Prelude {
    Header header;
    vec<Color> colours;
    vec<Huff> codes;
    vec<Pair<int, int> > tree;
    const unsigned char* bits = nullptr;  // where the bit stream starts
};

const char* readPrelude(const unsigned char* in, const unsigned char* end, Prelude& s) {
    ByteReader r{in, end};
    vec<int> freqs;
    const char* error = readHeader(r, s.header);
    if (!error) error = readColours(r, s.colours, freqs);
    if (error) return error;
    computeHuffcodes(freqs, s.codes, s.tree);
    s.bits = r.p;
    return nullptr;
}

// Decodes the bit stream into pixels (the stream's size); on success leaves in at the byte
// holding the last bit read, or one past it when that bit was a byte's highest.
template <bool Over>
const char* decodeBits(const Prelude& s, const unsigned char* end, bool lookahead, Color* pixels,
                       const Color* under, int under_width, const unsigned char*& in) {
    Decoder d(Bits{s.bits, (size_t)(end - s.bits)}, s.tree, s.colours);
    d.lookahead = lookahead && s.tree.size <= kMaxTableTree;
    if (d.lookahead) buildTable(d, s.codes);
    d.pixels = pixels;
    d.width = (int)s.header.width;
    d.under = under;
    d.under_width = under_width;
    uint64_t pos = d.decodeAll<Over>(s.header.raw != 0, (int)s.header.width, (int)s.header.height);
    if (pos == Decoder::kFailed) return d.error;
    in = s.bits + (size_t)(pos >> 3);
    return nullptr;
}

const char* fail(Bitmap& bitmap, Color* pixels, const char* error) {
    free(pixels);
    resetBitmap(bitmap);
    return error;
}

const char* decode(Bitmap& bitmap, const unsigned char*& in, const unsigned char* end, bool lookahead) {
    Prelude s;
    if (const char* error = readPrelude(in, end, s)) return fail(bitmap, nullptr, error);
    int width = (int)s.header.width, height = (int)s.header.height;
    Color* pixels = allocPixels(width, height);
    if (const char* error = decodeBits<false>(s, end, lookahead, pixels, nullptr, 0, in))
        return fail(bitmap, pixels, error);
    bitmap.data = pixels;
    bitmap.width = width;
    bitmap.height = height;
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

const char* readStreamSize(const unsigned char* in, const unsigned char* end, int& width, int& height) {
    ByteReader r{in, end};
    Header h;
    if (const char* error = readHeader(r, h)) return error;
    width = (int)h.width;
    height = (int)h.height;
    return nullptr;
}

// Gives bitmap the size of the stream, keeping its array when it already has that size.
void fitBitmap(Bitmap& bitmap, const Prelude& s) {
    int width = (int)s.header.width, height = (int)s.header.height;
    if (bitmap.width == width && bitmap.height == height) return;
    bitmap.clear();
    bitmap.data = allocPixels(width, height);
    bitmap.width = width;
    bitmap.height = height;
}

const char* decompressOver(Bitmap& bitmap, const Bitmap& under, const unsigned char*& in, const unsigned char* end) {
    Prelude s;
    if (const char* error = readPrelude(in, end, s)) return error;
    int width = (int)s.header.width, height = (int)s.header.height;
    if (under.width < width || under.height < height) return "stream larger than the picture under it";
    if (&under == &bitmap && (width != bitmap.width || height != bitmap.height))
        return "stream smaller than the picture it is decoded over";
    fitBitmap(bitmap, s);
    return decodeBits<true>(s, end, true, bitmap.data, under.data, under.width, in);
}

const char* decompressOver(Bitmap& bitmap, Color under, const unsigned char*& in, const unsigned char* end) {
    Prelude s;
    if (const char* error = readPrelude(in, end, s)) return error;
    fitBitmap(bitmap, s);
    // Over one colour, the see-through pixel is that colour.
    s.colours[0] = under;
    return decodeBits<false>(s, end, true, bitmap.data, nullptr, 0, in);
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
