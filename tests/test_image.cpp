// The compact screen image: palette order, indices, the full-colour form and reading pixels back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <unordered_map>
#include <vector>

#include "show/image.h"
#include "helpers/run.h"
#include "png/png.h"

namespace {

// A bitmap owning width * height pixels, all set to fill.
void makeBitmap(Bitmap& b, int width, int height, Color fill = Color{0, 0, 0, 0}) {
    b.clear();
    b.width = width;
    b.height = height;
    size_t n = (size_t)width * height;
    b.data = (Color*)malloc((n ? n : 1) * sizeof(Color));
    for (size_t i = 0; i < n; i++) b.data[i] = fill;
}

// A colour that is different for every i below 2^24.
Color distinctColor(uint32_t i) { return Color{(unsigned char)i, (unsigned char)(i >> 8), (unsigned char)(i >> 16), 0}; }

// An image released at the end of the test.
struct MadeImage {
    Image image;
    explicit MadeImage(Bitmap& b) { makeImage(b, image); }
    ~MadeImage() { releaseImage(image); }
};

std::vector<Color> allPixels(const Image& image) {
    std::vector<Color> out(imagePixelCount(image));
    copyPixels(image, 0, (int)out.size(), out.data());
    return out;
}

// Palette in order of first appearance and the index of every pixel, the simple way.
struct Reference {
    std::vector<Color> palette;
    std::vector<uint16_t> indices;
    explicit Reference(const Bitmap& b) {
        std::unordered_map<uint32_t, uint16_t> seen;
        for (int i = 0; i < b.width * b.height; i++) {
            Color c = b.data[i];
            auto it = seen.find(colorKey(c));
            if (it == seen.end()) {
                it = seen.emplace(colorKey(c), (uint16_t)palette.size()).first;
                palette.push_back(c);
            }
            indices.push_back(it->second);
        }
    }
};

void expectIndexed(const Image& image, const Reference& ref) {
    ASSERT_EQ(image.palette.count, ref.palette.size());
    ASSERT_EQ(image.pixels.count, ref.indices.size());
    for (size_t i = 0; i < ref.palette.size(); i++) ASSERT_EQ(image.palette.data[i], ref.palette[i]) << i;
    for (size_t i = 0; i < ref.indices.size(); i++) {
        ASSERT_LT(image.pixels.data[i], image.palette.count) << i;
        ASSERT_EQ(image.pixels.data[i], ref.indices[i]) << i;
    }
    EXPECT_EQ(image.colors.count, 0u);
    EXPECT_EQ(image.colors.data, nullptr);
}

const Color white = {255, 255, 255, 0};
const Color black = {0, 0, 0, 0};

TEST(Image, EmptyImageHasNoArrays) {
    Image image;
    EXPECT_EQ(image.palette.data, nullptr);
    EXPECT_EQ(image.palette.count, 0x7FFFFFFFu);
    EXPECT_EQ(image.palette.owned, 0u);
    EXPECT_EQ(image.pixels.data, nullptr);
    EXPECT_EQ(image.pixels.count, 0x7FFFFFFFu);
    EXPECT_EQ(image.pixels.owned, 0u);
    EXPECT_EQ(imagePixelCount(image), 0);
    Color out = white;
    copyPixels(image, 0, 1, &out);
    EXPECT_EQ(out, white);
    EXPECT_EQ(sizeof(Array<Color>), sizeof(Color*) + 8);  // pointer, then count and flag in one word
}

TEST(Image, OneColour) {
    Bitmap b;
    makeBitmap(b, 7, 5, Color{10, 20, 30, 0});
    MadeImage m(b);
    EXPECT_EQ(m.image.width, 7);
    EXPECT_EQ(m.image.height, 5);
    ASSERT_EQ(m.image.palette.count, 1u);
    EXPECT_EQ(m.image.palette.data[0], (Color{10, 20, 30, 0}));
    ASSERT_EQ(m.image.pixels.count, 35u);
    for (int i = 0; i < 35; i++) EXPECT_EQ(m.image.pixels.data[i], 0);
    EXPECT_EQ(m.image.palette.owned, 1u);
    EXPECT_EQ(m.image.pixels.owned, 1u);
    EXPECT_EQ(imagePixelCount(m.image), 35);
}

TEST(Image, FirstRowWhiteThenBlack) {
    Bitmap b;
    makeBitmap(b, 4, 3, black);
    for (int x = 0; x < 4; x++) b.at(x, 0) = white;
    MadeImage m(b);
    ASSERT_EQ(m.image.palette.count, 2u);
    EXPECT_EQ(m.image.palette.data[0], white);
    EXPECT_EQ(m.image.palette.data[1], black);
    for (int i = 0; i < 12; i++) EXPECT_EQ(m.image.pixels.data[i], i < 4 ? 0 : 1);
}

TEST(Image, SeeThroughIsAnOrdinaryColour) {
    Bitmap b;
    makeBitmap(b, 3, 1, black);
    b.at(1, 0) = color_SeeThrough;
    MadeImage m(b);
    ASSERT_EQ(m.image.palette.count, 2u);
    EXPECT_EQ(m.image.palette.data[1], color_SeeThrough);
    EXPECT_EQ(m.image.pixels.data[0], 0);
    EXPECT_EQ(m.image.pixels.data[1], 1);
    EXPECT_EQ(m.image.pixels.data[2], 0);
}

TEST(Image, ColoursDifferingInOneByteAreDistinct) {
    Bitmap b;
    makeBitmap(b, 5, 1);
    b.data[1] = Color{1, 0, 0, 0};
    b.data[2] = Color{0, 1, 0, 0};
    b.data[3] = Color{0, 0, 1, 0};
    b.data[4] = Color{0, 0, 0, 1};
    MadeImage m(b);
    EXPECT_EQ(m.image.palette.count, 5u);
    for (int i = 0; i < 5; i++) EXPECT_EQ(m.image.pixels.data[i], i);
}

TEST(Image, EmptyBitmaps) {
    for (int w : {0, 4}) {
        Bitmap b;
        makeBitmap(b, w, w ? 0 : 6);
        MadeImage m(b);
        EXPECT_EQ(m.image.width, w);
        EXPECT_EQ(m.image.palette.count, 0u);
        EXPECT_EQ(m.image.pixels.count, 0u);
        EXPECT_EQ(m.image.palette.owned, 1u);
        EXPECT_EQ(m.image.pixels.owned, 1u);
        EXPECT_EQ(m.image.colors.count, 0u);
        EXPECT_EQ(imagePixelCount(m.image), 0);
    }
}

TEST(Image, NegativeSizeHoldsNoPixels) {
    Bitmap b;
    makeBitmap(b, 2, 2);
    b.height = -2;
    MadeImage m(b);
    EXPECT_EQ(imagePixelCount(m.image), 0);
    EXPECT_EQ(m.image.palette.count, 0u);
}

TEST(Image, SizeBeyondAnArrayIsRejected) {
    Bitmap b;
    makeBitmap(b, 1, 1);
    b.width = 1 << 15;
    b.height = 1 << 15;  // 2^30 pixels: more than a 31-bit count of 4-byte colours can address
    Image image;
    EXPECT_THROW(makeImage(b, image), Exception_MemOut);
    EXPECT_EQ(image.pixels.owned, 0u);
    b.width = 1;
    b.height = 1;
}

TEST(Image, OverwritesWhatTheImageHeld) {
    Bitmap a, b;
    makeBitmap(a, 2, 2, white);
    makeBitmap(b, 3, 1, black);
    b.data[2] = white;
    Image image;
    makeImage(a, image);
    releaseImage(image);
    makeImage(b, image);
    EXPECT_EQ(image.width, 3);
    ASSERT_EQ(image.palette.count, 2u);
    EXPECT_EQ(image.palette.data[0], black);
    releaseImage(image);
    EXPECT_EQ(image.pixels.data, nullptr);
    EXPECT_EQ(image.pixels.owned, 0u);
    EXPECT_EQ(imagePixelCount(image), 0);
}

TEST(Image, MatchesReferenceOnRandomBitmaps) {
    for (unsigned seed = 1; seed <= 60; seed++) {
        std::mt19937 rng(seed);
        int w = 1 + rng() % 120, h = 1 + rng() % 90;
        int colours = 1 + rng() % (seed % 3 == 0 ? 5000 : 40);
        std::vector<Color> choices(colours);
        for (Color& c : choices) c = Color{(unsigned char)rng(), (unsigned char)rng(), (unsigned char)rng(),
                                           (unsigned char)(rng() % 4 == 0 ? rng() : 0)};
        Bitmap b;
        makeBitmap(b, w, h);
        // runs of one colour, as on real screens, mixed with single pixels
        for (int i = 0; i < w * h;) {
            Color c = choices[rng() % colours];
            for (int run = 1 + rng() % 12; run > 0 && i < w * h; run--) b.data[i++] = c;
        }
        MadeImage m(b);
        SCOPED_TRACE(seed);
        Reference ref(b);
        expectIndexed(m.image, ref);
        EXPECT_EQ(m.image.palette.data[0], b.data[0]);
        std::vector<Color> back = allPixels(m.image);
        for (int i = 0; i < w * h; i++) ASSERT_EQ(back[i], b.data[i]) << i;
    }
}

TEST(Image, ExactlyMaxIndexedColoursStayIndexed) {
    Bitmap b;
    makeBitmap(b, 300, 300);
    for (int i = 0; i < 300 * 300; i++) b.data[i] = distinctColor(i < 65535 ? i : i % 1000);
    MadeImage m(b);
    Reference ref(b);
    ASSERT_EQ(ref.palette.size(), 65535u);
    expectIndexed(m.image, ref);
    EXPECT_EQ(m.image.pixels.data[65534], 65534);
    EXPECT_EQ(imagePixelCount(m.image), 90000);
}

TEST(Image, MoreColoursKeepEveryPixel) {
    Bitmap b;
    makeBitmap(b, 300, 300);
    for (int i = 0; i < 300 * 300; i++) b.data[i] = distinctColor((i * 40503u) & 0xFFFFFF);
    MadeImage m(b);
    EXPECT_EQ(m.image.width, 300);
    EXPECT_EQ(m.image.height, 300);
    EXPECT_EQ(m.image.palette.count, 0u);
    EXPECT_EQ(m.image.palette.data, nullptr);
    EXPECT_EQ(m.image.pixels.count, 0u);
    EXPECT_EQ(m.image.pixels.data, nullptr);
    ASSERT_EQ(m.image.colors.count, 90000u);
    EXPECT_EQ(m.image.colors.owned, 1u);
    EXPECT_EQ(imagePixelCount(m.image), 90000);
    for (int i = 0; i < 90000; i++) ASSERT_EQ(m.image.colors.data[i], b.data[i]) << i;
    std::vector<Color> back = allPixels(m.image);
    for (int i = 0; i < 90000; i++) ASSERT_EQ(back[i], b.data[i]) << i;
}

TEST(Image, TheNewColourPastTheLimitSwitchesToFullColour) {
    Bitmap b;
    makeBitmap(b, 256, 257);
    int n = 256 * 257;
    for (int i = 0; i < n; i++) b.data[i] = distinctColor(i % 65535);
    b.data[n - 1] = Color{1, 2, 3, 4};  // the 65536th colour, on the very last pixel
    MadeImage m(b);
    ASSERT_EQ(m.image.colors.count, (unsigned)n);
    EXPECT_EQ(m.image.colors.data[n - 1], (Color{1, 2, 3, 4}));
    EXPECT_EQ(m.image.colors.data[65535], distinctColor(0));
}

// Images whose index arrays come from one room: the same palettes and indices as images of
// their own, arrays side by side in the room and kept by it, and arrays of their own where the
// room has none of the size left.
TEST(ImageRoom, ImagesFromTheRoomAreTheSame) {
    const int w = 97, h = 61, count = 3;
    ImageRoom room;
    ASSERT_TRUE(room.reserve(count, (size_t)w * h));
    std::mt19937 rng(5);
    Image images[count + 2];
    for (int k = 0; k < count + 2; k++) {
        Bitmap b;
        makeBitmap(b, w, h);
        for (int i = 0; i < w * h; i++) b.data[i] = distinctColor(rng() % (50 + k));
        makeImage(b, images[k], &room);
        SCOPED_TRACE(k);
        expectIndexed(images[k], Reference(b));
        EXPECT_EQ(imagePixelCount(images[k]), w * h);
        std::vector<Color> back = allPixels(images[k]);
        for (int i = 0; i < w * h; i++) ASSERT_EQ(back[i], b.data[i]) << i;
        EXPECT_EQ(images[k].pixels.owned, k < count ? 0u : 1u) << "the room has " << count << " arrays";
        if (k > 0 && k < count) {
            EXPECT_EQ(images[k].pixels.data, images[k - 1].pixels.data + w * h);
        }
    }
    Bitmap other;
    makeBitmap(other, w + 1, h, white);
    Image own;
    makeImage(other, own, &room);
    EXPECT_EQ(own.pixels.owned, 1u);
    for (Image& image : images) releaseImage(image);
    releaseImage(own);
}

TEST(ImageRoom, WithoutRoomImagesHaveArraysOfTheirOwn) {
    ImageRoom room;
    EXPECT_FALSE(room.reserve(0, 100));
    EXPECT_FALSE(room.reserve(5, 0));
    Bitmap b;
    makeBitmap(b, 10, 10, white);
    Image image;
    makeImage(b, image, &room);
    EXPECT_EQ(image.pixels.owned, 1u);
    EXPECT_EQ(imagePixelCount(image), 100);
    releaseImage(image);
}

TEST(ImageRoom, AScreenOfTooManyColoursKeepsItsPixels) {
    ImageRoom room;
    ASSERT_TRUE(room.reserve(2, 300 * 300));
    Bitmap b;
    makeBitmap(b, 300, 300);
    for (int i = 0; i < 300 * 300; i++) b.data[i] = distinctColor((i * 40503u) & 0xFFFFFF);
    Image full, next;
    makeImage(b, full, &room);
    ASSERT_EQ(full.colors.count, 90000u);
    EXPECT_EQ(full.pixels.data, nullptr);
    std::vector<Color> back = allPixels(full);
    for (int i = 0; i < 90000; i++) ASSERT_EQ(back[i], b.data[i]) << i;
    for (int i = 0; i < 300 * 300; i++) b.data[i] = white;
    makeImage(b, next, &room);  // the room's next array
    EXPECT_EQ(next.pixels.owned, 0u);
    EXPECT_EQ(next.palette.count, 1u);
    releaseImage(full);
    releaseImage(next);
}

TEST(Image, CopyPixelsRanges) {
    Bitmap b;
    makeBitmap(b, 10, 10);
    for (int i = 0; i < 100; i++) b.data[i] = distinctColor(i % 7);
    MadeImage m(b);
    Color out[12];
    for (Color& c : out) c = white;
    copyPixels(m.image, 95, 5, out);
    for (int i = 0; i < 5; i++) EXPECT_EQ(out[i], distinctColor((95 + i) % 7));
    EXPECT_EQ(out[5], white);
    for (Color& c : out) c = white;
    copyPixels(m.image, 95, 6, out);   // runs past the end
    copyPixels(m.image, -1, 2, out);   // starts before the start
    copyPixels(m.image, 3, 0, out);    // nothing asked
    for (Color& c : out) EXPECT_EQ(c, white);
}

TEST(Image, CorpusPagesRoundTrip) {
    std::string corpus = corpusDir();
    if (corpus.empty()) GTEST_SKIP() << "slide corpus not found beside the source folder";
    int pages = 0;
    for (const char* deck : {"conference-talk", "metropolis"}) {
        for (int page = 1;; page++) {
            char name[32];
            snprintf(name, sizeof name, "/page_%03d.png", page);
            std::string path = corpus + "/" + deck + name;
            Bitmap b;
            if (!readPng(path.c_str(), b)) break;
            SCOPED_TRACE(path);
            MadeImage m(b);
            int n = b.width * b.height;
            ASSERT_EQ(imagePixelCount(m.image), n);
            if (!m.image.colors.data) expectIndexed(m.image, Reference(b));
            std::vector<Color> back = allPixels(m.image);
            ASSERT_EQ(memcmp(back.data(), b.data, n * sizeof(Color)), 0);
            pages++;
        }
    }
    EXPECT_GT(pages, 0);
}

}  // namespace
