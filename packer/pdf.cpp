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

PageFit fitPage(double pw, double ph, int width, int height) {
    double scale = std::min(width / pw, height / ph);
    int w = std::max(1, std::min(width, (int)std::lround(pw * scale)));
    int h = std::max(1, std::min(height, (int)std::lround(ph * scale)));
    return {(width - w) / 2, (height - h) / 2, w, h};
}

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

static bool renderPage(const poppler::page_renderer& renderer, const poppler::page& page, const PdfOptions& o,
                       Bitmap& out) {
    poppler::rectf box = page.page_rect(poppler::crop_box);
    if (!(box.width() > 0 && box.height() > 0)) return false;
    bool turned = page.orientation() == poppler::page::landscape || page.orientation() == poppler::page::seascape;
    PageFit fit = turned ? fitPage(box.height(), box.width(), o.width, o.height)
                         : fitPage(box.width(), box.height(), o.width, o.height);
    // Each of the page's own axes (before its rotation) is scaled to its whole pixel count, as
    // poppler's own renderer does for a given pixel size.
    int across = turned ? fit.height : fit.width, down = turned ? fit.width : fit.height;
    poppler::image image = renderer.render_page(&page, 72.0 * across / box.width(), 72.0 * down / box.height(), 0, 0,
                                                fit.width, fit.height);
    if (!image.is_valid() || image.format() != poppler::image::format_argb32 || image.width() != fit.width ||
        image.height() != fit.height)
        return false;
    fillBitmap(out, o.width, o.height, o.background);
    copyRendered(image, out, fit.x, fit.y);
    return true;
}

static char* labelText(const poppler::page& page) {
    poppler::byte_array utf8 = page.label().to_utf8();
    return strndup(utf8.data(), utf8.size());
}

const char* renderPdf(const char* path, const PdfOptions& options, vec<Bitmap>& pages, vec<char*>& labels,
                      void (*progress)(int i, int n)) {
    poppler::set_debug_error_function(ignorePopplerMessage, nullptr);
    std::unique_ptr<poppler::document> doc(poppler::document::load_from_file(path));
    if (!doc) return errorf("Could not read the PDF file: %s", path);
    if (doc->is_locked()) return errorf("%s is encrypted; give a PDF that opens without a password", path);
    int n = doc->pages();
    if (n <= 0) return errorf("%s has no pages", path);
    poppler::page_renderer renderer;
    renderer.set_render_hints(poppler::page_renderer::antialiasing | poppler::page_renderer::text_antialiasing);
    renderer.set_image_format(poppler::image::format_argb32);
    pages.resize(n);
    for (int i = 0; i < n; i++) {
        if (progress) progress(i, n);
        std::unique_ptr<poppler::page> page(doc->create_page(i));
        if (!page || !renderPage(renderer, *page, options, pages[i]))
            return errorf("Could not render page %d of %s", i + 1, path);
        labels.push(labelText(*page));
    }
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

Grouping groupPages(const vec<char*>& labels, const vec<Bitmap>& pages, bool steps, vec<bool>& flags) {
    Grouping g;
    flags.resize(pages.size);
    for (int i = 0; i < pages.size; i++) {
        bool repeated = steps && i > 0 && labels[i][0] && strcmp(labels[i], labels[i - 1]) == 0;
        flags[i] = repeated && looksLikeStep(pages[i - 1], pages[i]);
        g.slides += !flags[i];
        g.steps += flags[i];
        g.relabelled += repeated && !flags[i];
    }
    return g;
}

bool parseSize(const char* text, int* width, int* height) {
    char x, end;
    long w, h;
    if (sscanf(text, "%ld%c%ld%c", &w, &x, &h, &end) != 3 || (x != 'x' && x != 'X')) return false;
    if (w < 1 || h < 1 || !sizeWithinLimits(w, h)) return false;
    *width = (int)w;
    *height = (int)h;
    return true;
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
