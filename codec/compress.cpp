#include "codec/codec.h"
#include "codec/colour_index.h"
#include "codec/huffman.h"
#include "codec/stream.h"

namespace {

struct Encoder {
    const vec<int>& ids;
    const vec<Huff>& codes;
    int width;
    BitWriter& bits;

    int at(int x, int y) const { return ids[y * width + x]; }

    void putIndex(int id) { bits.putCode(codes[id]); }

    void raw(int w, int h) {
        for (int y = 0; y < h; y++)
            for (int x = 0; x < w; x++) putIndex(at(x, y));
    }

    // An empty region counts as uniform; its corner still lies inside the bitmap.
    bool uniform(int x0, int y0, int x1, int y1, int corner) const {
        for (int y = y0; y < y1; y++) {
            const int* row = ids.data + (size_t)y * width;
            for (int x = x0; x < x1; x++)
                if (row[x] != corner) return false;
        }
        return true;
    }

    void region(int x0, int y0, int x1, int y1) {
        for (;;) {
            int corner = at(x0, y0);
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
    vec<int> ids;
    vec<Color> colours;
    vec<int> freqs;
    indexColours(bitmap, ids, colours, freqs);
    writeStreamHead(out, raw, bitmap.width, bitmap.height, colours, freqs);
    if (bitmap.width <= 0 || bitmap.height <= 0) return;

    vec<Huff> codes;
    vec<Pair<int, int> > tree;
    computeHuffcodes(freqs, codes, tree);
    BitWriter bits{out};
    Encoder e{ids, codes, bitmap.width, bits};
    if (raw)
        e.raw(bitmap.width, bitmap.height);
    else
        e.region(0, 0, bitmap.width, bitmap.height);
    bits.finish();
}
