#include "show/unpack.h"

#include <cstdio>
#include <cstring>

#include "codec/codec.h"
#include "png/png.h"

bool debug = false;

static const int DEBUG_SCREENS = 20;

// Every record may declare the largest bitmap, and records may share one payload, so a tiny
// archive could ask for any amount of memory. The pixels held at once are bounded instead.
static const long long kMaxBackgroundPixels = 2 * kMaxPixels;  // all backgrounds together
static const long long kMaxShowPixels = 16 * kMaxPixels;       // all screens' images together

static void releaseAll(vec<Bitmap>& bitmaps) {
    for (int i = 0; i < bitmaps.size; i++) bitmaps[i].clear();
    bitmaps.release();
}

// The colour of a picture that is all one colour, else null: a screen over such a background is
// decoded with that colour for its see-through pixels instead of copying them from it.
static const Color* oneColour(const Bitmap& b) {
    if (b.width <= 0 || b.height <= 0) return nullptr;
    for (int x = 1; x < b.width; x++)
        if (b.data[x] != b.data[0]) return nullptr;
    for (int y = 1; y < b.height; y++)
        if (memcmp(b.data + (size_t)y * b.width, b.data, (size_t)b.width * sizeof(Color)) != 0) return nullptr;
    return b.data;
}

// The first screen has nothing before it to build on, and fixes the size of every screen kept.
static const char* checkFirstScreen(bool over_previous, int width, int height, int kept) {
    if (over_previous) return "The first screen cannot build on a previous one.";
    if ((long long)width * height * kept > kMaxShowPixels) return "Screens too large to hold.";
    return nullptr;
}

static const char* checkSizes(int screen_width, int screen_height, const Bitmap& under, int width, int height) {
    if (screen_width != width || screen_height != height) return "Screens differ in size.";
    if (under.width < width || under.height < height) return "Background smaller than its screen.";
    return nullptr;
}

// Writes screen i in the export modes; *slide counts the slides written so far.
static const char* exportScreen(RunMode mode, const Show& show, int i, const Bitmap& screen, int* slide,
                                char* name, size_t name_size) {
    if (mode == RUN_PNG_SCREENS) {
        snprintf(name, name_size, "screen_%.3d.png", i);
    } else if (mode == RUN_PNG_SLIDES) {
        bool ends_slide = i == show.flags.size - 1 || !show.flags[i + 1];
        if (!ends_slide) return nullptr;
        snprintf(name, name_size, "slide_%.2d.png", ++*slide);
    } else {
        return nullptr;
    }
    if (writePng(name, screen)) return nullptr;
    static char message[96];
    snprintf(message, sizeof message, "Could not write: %s", name);
    return message;
}

const char* unpackShow(File& archive, const ArchiveIndex& index, RunMode mode, Show& show, FILE* progress,
                       const ScreenCheck& check) {
    const char* error = nullptr;
    int nb = index.nb, ns = index.ns;

    vec<Bitmap> backgrounds;
    backgrounds.resize(nb);
    show.images.resize(ns);
    show.flags.resize(ns);
    for (int i = 0; i < ns; i++) show.flags[i] = index.flags[i];

    vec<unsigned char> payload;
    vec<const Color*> plain;  // per background: its one colour, or null
    plain.resize(nb);
    int selector = 0;
    long long background_pixels = 0;
    for (int i = 0; i < nb && !error; i++) {
        error = readRecord(archive, index, i, &selector, payload);
        if (progress) fprintf(progress, "** Decompressing background %d/%d\r", i + 1, nb), fflush(progress);
        if (!error) error = decompress(backgrounds[i], payload);
        payload.release();
        if (!error) plain[i] = oneColour(backgrounds[i]);
        background_pixels += (long long)backgrounds[i].width * backgrounds[i].height;
        if (!error && background_pixels > kMaxBackgroundPixels) error = "Backgrounds too large to hold.";
    }
    if (progress) fputc('\n', progress);

    // Each screen is decoded over what lies under it straight into one reused screen bitmap:
    // over the previous screen its see-through pixels keep what the bitmap already shows.
    Bitmap screen;
    int slide = 0, width = 0, height = 0;
    char name[64];
    for (int i = 0; i < ns && !error; i++) {
        if (debug && i == DEBUG_SCREENS) break;
        error = readRecord(archive, index, nb + i, &selector, payload);
        if (error) break;
        if (progress) fprintf(progress, "** Decompressing screen %d/%d\r", i, ns), fflush(progress);
        const unsigned char* in = payload.data;
        const unsigned char* end = payload.data + payload.size;
        int screen_width, screen_height;
        error = readStreamSize(in, end, screen_width, screen_height);
        if (error) break;
        if (i == 0) {
            width = screen_width, height = screen_height;
            int kept = debug && ns > DEBUG_SCREENS ? DEBUG_SCREENS : ns;
            error = checkFirstScreen(selector == nb, width, height, kept);
            if (error) break;
            if (!check) show.room.reserve(kept, (size_t)width * height);  // images a check releases get their own
        }
        const Bitmap& under = selector == nb ? screen : backgrounds[selector];
        error = checkSizes(screen_width, screen_height, under, width, height);
        if (!error)
            error = selector != nb && plain[selector] ? decompressOver(screen, *plain[selector], in, end)
                                                     : decompressOver(screen, under, in, end);
        payload.release();
        if (error) break;
        error = exportScreen(mode, show, i, screen, &slide, name, sizeof name);
        if (error) break;
        makeImage(screen, show.images[i], &show.room);
        if (check) error = check(i, show.images[i]);
    }
    payload.release();
    releaseAll(backgrounds);
    if (progress) fputc('\n', progress);
    return error;
}
