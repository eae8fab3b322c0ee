#include "codec/encoder.h"

#include <climits>
#include <cstring>

#include "codec/codec.h"
#include "codec/colour_index.h"
#include "codec/huffman.h"
#include "codec/stream.h"

namespace {

// What a region may be coded as, when it is coded as one leaf: `colour` is the one true colour
// that all its pixels share (kAny: every pixel takes any colour; kNone: no common colour) and
// `zero` tells whether every pixel may be see-through.
const int kAny = -2;
const int kNone = -1;

struct Cell {
    int colour;
    bool zero;
};

Cell meet(Cell a, Cell b) {
    int c = a.colour == kAny ? b.colour : b.colour == kAny || a.colour == b.colour ? a.colour : kNone;
    return Cell{c, a.zero && b.zero};
}

// Steps of a plan, one per region in decoding order: a colour number (0 = see-through), a split,
// or the cheapest symbol (empty regions and regions nobody sees).
const int kSplit = -1;
const int kCheapest = -2;

struct Rect {
    int x0, y0, x1, y1;
    int width() const { return x1 - x0; }
    int height() const { return y1 - y0; }
    bool empty() const { return x0 == x1 || y0 == y1; }
    bool single() const { return x1 - x0 == 1 && y1 - y0 == 1; }
};

// The decoder's split: the left (top) part is the largest power of two strictly below the width
// (height) wide; the parts in decoding order.
void splitRect(const Rect& r, Rect parts[4]) {
    int xm = r.x0 + highestPowerOfTwo(r.width() - 1);
    int ym = r.y0 + highestPowerOfTwo(r.height() - 1);
    parts[0] = Rect{r.x0, r.y0, xm, ym};
    parts[1] = Rect{xm, r.y0, r.x1, ym};
    parts[2] = Rect{r.x0, ym, xm, r.y1};
    parts[3] = Rect{xm, ym, r.x1, r.y1};
}

// What every pixel allows: its colour number and whether it may be see-through.
struct Allowed {
    const IndexedPage& page;
    vec<unsigned char> zero;  // 1: equal to the pixel under it, or any colour will do
    const unsigned char* any;
    // One number per pixel that is equal for two pixels exactly when they allow the same:
    // -1 for any colour, else the colour number and whether it may be see-through.
    vec<int> keys;
    vec<int> runs;  // per pixel: how many pixels from it rightwards in its row share its key

    Cell at(int i) const {
        if (any && any[i]) return Cell{kAny, true};
        int id = page.ids[i];
        return id == 0 ? Cell{kNone, true} : Cell{id, zero[i] != 0};
    }

    // Marks the pixels equal to the ones under them.
    void markSame(const Bitmap& under) {
        const Color* own = page.bitmap->data;
        const Color* below = under.data;
        unsigned char* same = zero.data;
        for (int i = 0, n = zero.size; i < n; i++) same[i] = memcmp(own + i, below + i, sizeof(Color)) == 0;
    }

    void computeKeys() {
        keys.assignZero(page.ids.size);
        int* key = keys.data;
        const int* id = page.ids.data;
        const unsigned char* same = zero.data;
        for (int i = 0, n = keys.size; i < n; i++) key[i] = id[i] * 2 + same[i];
        if (any)
            for (int i = 0, n = keys.size; i < n; i++)
                if (any[i]) key[i] = -1;
    }

    void computeRuns(int width) {
        runs.assignZero(keys.size);
        for (int row = 0; row < keys.size; row += width) {
            const int* key = keys.data + row;
            int* run = runs.data + row;
            run[width - 1] = 1;
            for (int x = width - 2; x >= 0; x--) run[x] = key[x] == key[x + 1] ? run[x + 1] + 1 : 1;
        }
    }

