#include "tools/packer.h"

#include <cstring>

#include "codec/codec.h"

// The colour most pages show at each pixel (majority vote), as a candidate background.
static void majorityBackground(const vec<Bitmap>& pages, Bitmap& bg) {
    const Bitmap& first = pages[0];
    size_t n = (size_t)first.width * first.height;
    bg.data = allocPixels(first.width, first.height);
    bg.width = first.width;
    bg.height = first.height;
    vec<int> votes;
    votes.resize((int)n);
    memcpy(bg.data, first.data, n * sizeof(Color));
    for (int p = 0; p < pages.size; p++)
        for (size_t i = 0; i < n; i++) {
            if (pages[p].data[i] == bg.data[i])
                votes[(int)i]++;
            else if (votes[(int)i] == 0)
                bg.data[i] = pages[p].data[i], votes[(int)i] = 1;
            else
                votes[(int)i]--;
        }
}

// A background of one colour: costs a few bytes, for decks that share nothing.
static void plainBackground(const Bitmap& like, Bitmap& bg) {
    bg.data = allocPixels(like.width, like.height);
    bg.width = like.width;
    bg.height = like.height;
    size_t n = (size_t)like.width * like.height;
    for (size_t i = 0; i < n; i++) bg.data[i] = Color{0, 0, 0, 0};
}

// The stream of page coded over under: pixels equal to the ones beneath become see-through.
static void encodeOver(const Bitmap& page, const Bitmap& under, Bitmap& scratch, vec<unsigned char>& out) {
    size_t n = (size_t)page.width * page.height;
    for (size_t i = 0; i < n; i++) scratch.data[i] = page.data[i] == under.data[i] ? color_SeeThrough : page.data[i];
    out.clear();
    compress(scratch, out, false);
}

static void encodePlain(const Bitmap& bitmap, vec<unsigned char>& out) {
    out.clear();
    compress(const_cast<Bitmap&>(bitmap), out, false);
}

static void copyBytes(const vec<unsigned char>& from, vec<unsigned char>& to) {
    to.clear();
    to.reserve(from.size);
    for (int i = 0; i < from.size; i++) to.push(from[i]);
}

// Encodes every page over the background or the previous page; returns the total stream bytes.
static long long encodeScreens(const vec<Bitmap>& pages, const Bitmap& bg, PackedShow& show,
                               void (*progress)(int, int)) {
    Bitmap scratch;
    scratch.data = allocPixels(bg.width, bg.height);
    scratch.width = bg.width;
    scratch.height = bg.height;
    vec<unsigned char> candidate;
    long long total = 0;
    show.screens.release();
    show.screens.resize(pages.size);
    for (int i = 0; i < pages.size; i++) {
        if (progress) progress(i, pages.size);
        ScreenRecord& screen = show.screens[i];
        encodeOver(pages[i], bg, scratch, screen.payload);
        screen.selector = 0;
        if (i > 0) {
            encodeOver(pages[i], pages[i - 1], scratch, candidate);
            if (candidate.size < screen.payload.size) {
                copyBytes(candidate, screen.payload);
                screen.selector = 1;  // the previous screen, with one background
            }
        }
        total += screen.payload.size;
    }
    return total;
}

void packPages(const vec<Bitmap>& pages, const vec<bool>& flags, PackedShow& show,
               void (*progress)(int i, int n)) {
    Bitmap shared, plain;
    majorityBackground(pages, shared);
    plainBackground(pages[0], plain);

    vec<unsigned char> shared_stream, plain_stream;
    encodePlain(shared, shared_stream);
    encodePlain(plain, plain_stream);

    PackedShow over_plain;
    long long with_shared = shared_stream.size + encodeScreens(pages, shared, show, progress);
    long long with_plain = plain_stream.size + encodeScreens(pages, plain, over_plain, nullptr);
    show.backgrounds.release();
    show.backgrounds.resize(1);
    if (with_plain < with_shared) {
        copyBytes(plain_stream, show.backgrounds[0]);
        show.screens.release();
        show.screens.resize(pages.size);
        for (int i = 0; i < pages.size; i++) {
            show.screens[i].selector = over_plain.screens[i].selector;
            copyBytes(over_plain.screens[i].payload, show.screens[i].payload);
        }
    } else {
        copyBytes(shared_stream, show.backgrounds[0]);
    }
    show.flags.release();
    show.flags.resize(flags.size);
    for (int i = 0; i < flags.size; i++) show.flags[i] = flags[i];
}
