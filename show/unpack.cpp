#include "show/unpack.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "codec/codec.h"
#include "io/output.h"
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

// Names the file that screen i goes to in the export modes; false when it is not exported.
// *slide counts the slides named so far.
static bool exportName(RunMode mode, const vec<bool>& flags, int i, int* slide, char (&name)[64]) {
    if (mode == RUN_PNG_SCREENS) {
        snprintf(name, sizeof name, "screen_%.3d.png", i);
        return true;
    }
    bool ends_slide = i == flags.size - 1 || !flags[i + 1];
    if (mode != RUN_PNG_SLIDES || !ends_slide) return false;  // viewing, or a step before the slide's last
    snprintf(name, sizeof name, "slide_%.2d.png", ++*slide);
    return true;
}

// The screens that are decoded: with `debug`, only the first DEBUG_SCREENS.
static int screensDecoded(int ns) { return debug && ns > DEBUG_SCREENS ? DEBUG_SCREENS : ns; }

const char* checkExports(const ArchiveIndex& index, RunMode mode, const char* archive_path) {
    if (mode == RUN_VIEW) return nullptr;
    vec<const char*> inputs;
    inputs.push(archive_path);
    char name[64];
    int slide = 0;
    bool probed = false;
    for (int i = 0; i < screensDecoded(index.ns); i++) {
        if (!exportName(mode, index.flags, i, &slide, name)) continue;
        if (const char* error = checkOutput(name, inputs)) return error;
        if (probed) continue;
        Output probe;  // the working folder must take the files
        const char* error = beginOutput(probe, name, inputs, OUTPUT_FILE);
        if (error) return error;
        close(probe.fd);
        dropOutput(probe);
        probed = true;
    }
    return nullptr;
}

// Writes screen i in the export modes, whole under a temporary name and then renamed.
static const char* exportScreen(RunMode mode, const Show& show, int i, const Bitmap& screen, int* slide) {
    char name[64];
    if (!exportName(mode, show.flags, i, slide, name)) return nullptr;
    Output out;
    const char* error = beginOutput(out, name, vec<const char*>(), OUTPUT_FILE);
    if (error) return error;
    close(out.fd);
    if (writePng(out.temp, screen)) return finishOutput(out);
    dropOutput(out);
    return outputError(out, pngLastError());
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
    for (int i = 0; i < screensDecoded(ns) && !error; i++) {
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
            int kept = screensDecoded(ns);
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
        error = exportScreen(mode, show, i, screen, &slide);
        if (error) break;
        makeImage(screen, show.images[i], &show.room);
        if (check) error = check(i, show.images[i]);
    }
    payload.release();
    releaseAll(backgrounds);
    if (progress) fputc('\n', progress);
    return error;
}