    // Whether every pixel of the (non-empty) region allows the same as its first pixel.
    bool pure(int x0, int y0, int x1, int y1, int width) const {
        int first = y0 * width + x0;
        int key = keys[first];
        for (int i = first; i < y1 * width; i += width)
            if (keys[i] != key || runs[i] < x1 - x0) return false;
        return true;
    }
};

// Costs are in sixteenths of a bit, so that a colour's table entry can be shared out over the
// leaves that code it.
const int kBit = 16;
// A table entry: three colour bytes and about one byte of frequency.
const int kEntryCost = 32 * kBit;

// Chooses, bottom-up over the quadtree, the split or leaf of every region that costs the least
// under the given symbol costs. The plan lists the choices in decoding order.
struct Planner {
    const Allowed& allowed;
    int width;
    const vec<int>& costs;  // estimated cost of coding each colour number once
    int cheapest;             // the cost of the cheapest symbol
    vec<int>& plan;

    struct Result {
        Cell cell;
        long long bits;
    };

    // Cost of coding the region as one leaf (its split bit aside), and the symbol; LLONG_MAX/4
    // when no symbol fits every pixel.
    long long leafBits(Cell c, int* symbol) const {
        if (c.colour == kAny) {
            *symbol = kCheapest;
            return cheapest;
        }
        long long best = LLONG_MAX / 4;
        if (c.colour > 0) best = costs[c.colour], *symbol = c.colour;
        if (c.zero && costs[0] < best) best = costs[0], *symbol = 0;
        return best;
    }

    Result region(const Rect& r) {
        if (r.empty()) {
            plan.push(kCheapest);
            return Result{Cell{kAny, true}, kBit + cheapest};
        }
        int at = plan.size;
        plan.push(kSplit);
        if (r.single()) {
            Cell c = allowed.at(r.y0 * width + r.x0);
            long long bits = leafBits(c, &plan[at]);
            return Result{c, bits};
        }
        // A region whose pixels all allow the same is best coded as one leaf: every split
        // ends in leaves of that same cost.
        if (allowed.pure(r.x0, r.y0, r.x1, r.y1, width)) {
            Cell c = allowed.at(r.y0 * width + r.x0);
            long long bits = kBit + leafBits(c, &plan[at]);
            return Result{c, bits};
        }
        Rect parts[4];
        splitRect(r, parts);
        Result sub[4];
        long long split = kBit;
        for (int k = 0; k < 4; k++) {
            sub[k] = region(parts[k]);
            split += sub[k].bits;
        }
        Cell c = meet(meet(sub[0].cell, sub[1].cell), meet(sub[2].cell, sub[3].cell));
        int symbol = kSplit;
        long long leaf = kBit + leafBits(c, &symbol);
        if (leaf > split) return Result{c, split};
        plan.resize(at + 1);
        plan[at] = symbol;
        return Result{c, leaf};
    }
};

// Visits every region of a plan in decoding order with its step.
template <class Visit>
void walkPlan(const vec<int>& plan, int& pos, Rect r, Visit& visit) {
    for (;;) {
        int step = plan[pos++];
        visit(r, step);
        if (step != kSplit) return;
        Rect parts[4];
        splitRect(r, parts);
        for (int k = 0; k < 3; k++) walkPlan(plan, pos, parts[k], visit);
        r = parts[3];
    }
}

// The colour table of a plan (only the colours it codes, the see-through pixel always first),
// its frequencies and codes.
struct Table {
    vec<int> index;    // colour number -> table index, -1 when not coded
    vec<int> colours;  // table index -> colour number
    vec<int> freqs;
    vec<Huff> codes;
    int shortest = 0;  // table index of the shortest code: empty and unseen regions use it
    int longest = 0;   // code length
};

// Bits of the frequencies and of the symbols coded `uses` times under codes.
long long frequencyAndCodeBits(const vec<int>& freqs, const vec<int>& uses, const vec<Huff>& codes) {
    long long bits = 0;
    for (int i = 0; i < freqs.size; i++) bits += 8 * varintBytes((unsigned)freqs[i]) + (long long)uses[i] * codes[i].length;
    return bits;
}

// The frequencies only shape the tree, so smaller numbers that give nearly the same codes may
// cost less to write: tries the counts divided by powers of two (rounded up) and keeps the best.
void shortenFrequencies(Table& t) {
    vec<int> uses;
    for (int f : t.freqs) uses.push(f);
    long long best = frequencyAndCodeBits(t.freqs, uses, t.codes);
    for (int shift = 1; shift <= 12; shift++) {
        vec<int> scaled;
        for (int f : uses) scaled.push(f > 0 ? ((f - 1) >> shift) + 1 : 0);
        vec<Huff> codes;
        vec<Pair<int, int> > tree;
        computeHuffcodes(scaled, codes, tree);
        long long bits = frequencyAndCodeBits(scaled, uses, codes);
        if (bits >= best) continue;
        best = bits;
        for (int i = 0; i < codes.size; i++) t.freqs[i] = scaled[i], t.codes[i] = codes[i];
    }
}

// counts: leaves per colour number; cheapest: leaves that take any symbol, counted with the most
// used colour so that it gets the shortest code.
void buildTable(const vec<int>& counts, int cheapest, Table& t, bool shorten = true) {
    t.index.resize(counts.size);
    t.colours.push(0);
    t.index[0] = 0;
    for (int s = 1; s < counts.size; s++) {
        t.index[s] = counts[s] > 0 ? t.colours.size : -1;
        if (counts[s] > 0) t.colours.push(s);
    }
    int most = 0;
    for (int i = 0; i < t.colours.size; i++) {
        t.freqs.push(counts[t.colours[i]]);
        if (t.freqs[i] > t.freqs[most]) most = i;
    }
    t.freqs[most] += cheapest;
    vec<Pair<int, int> > tree;
    computeHuffcodes(t.freqs, t.codes, tree);
    if (shorten) shortenFrequencies(t);
    for (int i = 0; i < t.codes.size; i++) {
        if (t.codes[i].length < t.codes[t.shortest].length) t.shortest = i;
        if (t.codes[i].length > t.longest) t.longest = t.codes[i].length;
    }
}

// Symbol costs for the next planning round: the code length plus a share of the colour's table
// entry; colours not in the table are priced one bit above the longest code plus a whole entry.
void estimateCosts(const Table& t, const vec<int>& counts, vec<int>& costs, int* cheapest) {
    for (int s = 0; s < costs.size; s++) {
        int i = t.index[s];
        costs[s] = i < 0 ? (t.longest + 1) * kBit + kEntryCost
                         : t.codes[i].length * kBit + (s > 0 ? kEntryCost / counts[s] : 0);
    }
    *cheapest = t.codes[t.shortest].length * kBit;
}

// estimateCosts in place; false when nothing changed.
bool updateCosts(const Table& t, const vec<int>& counts, vec<int>& costs, int* cheapest) {
    vec<int> next;
    next.resize(costs.size);
    int next_cheapest = 0;
    estimateCosts(t, counts, next, &next_cheapest);
    bool changed = next_cheapest != *cheapest || memcmp(next.data, costs.data, sizeof(int) * costs.size) != 0;
    next.swap(costs);
    *cheapest = next_cheapest;
    return changed;
}

struct Counter {
    vec<int>& counts;
    int cheapest = 0;
    long long flags = 0;  // split bits: one per region that is not a single pixel

