// Turning a bitmap into a palette and 16-bit indices, and reading pixels back out.
#include "show/image.h"

#include <cstdlib>
#include <cstring>

#include "support/primes.h"
#include "support/util.h"
#include "support/vec.h"

namespace {

const unsigned max_indexed_colors = 65535;  // 0xFFFF would not fit beside the real indices
const size_t max_pixels = 1u << 30;         // keeps every array's byte size within 32 bits

struct ColorNode {
    uint32_t key;
    uint16_t value;
    ColorNode* next;
};

// Colour word -> palette index: chained buckets over a twin-prime count, nodes cut from
// malloc'ed blocks of 100 slots whose first slot links the blocks together.
class ColorMap {
public:
    ColorMap() : bucket_count(firstBucketCount()) { buckets = newBuckets(bucket_count); }

    ~ColorMap() {
        free(buckets);
        while (block) {
            ColorNode* prev = block->next;
            free(block);
            block = prev;
        }
    }

    ColorMap(const ColorMap&) = delete;
    ColorMap& operator=(const ColorMap&) = delete;

    const ColorNode* find(uint32_t key) const {
        for (const ColorNode* n = buckets[key % bucket_count]; n; n = n->next)
            if (n->key == key) return n;
        return nullptr;
    }

    // Adds a key that is not in the map yet.
    void insert(uint32_t key, uint16_t value) {
        if (nodes > bucket_count / 2) grow();
        ColorNode* n = newNode();
        n->key = key;
        n->value = value;
        link(buckets, bucket_count, n);
        nodes++;
    }

private:
    static const int block_slots = 100;

    ColorNode** buckets = nullptr;
    unsigned bucket_count;
    unsigned nodes = 0;
    ColorNode* block = nullptr;  // the newest block; its slot 0 links to the one before
    int block_used = block_slots;

    static unsigned firstBucketCount() {
        for (unsigned p : prime_twins)
            if (p) return p;
        return 3;
    }

    static ColorNode** newBuckets(unsigned count) {
        ColorNode** b = (ColorNode**)calloc(count, sizeof(ColorNode*));
        if (!b) throw Exception_MemOut();
        return b;
    }

    static void link(ColorNode** into, unsigned count, ColorNode* n) {
        ColorNode*& head = into[n->key % count];
        n->next = head;
        head = n;
    }

    // Moves to the first table prime at least twice the count, relinking chains in bucket order.
    void grow() {
        unsigned count = bucket_count;
        for (unsigned p : prime_twins) {
            if (p >= 2u * bucket_count) {
                count = p;
                break;
            }
        }
        if (count == bucket_count) return;
        ColorNode** fresh = newBuckets(count);
        for (unsigned i = 0; i < bucket_count; i++) {
            ColorNode* n = buckets[i];
            while (n) {
                ColorNode* next = n->next;
                link(fresh, count, n);
                n = next;
            }
        }
        free(buckets);
        buckets = fresh;
        bucket_count = count;
    }

    ColorNode* newNode() {
        if (block_used == block_slots) {
            ColorNode* b = (ColorNode*)malloc(block_slots * sizeof(ColorNode));
            if (!b) throw Exception_MemOut();
            b->next = block;
            block = b;
            block_used = 1;
        }
        return &block[block_used++];
    }
};

// A block from smart_realloc, given back unless the caller takes it.
template <class T>
struct SizedBlock {
    T* data;
    unsigned count;

    explicit SizedBlock(size_t n) : data(nullptr), count((unsigned)n) {
        if (n == 0) return;
        data = (T*)smart_realloc(nullptr, 0, bytes());
        if (!data) throw Exception_MemOut();
    }
    ~SizedBlock() { smart_free((char*)data, bytes()); }
    SizedBlock(const SizedBlock&) = delete;
    SizedBlock& operator=(const SizedBlock&) = delete;

    unsigned bytes() const { return count * (unsigned)sizeof(T); }

    void moveTo(Array<T>& array) {
        array.data = data;
        array.count = count;
        array.owned = 1;
        data = nullptr;
        count = 0;
    }
};

template <class T>
void setEmpty(Array<T>& array) {
    SizedBlock<T>(0).moveTo(array);
}

template <class T>
void releaseArray(Array<T>& array) {
    if (array.owned) smart_free((char*)array.data, array.count * (unsigned)sizeof(T));
    array = Array<T>();
}

// Keeps the screen's pixels as they are: for screens with too many colours to index.
void keepFullColor(const Color* pixels, size_t n, Image& image) {
    SizedBlock<Color> colors(n);
    memcpy(colors.data, pixels, n * sizeof(Color));
    colors.moveTo(image.colors);
    setEmpty(image.palette);
    setEmpty(image.pixels);
}

size_t pixelCount(const Bitmap& bitmap) {
    if (!bitmap.data || bitmap.width <= 0 || bitmap.height <= 0) return 0;
    return (size_t)bitmap.width * (size_t)bitmap.height;
}

// Recently seen colours in front of the map: a direct-mapped cache from colour word to index,
// so that most pixels that change colour need no division and no chain walk.
struct RecentColors {
    static const int kBits = 10;
    uint32_t keys[1 << kBits];
    uint16_t values[1 << kBits];

    // Every slot starts as the first pixel's colour, which always has index 0.
    explicit RecentColors(uint32_t first) {
        for (int i = 0; i < 1 << kBits; i++) keys[i] = first, values[i] = 0;
    }
    static unsigned slot(uint32_t key) { return (key * 0x9E3779B1u) >> (32 - kBits); }
};

// Palette indices of the pixels in row-major order, the palette in order of first appearance.
class Indexer {
public:
    Indexer(const Color* pixels, uint16_t* out, vec<Color>& palette_out)
        : palette(palette_out), px(pixels), indices(out), recent(colorKey(pixels[0])) {}

