#include "packer/pdf.h"

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-global.h>
#include <poppler/cpp/poppler-image.h>
#include <poppler/cpp/poppler-page-renderer.h>
#include <poppler/cpp/poppler-page.h>

#include "packer/deck.h"
#include "packer/limits.h"
#include "packer/page_geometry.h"

// Poppler reports every oddity of a file on standard error; the packer gives its own one-line errors.
static void ignorePopplerMessage(const std::string&, void*) {}

static void fillBitmap(Bitmap& bitmap, int width, int height, Color color) {
    bitmap.clear();
    bitmap.data = allocPixels(width, height);
    bitmap.width = width;
    bitmap.height = height;
    for (size_t i = 0, n = (size_t)width * height; i < n; i++) bitmap.data[i] = color;
}

// Copies a rendered 32-bit image (0xAARRGGBB words; opaque over the white paper) into the bitmap at (x, y).
static void copyRendered(const poppler::image& image, Bitmap& to, int x, int y) {
    for (int row = 0; row < image.height(); row++) {
        const char* from = image.const_data() + (size_t)row * image.bytes_per_row();
        Color* out = &to.at(x, y + row);
        for (int col = 0; col < image.width(); col++) {
            uint32_t v;
            memcpy(&v, from + 4 * col, 4);
            out[col] = {(unsigned char)(v >> 16), (unsigned char)(v >> 8), (unsigned char)v, 0};
        }
    }
}

// The talk a worker renders from: opened for its first page and kept for the next ones.
struct OpenTalk {
    std::unique_ptr<poppler::document> doc;
    poppler::page_renderer renderer;
};

static const char* openTalk(const char* path, OpenTalk& talk) {
    if (talk.doc) return nullptr;
    poppler::set_debug_error_function(ignorePopplerMessage, nullptr);
    talk.doc.reset(poppler::document::load_from_file(path));
    if (!talk.doc) return errorf("Could not read the PDF file: %s", path);
    if (talk.doc->is_locked()) return errorf("%s is encrypted; give a PDF that opens without a password", path);
    talk.renderer.set_render_hints(poppler::page_renderer::antialiasing | poppler::page_renderer::text_antialiasing);
    talk.renderer.set_image_format(poppler::image::format_argb32);
    return nullptr;
}

static OpenTalk& workersTalk() {
    static OpenTalk talk;
    return talk;
}

const char* countPdfPages(const char* path, int* pages) {
    OpenTalk& talk = workersTalk();
    if (const char* error = openTalk(path, talk)) return error;
    *pages = talk.doc->pages();
    return *pages > 0 ? nullptr : errorf("%s has no pages", path);
}

// The part of a page that holds the slide: the whole page, or with notes the slide's half,
// and where that part starts in a rendering of the whole page.
struct SlidePart {
    double box_width, box_height;
    bool turned;
    NotesSide notes;
};

// False when the page is not made of a slide and its notes as the notes side says.
static bool slidePart(const poppler::page& page, NotesSide notes, SlidePart& part) {
    poppler::rectf box = page.page_rect(poppler::crop_box);
    part.turned = page.orientation() == poppler::page::landscape || page.orientation() == poppler::page::seascape;
    part.notes = notes;
    part.box_width = box.width();
    part.box_height = box.height();
    return notes == NOTES_NONE ||
           halvePage(box.width(), box.height(), part.turned, notes, part.box_width, part.box_height);
}

// Plans the slide part's rendering fitted into width x height; false when it cannot be rendered.
static bool planFor(const SlidePart& part, int width, int height, PagePlan& plan) {
    return planPage(part.box_width, part.box_height, part.turned, width, height, plan);
}

// Renders the plan's fit-sized piece of the page that starts at (x, y) in the page's rendering.
static bool render(const OpenTalk& talk, const poppler::page& page, const PagePlan& plan, int x, int y,
                   poppler::image& image) {
    image = talk.renderer.render_page(&page, plan.xres, plan.yres, x, y, plan.fit.width, plan.fit.height);
    return image.is_valid() && image.format() == poppler::image::format_argb32 && image.width() == plan.fit.width &&
           image.height() == plan.fit.height;
}

// Renders the slide part, or its notes.
static bool renderPart(const OpenTalk& talk, const poppler::page& page, const SlidePart& part, const PagePlan& plan,
                       bool notes, poppler::image& image) {
    HalfOffsets at = halfOffsets(part.notes, plan.fit);
    return notes ? render(talk, page, plan, at.notes_x, at.notes_y, image)
                 : render(talk, page, plan, at.slide_x, at.slide_y, image);
}

