// Pictures scaled to fit a box with their aspect ratio kept, made when first asked for; the
// few used last are kept. The projector keeps the screens fitted to its window, the console
// the screens and notes fitted to its boxes.
#pragma once
#include "app/scale.h"
#include "show/image.h"
#include "support/vec.h"

struct Picture {
    const void* source = nullptr;  // what it shows: a screen's image, a notes stream, ...
    int box_width = 0, box_height = 0;  // the box it was made for
    int width = 0, height = 0;
    vec<Color> pixels;
    unsigned last_use = 0;
};

class Pictures {
public:
    static const int MOST_KEPT = 12;
    // Keeps `kept` pictures, at most MOST_KEPT.
    explicit Pictures(int kept) : count_(kept < MOST_KEPT ? kept : MOST_KEPT) {}

    // The screen's picture for the box.
    const Picture& get(const Image& image, int box_width, int box_height);
    bool has(const Image& image, int box_width, int box_height) {
        return find(&image, box_width, box_height) != nullptr;
    }

    // The picture of `source` for the box, or null when none is kept.
    const Picture* find(const void* source, int box_width, int box_height);
    // Makes the picture of `source` (whose pixels are `pixels`) for the box, in place of the one
    // used longest ago.
    const Picture& make(const void* source, const ScaleSource& pixels, int box_width, int box_height);

private:
    Picture kept_[MOST_KEPT];
    int count_;
    unsigned uses_ = 0;
    Scaler scaler_;

    Picture* slot(const void* source, int box_width, int box_height);
    // The slot used longest ago, given to `source` and sized for the picture of `pixels` in the
    // box; its pixels are left to the caller.
    Picture& take(const void* source, const ScaleSource& pixels, int box_width, int box_height);
};
