#include "app/pictures.h"

Picture* Pictures::slot(const void* source, int box_width, int box_height) {
    for (int i = 0; i < count_; i++) {
        Picture& p = kept_[i];
        if (p.source == source && p.box_width == box_width && p.box_height == box_height) return &p;
    }
    return nullptr;
}

const Picture* Pictures::find(const void* source, int box_width, int box_height) {
    Picture* p = slot(source, box_width, box_height);
    if (p) p->last_use = ++uses_;
    return p;
}

Picture& Pictures::take(const void* source, const ScaleSource& pixels, int box_width, int box_height) {
    Picture* p = &kept_[0];
    for (int i = 1; i < count_; i++)
        if (kept_[i].last_use < p->last_use) p = &kept_[i];
    p->source = source;
    p->box_width = box_width;
    p->box_height = box_height;
    p->last_use = ++uses_;
    if (pixels.width > 0)
        fitInto(pixels.width, pixels.height, box_width, box_height, p->width, p->height);
    else
        p->width = p->height = 1;
    p->pixels.resize(p->width * p->height);
    return *p;
}

const Picture& Pictures::make(const void* source, const ScaleSource& pixels, int box_width, int box_height) {
    Picture& p = take(source, pixels, box_width, box_height);
    scaler_.scale(pixels, p.width, p.height, p.pixels.data);
    return p;
}

// A screen that fits at its own size keeps its own pixels exactly (the filter would give them
// too, slower).
const Picture& Pictures::get(const Image& image, int box_width, int box_height) {
    if (const Picture* p = find(&image, box_width, box_height)) return *p;
    ScaleSource pixels = sourceOf(image);
    Picture& p = take(&image, pixels, box_width, box_height);
    if (pixels.width > 0 && p.width == image.width && p.height == image.height)
        copyPixels(image, 0, imagePixelCount(image), p.pixels.data);
    else
        scaler_.scale(pixels, p.width, p.height, p.pixels.data);
    return p;
}
