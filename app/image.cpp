// Turning a bitmap into a palette and 16-bit indices, and reading pixels back out.
#include "app/image.h"

#include <cstdlib>
#include <cstring>

#include "support/primes.h"
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

// The end of the run of pixels equal to key that starts at from: four pixels at a time.
size_t runEnd(const Color* px, size_t from, size_t n, uint32_t key) {
    const uint64_t pair = (uint64_t)key << 32 | key;
    size_t i = from;
    for (; i + 4 <= n; i += 4) {
        uint64_t a, b;
        memcpy(&a, px + i, 8);
        memcpy(&b, px + i + 2, 8);
        if (a != pair || b != pair) break;
    }
    while (i < n && colorKey(px[i]) == key) i++;
    return i;
}

// Sets indices [from, to) to one value, four at a time.
void fillIndices(uint16_t* out, size_t from, size_t to, uint16_t value) {
    const uint64_t quad = value * 0x0001000100010001ull;
    size_t i = from;
    for (; i + 4 <= to; i += 4) memcpy(out + i, &quad, 8);
    for (; i < to; i++) out[i] = value;
}

}  // namespace

void makeImage(Bitmap& bitmap, Image& image) {
    size_t n = pixelCount(bitmap);
    if (n >= max_pixels) throw Exception_MemOut();
    const Color* px = bitmap.data;

    ColorMap map;
    vec<Color> palette;
    SizedBlock<uint16_t> indices(n);
    // Neighbouring pixels mostly share a colour: a run of one colour needs one look-up.
    for (size_t i = 0; i < n;) {
        uint32_t key = colorKey(px[i]);
        uint16_t index;
        if (const ColorNode* node = map.find(key)) {
            index = node->value;
        } else {
            if ((unsigned)palette.size == max_indexed_colors) {
                keepFullColor(px, n, image);
                image.width = bitmap.width;
                image.height = bitmap.height;
                return;
            }
            index = (uint16_t)palette.size;
            map.insert(key, index);
            palette.push(px[i]);
        }
        size_t end = runEnd(px, i + 1, n, key);
        fillIndices(indices.data, i, end, index);
        i = end;
    }

    SizedBlock<Color> colors((size_t)palette.size);
    if (palette.size) memcpy(colors.data, palette.data, palette.size * sizeof(Color));
    colors.moveTo(image.palette);
    indices.moveTo(image.pixels);
    setEmpty(image.colors);
    image.width = bitmap.width;
    image.height = bitmap.height;
}

int imagePixelCount(const Image& image) {
    if (!image.pixels.owned) return 0;
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