    void operator()(const Rect& r, int step) {
        if (!r.single()) flags++;
        if (step >= 0) counts[step]++;
        if (step == kCheapest) cheapest++;
    }
};

// The length in bytes of the stream writeStream would write for the counted plan.
long long planBytes(const IndexedPage& page, const Counter& counter, const Table& t) {
    long long bits = counter.flags + (long long)counter.cheapest * t.codes[t.shortest].length;
    for (int i = 0; i < t.colours.size; i++) bits += (long long)counter.counts[t.colours[i]] * t.codes[i].length;
    return streamBytes(page.bitmap->width, page.bitmap->height, t.freqs, bits);
}

// The smallest plan found so far, with what rebuilds its table.
struct BestPlan {
    long long bytes = -1;  // -1: none yet
    vec<int> plan;
    vec<int> counts;
    int cheapest = 0;
};

struct Emitter {
    const Table& table;
    BitWriter& bits;

    void operator()(const Rect& r, int step) {
        if (!r.single()) bits.put(step == kSplit, 1);
        if (step == kSplit) return;
        bits.putCode(table.codes[step == kCheapest ? table.shortest : table.index[step]]);
    }
};


void writeStream(const IndexedPage& page, const vec<int>& plan, const Table& t, vec<unsigned char>& out) {
    const Bitmap& b = *page.bitmap;
    vec<Color> colours;
    for (int c : t.colours) colours.push(page.colours[c]);
    writeStreamHead(out, false, b.width, b.height, colours, t.freqs);
    BitWriter bits{out};
    Emitter emit{t, bits};
    int pos = 0;
    walkPlan(plan, pos, Rect{0, 0, b.width, b.height}, emit);
    bits.finish();
}

// The plain encoder's stream of the page with every pixel that may be see-through made so.
void encodePlainly(const IndexedPage& page, const Allowed& allowed, vec<unsigned char>& out) {
    const Bitmap& b = *page.bitmap;
    Bitmap scratch;
    scratch.data = allocPixels(b.width, b.height);
    scratch.width = b.width;
    scratch.height = b.height;
    for (int i = 0; i < page.ids.size; i++) {
        bool see_through = allowed.zero[i] && !(allowed.any && allowed.any[i]);
        scratch.data[i] = see_through ? color_SeeThrough : b.data[i];
    }
    compress(scratch, out, false);
}

// Plans, counts and rebuilds the codes up to `rounds` times, starting from the symbol counts
// given; keeps the smallest plan in best.
void refine(const Allowed& allowed, vec<int>& counts, int rounds, vec<int>& plan, BestPlan& best) {
    const IndexedPage& page = allowed.page;
    const Bitmap& b = *page.bitmap;
    Table table;
    buildTable(counts, 0, table, false);
    vec<int> costs;
    costs.resize(page.colours.size);
    int cheapest = 0;
    estimateCosts(table, counts, costs, &cheapest);
    Rect whole{0, 0, b.width, b.height};
    for (int round = 0; round < rounds; round++) {
        plan.clear();
        Planner planner{allowed, b.width, costs, cheapest, plan};
        planner.region(whole);
        counts.clear();
        counts.resize(page.colours.size);
        Counter counter{counts};
        int pos = 0;
        walkPlan(plan, pos, whole, counter);
        Table t;
        buildTable(counts, counter.cheapest, t, false);
        long long bytes = planBytes(page, counter, t);
        if (t.longest <= 32 && (best.bytes < 0 || bytes < best.bytes)) {
            best.bytes = bytes;
            best.plan.swap(plan);
            best.counts.clear();
            for (int c : counts) best.counts.push(c);
            best.cheapest = counter.cheapest;
        }
        // Unchanged costs would plan the same again.
        if (!updateCosts(t, counts, costs, &cheapest)) break;
    }
}

}  // namespace

