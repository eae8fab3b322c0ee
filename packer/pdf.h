// PDF talks as pages: rendering pages with the PDF library and grouping pages into slides. The
// packer itself never opens a talk: worker processes do (see pdf_pages.h).
#pragma once
#include "codec/bitmap.h"
#include "packer/page_geometry.h"
#include "support/vec.h"

struct PdfOptions {
    int width = 1005;  // the show's size
    int height = 754;
    Color background = {0, 0, 0, 0};  // around pages of another aspect ratio
    bool steps = true;                // false: every page is its own slide
    NotesSide notes = NOTES_NONE;     // each page holds its slide and notes side by side or stacked
};

// Opens the talk and counts its pages. Returns null or a one-line error.
const char* countPdfPages(const char* path, int* pages);

// A page rendered for the show, and for grouping: the page alone fitted into the grouping size
// (kGroupingWidth x kGroupingHeight), whatever the show's size and background. When that is
// exactly the show's page, `grouping` stays empty.
struct RenderedPage {
    Bitmap show;
    Bitmap grouping;
    Bitmap notes;     // with notes: the page's notes half, at the size of the slide it shows
    vec<char> label;  // UTF-8, not terminated; empty when the page has none
};

// Renders page i (from 0) at the show's size, antialiased, fitted and centred on the background;
// with steps on, also for grouping. With notes, the slide is the page's slide half and the notes
// half is rendered at the same scale. The talk stays open for this process's next pages. Returns
// null or a one-line error.
const char* renderPdfPage(const char* path, int i, const PdfOptions& options, RenderedPage& page);

// True when page b is an animation step of page a: both have the same background (most common
// colour) and b keeps at least half of a's other pixels exactly.
bool looksLikeStep(const Bitmap& a, const Bitmap& b);

struct Grouping {
    int slides = 0;
    int steps = 0;
    int relabelled = 0;  // pages that repeat the label before them but are new slides
};

// A page as grouping sees it: its label (NUL-terminated, "" for none) and its grouping rendering.
struct GroupedPage {
    const char* label;
    const Bitmap* rendering;
};

// Whether a page continues the slide of the page before it (null for the first page): it
// repeats that page's label and looks like a step of it. With steps off, none does. Counts the
// page into g.
bool continuesSlide(const GroupedPage* before, const GroupedPage& page, bool steps, Grouping& g);

// Parses "RRGGBB" (an optional leading '#').
bool parseColor(const char* text, Color* color);

// True when the file names a PDF: its name ends in .pdf or its first bytes are "%PDF-".
bool isPdfFile(const char* path);
