#include "packer/survey.h"

#include <cstring>

#include "codec/codec.h"
#include "codec/colour_index.h"

namespace {

void makeBitmap(Bitmap& b, int width, int height) {
    b.data = allocPixels(width, height);
    b.width = width;
    b.height = height;
}

// The page's commonest colour, the first to appear among equals, all over.
void plainBackground(const Bitmap& page, Bitmap& bg) {
    vec<int> ids, counts;
    vec<Color> colours;
    indexColours(page, ids, colours, counts);
    int most = 0;
    for (int c = 0; c < counts.size; c++)
        if (counts[c] > counts[most]) most = c;
    makeBitmap(bg, page.width, page.height);
    for (int i = 0; i < page.width * page.height; i++) bg.data[i] = colours[most];
}

// One page's vote: a pixel that agrees strengthens the colour held there, one that differs
// weakens it or, where nothing is left of it, takes its place.
void vote(const Bitmap& page, Bitmap& bg, vec<int>& votes) {
    const Color* in = page.data;
    Color* held = bg.data;
    int* count = votes.data;
    for (int i = 0, n = votes.size; i < n; i++) {
        if (in[i] == held[i])
            count[i]++;
        else if (count[i] == 0)
            held[i] = in[i], count[i] = 1;
        else
            count[i]--;
    }
}

}  // namespace

const char* surveyPage(PageStore& store, Survey& survey, const vec<unsigned char>& stream, const Bitmap& page) {
    if (survey.pages.size == 0) {
        plainBackground(page, survey.plain);
        makeBitmap(survey.shared, page.width, page.height);
        memcpy(survey.shared.data, page.data, sizeof(Color) * (size_t)page.width * page.height);
        survey.votes.assignZero(page.width * page.height);
    }
    if (page.width != survey.shared.width || page.height != survey.shared.height) return "Pages differ in size.";
    vote(page, survey.shared, survey.votes);
    return store.put(stream, survey.pages.push());
}

const char* surveyBitmap(PageStore& store, Survey& survey, Bitmap& page) {
    vec<unsigned char> stream;
    compress(page, stream, false);
    return surveyPage(store, survey, stream, page);
}
