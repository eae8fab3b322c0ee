// The arithmetic of PDF pages, apart from the PDF library: where a page lands in the show, the
// resolution it is rendered at, and the show's size.
#pragma once

// Where a page of pw x ph points lands in a show of width x height: the largest rectangle of the
// page's aspect ratio (to the nearest pixel, at least one), centred.
struct PageFit {
    int x, y, width, height;
};
PageFit fitPage(double pw, double ph, int width, int height);

// How a page is rendered into a show of width x height: where it lands, and the resolution along
// each of the page's own axes (before its turn), which scales each to its whole pixel count.
struct PagePlan {
    PageFit fit;
    double xres, yres;  // dots per inch
};

// Plans a page whose box is box_width x box_height points, turned a quarter or not. False when
// the box cannot be rendered: a side that is not a positive finite number, or a resolution out
// of range.
bool planPage(double box_width, double box_height, bool turned, int width, int height, PagePlan& plan);

// Parses "WxH": each side 1 .. kMaxShowSide, the pixels within the codec's kMaxPixels.
bool parseSize(const char* text, int* width, int* height);
