// PDF talks as pages: rendering every page at the show's size and grouping pages into slides.
#pragma once
#include "codec/bitmap.h"
#include "support/vec.h"

struct PdfOptions {
    int width = 1005;  // the show's size
    int height = 754;
    Color background = {0, 0, 0, 0};  // around pages of another aspect ratio
    bool steps = true;                // false: every page is its own slide
};

// Where a page of pw x ph points lands in a show of width x height: the largest rectangle of the
// page's aspect ratio (to the nearest pixel), centred.
struct PageFit {
    int x, y, width, height;
};
PageFit fitPage(double pw, double ph, int width, int height);

// Renders every page of the PDF at the show's size, antialiased, the page fitted and centred on
// the background. Labels receives each page's label (malloc'ed; empty when it has none). Calls
// progress(i, n) before page i. Returns null or a one-line error.
const char* renderPdf(const char* path, const PdfOptions& options, vec<Bitmap>& pages, vec<char*>& labels,
                      void (*progress)(int i, int n));

// True when page b is an animation step of page a: both have the same background (most common
// colour) and b keeps at least half of a's other pixels exactly.
bool looksLikeStep(const Bitmap& a, const Bitmap& b);

struct Grouping {
    int slides = 0;
    int steps = 0;
    int relabelled = 0;  // pages that repeat the label before them but are new slides
};

// Sets flags (true: continues the slide before) from the labels: a page that repeats the label of
// the page before and looks like a step of it continues that slide. With steps off, none does.
Grouping groupPages(const vec<char*>& labels, const vec<Bitmap>& pages, bool steps, vec<bool>& flags);

// Parses "WxH" (each 1 .. 65535, at most 2^26 pixels) and "RRGGBB" (an optional leading '#').
bool parseSize(const char* text, int* width, int* height);
bool parseColor(const char* text, Color* color);

// True when the file names a PDF: its name ends in .pdf or its first bytes are "%PDF-".
bool isPdfFile(const char* path);