void indexPage(const Bitmap& bitmap, IndexedPage& page) {
    page.bitmap = &bitmap;
    indexColours(bitmap, page.ids, page.colours);
}

bool encodePage(const IndexedPage& page, const Bitmap* under, const unsigned char* any, Effort effort,
                vec<unsigned char>& out) {
    const Bitmap& b = *page.bitmap;
    if (b.width <= 0 || b.height <= 0) {
        compress(const_cast<Bitmap&>(b), out, false);
        return true;
    }
    int n = page.ids.size;
    Allowed allowed{page, {}, any, {}, {}};
    allowed.zero.assignZero(n);
    if (under) allowed.markSame(*under);
    allowed.computeKeys();
    allowed.computeRuns(b.width);

    // The rounds settle on different choices depending on where they start, so they may start
    // twice: from every pixel that may be see-through coded so, and from every pixel coded as
    // its own colour.
    BestPlan best;
    vec<int> plan;
    plan.reserve(n + n / 2);
    for (int start = 0; start < effort.starts; start++) {
        vec<int> counts;
        counts.resize(page.colours.size);
        for (int key : allowed.keys)
            if (key >= 0) counts[(key & 1) && start == 0 ? 0 : key >> 1]++;
        refine(allowed, counts, effort.rounds, plan, best);
    }
    if (best.bytes < 0) {
        encodePlainly(page, allowed, out);
        return false;
    }
    Table t;
    buildTable(best.counts, best.cheapest, t);
    writeStream(page, best.plan, t, out);
    return true;
}
