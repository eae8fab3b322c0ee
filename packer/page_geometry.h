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

// Where a presenter's notes sit on the pages of a talk made for a second screen: every page
// holds the slide and, beside it or below it, its notes page of the same size.
enum NotesSide { NOTES_NONE, NOTES_RIGHT, NOTES_LEFT, NOTES_BOTTOM };

// The box of one half of such a page, in the page's own axes (before its turn), into
// half_width x half_height. False when the page is not made that way: for right and left each
// half must be at least as wide as high (a page of one slide is not); for bottom as well, and
// the page must be higher than wide.
bool halvePage(double box_width, double box_height, bool turned, NotesSide side, double& half_width,
               double& half_height);

// Where the slide and its notes start in a rendering of the whole page in which each half is
// half.width x half.height pixels.
struct HalfOffsets {
    int slide_x, slide_y, notes_x, notes_y;
};
HalfOffsets halfOffsets(NotesSide side, const PageFit& half);

// Parses "WxH": each side 1 .. kMaxShowSide, the pixels within the codec's kMaxPixels.
bool parseSize(const char* text, int* width, int* height);
