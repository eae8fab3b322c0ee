#include "packer/page_geometry.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "codec/bitmap.h"
#include "packer/limits.h"

// Rounds a side to whole pixels within 1 .. most.
static int pixelsWithin(double side, int most) {
    if (!(side >= 1)) return 1;
    if (side >= most) return most;
    return (int)std::lround(side);
}

PageFit fitPage(double pw, double ph, int width, int height) {
    double scale = std::min(width / pw, height / ph);
    int w = std::min(width, pixelsWithin(pw * scale, width));
    int h = std::min(height, pixelsWithin(ph * scale, height));
    return {(width - w) / 2, (height - h) / 2, w, h};
}

// The largest resolution asked of the PDF library, far beyond any real page's: a box a fraction
// of a point wide would otherwise ask for absurd numbers.
static const double kMaxResolution = 1e7;

bool planPage(double box_width, double box_height, bool turned, int width, int height, PagePlan& plan) {
    if (!(box_width > 0 && box_height > 0 && std::isfinite(box_width) && std::isfinite(box_height))) return false;
    plan.fit = turned ? fitPage(box_height, box_width, width, height) : fitPage(box_width, box_height, width, height);
    int across = turned ? plan.fit.height : plan.fit.width;
    int down = turned ? plan.fit.width : plan.fit.height;
    plan.xres = 72.0 * across / box_width;
    plan.yres = 72.0 * down / box_height;
    return plan.xres <= kMaxResolution && plan.yres <= kMaxResolution;
}

bool halvePage(double box_width, double box_height, bool turned, NotesSide side, double& half_width,
               double& half_height) {
    double across = turned ? box_height : box_width;  // as the page is shown
    double down = turned ? box_width : box_height;
    bool side_by_side = side == NOTES_RIGHT || side == NOTES_LEFT;
    if (side_by_side ? !(across / 2 >= down) : !(down > across && across >= down / 2)) return false;
    // Halving the shown width or height halves one of the page's own sides.
    bool halve_own_width = side_by_side != turned;
    half_width = halve_own_width ? box_width / 2 : box_width;
    half_height = halve_own_width ? box_height : box_height / 2;
    return true;
}

HalfOffsets halfOffsets(NotesSide side, const PageFit& half) {
    switch (side) {
    case NOTES_RIGHT: return {0, 0, half.width, 0};
    case NOTES_LEFT: return {half.width, 0, 0, 0};
    case NOTES_BOTTOM: return {0, 0, 0, half.height};
    default: return {0, 0, 0, 0};
    }
}

// Reads a side: digits only, 1 .. kMaxShowSide; advances text past them.
static bool readSide(const char*& text, long* side) {
    if (*text < '0' || *text > '9') return false;
    char* end;
    *side = strtol(text, &end, 10);
    text = end;
    return *side >= 1 && *side <= kMaxShowSide;
}

bool parseSize(const char* text, int* width, int* height) {
    long w, h;
    if (!readSide(text, &w) || (*text != 'x' && *text != 'X')) return false;
    text++;
    if (!readSide(text, &h) || *text || !sizeWithinLimits(w, h)) return false;
    *width = (int)w;
    *height = (int)h;
    return true;
}
