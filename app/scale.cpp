// The filter runs across every source row first, then down the columns. Weights are 8-bit
// fixed point: across, the four channels of a pixel are weighted at once in the 16-bit lanes of
// one 64-bit word; down, whole rows of bytes are weighted, which the compiler vectorises.
#include "app/scale.h"

#include <cmath>
#include <cstring>

static const int WEIGHT_ONE = 256;

void fitInto(int width, int height, int box_width, int box_height, int& out_width, int& out_height) {
    if ((long long)box_width * height <= (long long)box_height * width) {
        out_width = box_width;
        out_height = (int)(((long long)height * box_width * 2 + width) / (2LL * width));
    } else {
        out_height = box_height;
        out_width = (int)(((long long)width * box_height * 2 + height) / (2LL * height));
    }
    if (out_width < 1) out_width = 1;
    if (out_height < 1) out_height = 1;
}

Rect placeIn(const Rect& box, int width, int height) {
    return Rect{box.x + (box.width - width) / 2, box.y + (box.height - height) / 2, width, height};
}

static double triangle(double x) {
    x = fabs(x);
    return x < 1 ? 1 - x : 0;
}

// Rounds the weights to fixed point summing to exactly WEIGHT_ONE (the largest one takes the
// rounding error) and drops zero weights at both ends.
static void quantise(const double* exact, int n, double total, uint16_t* out, int& first, int& count) {
    int sum = 0, largest = 0;
    for (int k = 0; k < n; k++) {
        out[k] = (uint16_t)lround(exact[k] / total * WEIGHT_ONE);
        sum += out[k];
        if (out[k] > out[largest]) largest = k;
    }
    out[largest] = (uint16_t)(out[largest] + WEIGHT_ONE - sum);
    int lead = 0;
    while (lead < n - 1 && out[lead] == 0) lead++;
    int end = n;
    while (end > lead + 1 && out[end - 1] == 0) end--;
    if (lead) memmove(out, out + lead, (size_t)(end - lead) * sizeof *out);
    first += lead;
    count = end - lead;
}

void makeTaps(int source_size, int output_size, Taps& taps) {
    double scale = (double)source_size / output_size;
    double widen = scale > 1 ? scale : 1;  // the filter covers a source pixel's spacing at least
    double support = widen;
    taps.per_output = (int)ceil(support) * 2 + 1;
    taps.first.assignZero(output_size);
    taps.count.assignZero(output_size);
    taps.weights.assignZero(output_size * taps.per_output);
    vec<double> exact;
    exact.assignZero(taps.per_output);
    for (int o = 0; o < output_size; o++) {
        double centre = (o + 0.5) * scale;
        int lo = (int)(centre - support + 0.5);
        int hi = (int)(centre + support + 0.5);
        if (lo < 0) lo = 0;
        if (hi > source_size) hi = source_size;
        if (hi - lo > taps.per_output) hi = lo + taps.per_output;
        double total = 0;
        for (int s = lo; s < hi; s++) total += exact[s - lo] = triangle((s - centre + 0.5) / widen);
        taps.first[o] = lo;
        if (total <= 0) {  // cannot happen with hi > lo, but never divide by zero
            exact[0] = total = 1;
            hi = lo + 1;
        }
        quantise(exact.data, hi - lo, total, &taps.weights[o * taps.per_output], taps.first[o], taps.count[o]);
    }
}

// A colour with one 16-bit lane a channel, and back.
static inline uint64_t spread(Color c) {
    uint64_t v = colorKey(c);
    v = (v | v << 16) & 0x0000FFFF0000FFFFull;
    return (v | v << 8) & 0x00FF00FF00FF00FFull;
}

static inline uint32_t gather(uint64_t v) {
    uint64_t t = v | v >> 8;
    return (uint32_t)((t & 0xFFFF) | (t >> 16 & 0xFFFF0000));
}

static Color colorOf(uint32_t key) {
    Color c;
    memcpy(&c, &key, sizeof c);
    return c;
}

ScaleSource sourceOf(const Image& image) {
    ScaleSource s;
    if (imagePixelCount(image) == 0) return s;
    s.width = image.width;
    s.height = image.height;
    s.colors = image.colors.data;
    s.indices = image.pixels.data;
    s.palette = image.palette.data;
    s.palette_count = (int)image.palette.count;
    return s;
}

