// The packer: what it writes unpacks, as the viewer unpacks it, into exactly the pages, and it
// keeps a background only when the background pays for itself.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "show/archive.h"
#include "show/unpack.h"
#include "codec/codec.h"
#include "helpers/archives.h"
#include "helpers/run.h"
#include "packer/packer.h"

namespace {

const int W = 67, H = 45;

Color noise(std::mt19937& rng) { return Color{(unsigned char)rng(), (unsigned char)(rng() % 4), 90, 0}; }

// A page: a frame of noise drawn from frame_seed around a one-colour inside with a few dots.
void framedPage(Bitmap& page, unsigned frame_seed, std::mt19937& rng) {
    page.data = allocPixels(W, H);
    page.width = W;
    page.height = H;
    std::mt19937 frame(frame_seed);
    for (int y = 0; y < H; y++)
        for (int x = 0; x < W; x++) {
            Color f = noise(frame);
            bool border = x < 8 || y < 6 || x >= W - 8 || y >= H - 6;
            page.at(x, y) = border ? f : rng() % 17 == 0 ? noise(rng) : Color{250, 250, 250, 0};
        }
}

// Packs the pages with two worker processes, writes the archive and unpacks it the way
// view_slides does.
void packAndUnpack(vec<Bitmap>& pages, const vec<bool>& flags, PackedShow& packed, Show& show) {
    TempDir tmp;
    PageStore store;
    ASSERT_EQ(store.open(tmp.path.c_str()), nullptr);
    Survey survey;
    for (Bitmap& page : pages) ASSERT_EQ(surveyBitmap(store, survey, page), nullptr);
    ASSERT_EQ(packPages(store, survey, flags, 2, packed, nullptr), nullptr);
    std::string path = tmp.file("deck.slides");
    writeArchiveFile(path, ARCHIVE_SEPARATE, "", packed.backgrounds, packed.screens, packed.flags);
    File in;
    in.open(path.c_str(), "rb");
    ArchiveIndex index;
    ASSERT_EQ(readIndex(in, ARCHIVE_SEPARATE, index), nullptr);
    ASSERT_EQ(unpackShow(in, index, RUN_VIEW, show, nullptr), nullptr);
}

void expectPages(const Show& show, const vec<Bitmap>& pages) {
    ASSERT_EQ(show.images.size, pages.size);
    vec<Color> pixels;
    for (int i = 0; i < pages.size; i++) {
        int n = pages[i].width * pages[i].height;
        ASSERT_EQ(imagePixelCount(show.images[i]), n);
        pixels.resize(n);
        copyPixels(show.images[i], 0, n, pixels.data);
        for (int p = 0; p < n; p++) ASSERT_TRUE(pixels[p] == pages[i].data[p]) << "page " << i << " pixel " << p;
    }
}

bool isOneColour(vec<unsigned char>& stream) {
    Bitmap b;
    if (decompress(b, stream)) return false;
    for (int i = 1; i < b.width * b.height; i++)
        if (b.data[i] != b.data[0]) return false;
    return true;
}

TEST(Packer, SharedFramesUnpackExactlyAndEarnABackground) {
    // Two kinds of slide alternate, so the previous screen never holds the frame a slide needs;
    // a background with the commoner frame saves it on half the pages.
    std::mt19937 rng(1);
    vec<Bitmap> pages;
    vec<bool> flags;
    for (int i = 0; i < 8; i++) {
        framedPage(pages.push(), i % 2 ? 77 : 55, rng);
        flags.push(i % 4 == 3);
    }
    PackedShow packed;
    Show show;
    packAndUnpack(pages, flags, packed, show);
    expectPages(show, pages);
    for (int i = 0; i < flags.size; i++) EXPECT_EQ(show.flags[i], flags[i]);
    EXPECT_LT(packed.screens[0].selector, packed.backgrounds.size);

    int pictures = 0;
    for (int b = 0; b < packed.backgrounds.size; b++) {
        if (isOneColour(packed.backgrounds[b])) continue;
        pictures++;
        int users = 0;
        for (int i = 0; i < packed.screens.size; i++) users += packed.screens[i].selector == b;
        EXPECT_GE(users, 2);
    }
    EXPECT_EQ(pictures, 1);
}

TEST(Packer, NothingSharedKeepsOnlyAOneColourBackground) {
    std::mt19937 rng(2);
    vec<Bitmap> pages;
    vec<bool> flags;
    for (int i = 0; i < 5; i++) {
        framedPage(pages.push(), 1000 + i, rng);
        flags.push(false);
    }
    PackedShow packed;
    Show show;
    packAndUnpack(pages, flags, packed, show);
    expectPages(show, pages);
    ASSERT_EQ(packed.backgrounds.size, 1);
    EXPECT_TRUE(isOneColour(packed.backgrounds[0]));
    EXPECT_LE(packed.backgrounds[0].size, 16);
    EXPECT_EQ(packed.screens[0].selector, 0);
}

TEST(Packer, OnePageAndRepeatedPages) {
    std::mt19937 rng(3);
    vec<Bitmap> pages;
    vec<bool> flags;
    framedPage(pages.push(), 9, rng);
    flags.push(false);
    {
        PackedShow packed;
        Show show;
        packAndUnpack(pages, flags, packed, show);
        expectPages(show, pages);
    }
    // A page repeated costs a few bytes: one see-through leaf over the previous screen.
    Bitmap& copy = pages.push();
    copy.data = allocPixels(W, H);
    copy.width = W;
    copy.height = H;
    for (int p = 0; p < W * H; p++) copy.data[p] = pages[0].data[p];
    flags.push(true);
    PackedShow packed;
    Show show;
    packAndUnpack(pages, flags, packed, show);
    expectPages(show, pages);
    EXPECT_LE(packed.screens[1].payload.size, 8);
}

}  // namespace
