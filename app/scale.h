// Fitting pictures into boxes, and resampling them to another size: a separable triangle
// (bilinear) filter with pixel centres aligned, widened to the source pixels' spacing when
// shrinking so that nothing aliases.
#pragma once
#include "show/image.h"
#include "support/vec.h"

struct Rect {
    int x, y, width, height;
};

// The size of a width x height picture scaled to fit a box_width x box_height box with its
// aspect ratio kept: one side fills the box, the other is rounded to the nearest pixel.
void fitInto(int width, int height, int box_width, int box_height, int& out_width, int& out_height);

// Where a picture of width x height goes in a box: in its middle.
Rect placeIn(const Rect& box, int width, int height);

// The source pixels and 8-bit weights (summing to 256) of every output pixel along one axis.
struct Taps {
    int per_output = 0;        // weights stored for each output
    vec<int> first, count;     // per output: first source pixel and number of weights used
    vec<uint16_t> weights;     // per_output entries for each output
};

void makeTaps(int source_size, int output_size, Taps& taps);

// Pixels to be scaled: a screen's compact image (palette indices or colours) or a bitmap.
struct ScaleSource {
    int width = 0, height = 0;
    const Color* colors = nullptr;    // row-major pixels, or null when indexed
    const uint16_t* indices = nullptr;
    const Color* palette = nullptr;
    int palette_count = 0;
};

// An image without pixels gives a source without pixels.
ScaleSource sourceOf(const Image& image);
ScaleSource sourceOf(const Bitmap& bitmap);

// Keeps the work buffers between pictures.
class Scaler {
public:
    // Writes the source resampled to width x height into out (row-major, no padding). A source
    // without pixels gives black.
    void scale(const ScaleSource& source, int width, int height, Color* out);
    void scale(const Image& image, int width, int height, Color* out) { scale(sourceOf(image), width, height, out); }

private:
    Taps columns, rows;
    vec<uint64_t> palette;  // the image's palette with one 16-bit lane a channel
    vec<uint64_t> line;     // one source row, spread the same way
    vec<Color> across;      // every source row resampled across: source height x width
    vec<int> origin;        // per source row: the first row of the run of equal rows it is in
    vec<uint16_t> sums;     // one output row's weighted sums, a channel at a time

    void spreadRow(const ScaleSource& source, int y);
    bool sameRows(const ScaleSource& source, int a, int b) const;
    void scaleAcross(const ScaleSource& source, int width);
    void scaleDown(int width, int height, Color* out);
};