ScaleSource sourceOf(const Bitmap& bitmap) {
    ScaleSource s;
    if (!bitmap.data || bitmap.width <= 0 || bitmap.height <= 0) return s;
    s.width = bitmap.width;
    s.height = bitmap.height;
    s.colors = bitmap.data;
    return s;
}

void Scaler::spreadRow(const ScaleSource& source, int y) {
    int w = source.width;
    uint64_t* out = line.data;
    if (source.colors) {
        const Color* row = source.colors + (size_t)y * w;
        for (int x = 0; x < w; x++) out[x] = spread(row[x]);
    } else {
        const uint16_t* row = source.indices + (size_t)y * w;
        for (int x = 0; x < w; x++) out[x] = palette[row[x]];
    }
}

bool Scaler::sameRows(const ScaleSource& source, int a, int b) const {
    size_t w = (size_t)source.width;
    if (source.colors) return memcmp(source.colors + a * w, source.colors + b * w, w * sizeof(Color)) == 0;
    return memcmp(source.indices + a * w, source.indices + b * w, w * sizeof(uint16_t)) == 0;
}

// One output pixel from its source pixels. Two equal pixels (the common case in a flat area
// being enlarged) give their own colour.
static inline uint32_t weigh(const uint64_t* in, const uint16_t* w, int n) {
    if (n == 2 && in[0] == in[1]) return gather(in[0]);
    uint64_t sum = 0x0080008000800080ull;  // a half in every lane, for rounding
    for (int k = 0; k < n; k++) sum += in[k] * w[k];
    return gather(sum >> 8 & 0x00FF00FF00FF00FFull);
}

// Rows equal to the row above (slides have many) are copied instead of filtered again.
void Scaler::scaleAcross(const ScaleSource& source, int width) {
    line.resize(source.width);
    across.resize(source.height * width);
    origin.resize(source.height);
    for (int y = 0; y < source.height; y++) {
        Color* out = across.data + (size_t)y * width;
        if (y > 0 && sameRows(source, y, y - 1)) {
            origin[y] = origin[y - 1];
            memcpy(out, out - width, (size_t)width * sizeof(Color));
            continue;
        }
        origin[y] = y;
        spreadRow(source, y);
        for (int x = 0; x < width; x++)
            out[x] = colorOf(weigh(line.data + columns.first[x], &columns.weights[x * columns.per_output],
                                   columns.count[x]));
    }
}

// Output rows whose source rows are all equal are copies of one resampled row.
void Scaler::scaleDown(int width, int height, Color* out) {
    int bytes = width * 4;
    sums.resize(bytes);
    uint16_t* sum = sums.data;
    for (int y = 0; y < height; y++) {
        int first = rows.first[y], n = rows.count[y];
        uint8_t* row = (uint8_t*)(out + (size_t)y * width);
        const uint8_t* top = (const uint8_t*)(across.data + (size_t)first * width);
        if (origin[first + n - 1] == origin[first]) {
            memcpy(row, top, (size_t)bytes);
            continue;
        }
        const uint16_t* w = &rows.weights[y * rows.per_output];
        if (n == 2) {
            const uint8_t* next = top + bytes;
            uint16_t w0 = w[0], w1 = w[1];
            for (int i = 0; i < bytes; i++) row[i] = (uint8_t)((WEIGHT_ONE / 2 + w0 * top[i] + w1 * next[i]) >> 8);
            continue;
        }
        for (int i = 0; i < bytes; i++) sum[i] = WEIGHT_ONE / 2;
        for (int k = 0; k < n; k++) {
            const uint8_t* in = top + (size_t)k * bytes;
            uint16_t weight = w[k];
            for (int i = 0; i < bytes; i++) sum[i] = (uint16_t)(sum[i] + weight * in[i]);
        }
        for (int i = 0; i < bytes; i++) row[i] = (uint8_t)(sum[i] >> 8);
    }
}

void Scaler::scale(const ScaleSource& source, int width, int height, Color* out) {
    if (source.width <= 0 || source.height <= 0) {
        memset((void*)out, 0, (size_t)width * height * sizeof(Color));
        return;
    }
    if (!source.colors) {
        palette.resize(source.palette_count);
        for (int i = 0; i < source.palette_count; i++) palette[i] = spread(source.palette[i]);
    }
    makeTaps(source.width, width, columns);
    makeTaps(source.height, height, rows);
    scaleAcross(source, width);
    scaleDown(width, height, out);
}
