// The size and box arithmetic of PDF pages: a page box of any two doubles (turned or not) and a
// --size text of any bytes. An accepted size is within the show's limits; a page planned for it
// lands inside the show, centred, at least one pixel each way, at a finite positive resolution;
// a page of a slide and its notes splits into two halves that do not overlap.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "codec/bitmap.h"
#include "packer/limits.h"
#include "packer/page_geometry.h"

static void checkFit(const PageFit& f, int width, int height) {
    if (f.width < 1 || f.height < 1 || f.width > width || f.height > height) abort();
    if (f.x != (width - f.width) / 2 || f.y != (height - f.height) / 2) abort();
    if (f.x + f.width > width || f.y + f.height > height) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 17) return 0;
    double box_width, box_height;
    memcpy(&box_width, data, 8);
    memcpy(&box_height, data + 8, 8);
    bool turned = data[16] & 1;
    std::string text((const char*)data + 17, size - 17);

    int width = 0, height = 0;
    if (parseSize(text.c_str(), &width, &height)) {
        if (width < 1 || height < 1 || width > kMaxShowSide || height > kMaxShowSide) abort();
        if ((long long)width * height > kMaxPixels) abort();
    } else {  // still plan the page, for a show of a size taken from the bytes
        width = 1 + data[16] * 7 % kMaxShowSide;
        height = 1 + (size * 13) % 1000;
    }
    checkFit(fitPage(box_width, box_height, width, height), width, height);
    PagePlan plan;
    if (planPage(box_width, box_height, turned, width, height, plan)) {
        checkFit(plan.fit, width, height);
        if (!(plan.xres > 0 && plan.yres > 0 && std::isfinite(plan.xres) && std::isfinite(plan.yres))) abort();
    }
    // A page of a slide and its notes halves one of its sides, and the two halves lie side by
    // side (or one above the other) within the whole page's rendering.
    for (NotesSide side : {NOTES_RIGHT, NOTES_LEFT, NOTES_BOTTOM}) {
        double hw, hh;
        if (!halvePage(box_width, box_height, turned, side, hw, hh)) continue;
        if (!(hw == box_width / 2 && hh == box_height) && !(hw == box_width && hh == box_height / 2)) abort();
        if (!planPage(hw, hh, turned, width, height, plan)) continue;
        HalfOffsets at = halfOffsets(side, plan.fit);
        int across = side == NOTES_BOTTOM ? plan.fit.width : 2 * plan.fit.width;
        int down = side == NOTES_BOTTOM ? 2 * plan.fit.height : plan.fit.height;
        for (int x : {at.slide_x, at.notes_x})
            if (x < 0 || x + plan.fit.width > across) abort();
        for (int y : {at.slide_y, at.notes_y})
            if (y < 0 || y + plan.fit.height > down) abort();
        if (at.slide_x == at.notes_x && at.slide_y == at.notes_y) abort();
    }
    return 0;
}