    // False when the pixels have more colours than 16-bit indices can hold.
    bool run(size_t n) {
        uint32_t key = colorKey(px[0]);
        int index = add(key, px[0]);
        size_t i = 0;
        // Spans of pixels of the current colour are stored at once, 16 and then 4 pixels; a
        // block of 4 where the colour changes goes pixel by pixel.
        for (; i + kSpan <= n; i += kSpan) {
            if (sameColour(px + i, kSpan, key)) {
                fillIndices(i, kSpan, (uint16_t)index);
                continue;
            }
            for (size_t block = i; block < i + kSpan; block += 4) {
                if (sameColour(px + block, 4, key)) {
                    fillIndices(block, 4, (uint16_t)index);
                    continue;
                }
                for (size_t k = block; k < block + 4; k++)
                    if ((index = indexOf(k)) < 0) return false;
                key = colorKey(px[block + 3]);
            }
        }
        for (; i < n; i++)
            if (indexOf(i) < 0) return false;
        return true;
    }

private:
    vec<Color>& palette;
    const Color* px;
    uint16_t* indices;
    ColorMap map;
    RecentColors recent;

    static const size_t kSpan = 16;

    // Whether the n pixels from p (a multiple of 4) all have colour key.
    __attribute__((always_inline)) static bool sameColour(const Color* p, size_t n, uint32_t key) {
        const PixelLanes keys = {key, key, key, key};
        PixelLanes four;
        memcpy(&four, p, sizeof four);
        PixelLanes all = (PixelLanes)(four == keys);
        for (size_t k = 4; k < n; k += 4) {
            memcpy(&four, p + k, sizeof four);
            all &= (PixelLanes)(four == keys);
        }
        uint64_t low, high;
        memcpy(&low, &all, 8);
        memcpy(&high, (char*)&all + 8, 8);
        return (low & high) == ~0ull;
    }

    // Sets the n indices from i (a multiple of 4) to one value.
    __attribute__((always_inline)) void fillIndices(size_t i, size_t n, uint16_t index) {
        const uint64_t quad = index * 0x0001000100010001ull;
        for (size_t k = 0; k < n; k += 4) memcpy(indices + i + k, &quad, 8);
    }

    // Indexes pixel i through the cache, without asking whether it repeats the pixel before:
    // where the colour changes that is as good as random. -1 when out of indices.
    __attribute__((always_inline)) int indexOf(size_t i) {
        uint32_t key = colorKey(px[i]);
        unsigned s = RecentColors::slot(key);
        int index = recent.keys[s] == key ? recent.values[s] : lookUp(key, px[i], s);
        indices[i] = (uint16_t)index;
        return index;
    }

    __attribute__((noinline)) int lookUp(uint32_t key, Color c, unsigned s) {
        const ColorNode* node = map.find(key);
        int index = node ? node->value : add(key, c);
        if (index >= 0) {
            recent.keys[s] = key;
            recent.values[s] = (uint16_t)index;
        }
        return index;
    }

    // A colour not seen before takes the next index; -1 when there is none left.
    int add(uint32_t key, Color c) {
        if ((unsigned)palette.size == max_indexed_colors) return -1;
        int index = palette.size;
        map.insert(key, (uint16_t)index);
        palette.push(c);
        return index;
    }
};

}  // namespace

void makeImage(Bitmap& bitmap, Image& image) { makeImage(bitmap, image, nullptr); }

void makeImage(Bitmap& bitmap, Image& image, ImageRoom* room) {
    size_t n = pixelCount(bitmap);
    if (n >= max_pixels) throw Exception_MemOut();
    const Color* px = bitmap.data;

    uint16_t* kept = room && n > 0 ? room->take(n) : nullptr;
    SizedBlock<uint16_t> indices(kept ? 0 : n);
    if (!kept) populatePages(indices.data, indices.bytes());
    vec<Color> palette;
    if (n > 0) {
        Indexer indexer(px, kept ? kept : indices.data, palette);
        if (!indexer.run(n)) {
            if (kept) room->giveBack(kept);
            keepFullColor(px, n, image);
            image.width = bitmap.width;
            image.height = bitmap.height;
            return;
        }
    }

    SizedBlock<Color> colors((size_t)palette.size);
    if (palette.size) memcpy(colors.data, palette.data, palette.size * sizeof(Color));
    colors.moveTo(image.palette);
    if (kept) {
        image.pixels.data = kept;
        image.pixels.count = (unsigned)n;
        image.pixels.owned = 0;
    } else {
        indices.moveTo(image.pixels);
    }
    setEmpty(image.colors);
    image.width = bitmap.width;
    image.height = bitmap.height;
}

int imagePixelCount(const Image& image) {
    if (!image.pixels.owned && !image.pixels.data) return 0;
    return image.colors.data ? (int)image.colors.count : (int)image.pixels.count;
}

void copyPixels(const Image& image, int first, int count, Color* out) {
    if (first < 0 || count <= 0 || count > imagePixelCount(image) - first) return;
    if (image.colors.data) {
        memcpy(out, image.colors.data + first, (size_t)count * sizeof(Color));
        return;
    }
    const Color* palette = image.palette.data;
    const uint16_t* index = image.pixels.data + first;
    for (int i = 0; i < count; i++) out[i] = palette[index[i]];
}

void releaseImage(Image& image) {
    releaseArray(image.palette);
    releaseArray(image.pixels);
    releaseArray(image.colors);
}