// The grouping rendering: the show's own rendering when it is the same, else one of its own.
static bool renderForGrouping(const OpenTalk& talk, const poppler::page& page, const SlidePart& part,
                              const PdfOptions& o, const PagePlan& shown, const poppler::image& image, Bitmap& out) {
    PagePlan plan;
    if (!planFor(part, kGroupingWidth, kGroupingHeight, plan)) return false;
    poppler::image own;
    const poppler::image* grouped = &image;
    if (plan.fit.width != shown.fit.width || plan.fit.height != shown.fit.height) {
        if (!renderPart(talk, page, part, plan, false, own)) return false;
        grouped = &own;
    } else if (plan.fit.width == o.width && plan.fit.height == o.height) {
        return true;  // the show's page itself
    }
    fillBitmap(out, plan.fit.width, plan.fit.height, o.background);
    copyRendered(*grouped, out, 0, 0);
    return true;
}

static const char* const notes_sides[] = {"", "right", "left", "bottom"};

const char* renderPdfPage(const char* path, int i, const PdfOptions& options, RenderedPage& out) {
    OpenTalk& talk = workersTalk();
    if (const char* error = openTalk(path, talk)) return error;
    std::unique_ptr<poppler::page> page(talk.doc->create_page(i));
    SlidePart part;
    if (page && !slidePart(*page, options.notes, part))
        return errorf("Page %d of %s does not hold a slide with its notes %s it (--notes %s)", i + 1, path,
                      options.notes == NOTES_BOTTOM ? "below" : "beside", notes_sides[options.notes]);
    PagePlan plan;
    poppler::image image;
    bool rendered = page && planFor(part, options.width, options.height, plan) &&
                    renderPart(talk, *page, part, plan, false, image);
    if (rendered) {
        fillBitmap(out.show, options.width, options.height, options.background);
        copyRendered(image, out.show, plan.fit.x, plan.fit.y);
    }
    if (rendered && options.steps) rendered = renderForGrouping(talk, *page, part, options, plan, image, out.grouping);
    if (rendered && options.notes != NOTES_NONE) {
        rendered = renderPart(talk, *page, part, plan, true, image);
        if (rendered) {
            fillBitmap(out.notes, plan.fit.width, plan.fit.height, options.background);
            copyRendered(image, out.notes, 0, 0);
        }
    }
    if (!rendered) return errorf("Could not render page %d of %s", i + 1, path);
    poppler::byte_array utf8 = page->label().to_utf8();
    out.label.resize((int)utf8.size());
    if (utf8.size()) memcpy(out.label.data, utf8.data(), utf8.size());
    return nullptr;
}

// The most common colour of a page: its background.
static Color mostCommonColor(const Bitmap& page) {
    std::unordered_map<uint32_t, int> counts;
    uint32_t best = 0;
    int best_count = 0;
    for (size_t i = 0, n = (size_t)page.width * page.height; i < n; i++) {
        uint32_t key = colorKey(page.data[i]);
        int count = ++counts[key];
        if (count > best_count) best_count = count, best = key;
    }
    return {(unsigned char)best, (unsigned char)(best >> 8), (unsigned char)(best >> 16), (unsigned char)(best >> 24)};
}

// The share of a's pixels other than its background that b leaves exactly as they are (1 for a blank a).
static double keptShare(const Bitmap& a, const Bitmap& b, Color background) {
    size_t drawn = 0, kept = 0;
    for (size_t i = 0, n = (size_t)a.width * a.height; i < n; i++) {
        if (a.data[i] == background) continue;
        drawn++;
        kept += a.data[i] == b.data[i];
    }
    return drawn ? (double)kept / drawn : 1.0;
}

// An overlay step is drawn over the page before: same background, and what was drawn mostly stays.
// Frames that merely share a label (section pages, closing frames) replace the page's content.
bool looksLikeStep(const Bitmap& a, const Bitmap& b) {
    if (a.width != b.width || a.height != b.height) return false;
    Color background = mostCommonColor(a);
    return mostCommonColor(b) == background && keptShare(a, b, background) >= 0.5;
}

bool continuesSlide(const GroupedPage* before, const GroupedPage& page, bool steps, Grouping& g) {
    bool repeated = steps && before && page.label[0] && strcmp(page.label, before->label) == 0;
    bool step = repeated && looksLikeStep(*before->rendering, *page.rendering);
    g.slides += !step;
    g.steps += step;
    g.relabelled += repeated && !step;
    return step;
}

bool parseColor(const char* text, Color* color) {
    if (text[0] == '#') text++;
    if (strlen(text) != 6 || strspn(text, "0123456789abcdefABCDEF") != 6) return false;
    unsigned long v = strtoul(text, nullptr, 16);
    *color = {(unsigned char)(v >> 16), (unsigned char)(v >> 8), (unsigned char)v, 0};
    return true;
}

bool isPdfFile(const char* path) {
    size_t n = strlen(path);
    if (n >= 4 && strcasecmp(path + n - 4, ".pdf") == 0) return true;
    char head[5] = {0};
    FILE* in = fopen(path, "rb");
    if (!in) return false;
    bool pdf = fread(head, 1, 5, in) == 5 && memcmp(head, "%PDF-", 5) == 0;
    fclose(in);
    return pdf;
}
