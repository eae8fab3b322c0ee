#include "packer/packer.h"

#include <cstring>

#include "codec/codec.h"
#include "codec/encoder.h"

namespace {

void makeBitmap(Bitmap& b, int width, int height) {
    b.data = allocPixels(width, height);
    b.width = width;
    b.height = height;
}

// The colour most pages show at each pixel (majority vote).
void majorityBackground(const vec<Bitmap>& pages, Bitmap& bg) {
    const Bitmap& first = pages[0];
    int n = first.width * first.height;
    makeBitmap(bg, first.width, first.height);
    vec<int> votes;
    votes.assignZero(n);
    memcpy(bg.data, first.data, (size_t)n * sizeof(Color));
    for (int p = 0; p < pages.size; p++)
        for (int i = 0; i < n; i++) {
            if (pages[p].data[i] == bg.data[i])
                votes[i]++;
            else if (votes[i] == 0)
                bg.data[i] = pages[p].data[i], votes[i] = 1;
            else
                votes[i]--;
        }
}

// A background of the first page's commonest colour: a stream of a few bytes.
void plainBackground(const IndexedPage& first, Bitmap& bg) {
    vec<int> counts;
    counts.resize(first.colours.size);
    for (int id : first.ids) counts[id]++;
    int most = 0;
    for (int c = 0; c < counts.size; c++)
        if (counts[c] > counts[most]) most = c;
    const Bitmap& page = *first.bitmap;
    makeBitmap(bg, page.width, page.height);
    for (int i = 0; i < page.width * page.height; i++) bg.data[i] = first.colours[most];
}

// A screen's streams over each candidate background (by candidate number) and over the previous
// page. Most are quick estimates; `full` tells which were encoded with full effort.
struct Options {
    vec<vec<unsigned char> > over_background;
    vec<unsigned char> over_previous;  // empty for the first page
    vec<bool> full;                    // per reference: previous first, then the candidates

    vec<unsigned char>& stream(int reference) { return reference < 0 ? over_previous : over_background[reference]; }
    const vec<unsigned char>& stream(int reference) const {
        return reference < 0 ? over_previous : over_background[reference];
    }
};

// Which reference each screen uses: a candidate number, or -1 for the previous screen.
int bestReference(const Options& o, const vec<bool>& in_use, long long* bytes) {
    int best = -1;
    long long size = o.over_previous.size > 0 ? o.over_previous.size : -1;
    for (int c = 0; c < in_use.size; c++)
        if (in_use[c] && (size < 0 || o.over_background[c].size < size)) best = c, size = o.over_background[c].size;
    *bytes = size;
    return best;
}

// Marks, for every candidate, the pixels that some screen shows through its see-through pixels
// (directly, or through the previous screens that it lets show).
void markShown(const vec<Options>& options, const vec<int>& choice, int candidates, int pixels,
               vec<vec<unsigned char> >& shown) {
    shown.resize(candidates);
    for (int c = 0; c < candidates; c++) shown[c].assignZero(pixels);
    vec<int> origin;  // per pixel: the candidate the current screen shows there, or -1
    origin.assignZero(pixels);
    for (int i = 0; i < choice.size; i++) {
        const Options& o = options[i];
        const vec<unsigned char>& stream = o.stream(choice[i]);
        const unsigned char* in = stream.data;
        Bitmap decoded;
        bool decoded_ok = !decompress(decoded, in, stream.data + stream.size);
        for (int p = 0; p < pixels; p++) {
            if (!decoded_ok || !isSeeThrough(decoded.data[p]))
                origin[p] = -1;
            else if (choice[i] >= 0)
                origin[p] = choice[i];
            if (origin[p] >= 0) shown[origin[p]][p] = 1;
        }
    }
}

struct Plan {
    vec<int> choice;                          // per screen
    vec<vec<unsigned char> > backgrounds;     // per candidate, empty when unused
    long long total = 0;
};

// Picks every screen's best reference among the candidates in use, then encodes those candidates
// with the pixels that no screen shows free to take any colour.
void planWith(const vec<Options>& options, const vec<IndexedPage>& candidates, const vec<bool>& in_use, Plan& plan) {
    plan.choice.resize(options.size);
    plan.total = 0;
    for (int i = 0; i < options.size; i++) {
        long long bytes = 0;
        plan.choice[i] = bestReference(options[i], in_use, &bytes);
        plan.total += bytes;
    }
    const Bitmap& first = *candidates[0].bitmap;
    int pixels = first.width * first.height;
    vec<vec<unsigned char> > shown;
    markShown(options, plan.choice, candidates.size, pixels, shown);
    plan.backgrounds.resize(candidates.size);
    vec<unsigned char> unseen;
    unseen.assignZero(pixels);
    for (int c = 0; c < candidates.size; c++) {
        if (!in_use[c]) continue;
        for (int p = 0; p < pixels; p++) unseen[p] = !shown[c][p];
        encodePage(candidates[c], nullptr, unseen.data, kFullEffort, plan.backgrounds[c]);
        plan.total += plan.backgrounds[c].size;
    }
}

// Encodes page i over reference r (a candidate number, or -1 for the previous page), with full
// effort or as a quick estimate.
void encodeOption(const vec<IndexedPage>& pages, int i, const vec<IndexedPage>& candidates, int r, bool full,
                  Options& o) {
    vec<unsigned char>& stream = o.stream(r);
    stream.clear();
    const Bitmap* under = r < 0 ? pages[i - 1].bitmap : candidates[r].bitmap;
    encodePage(pages[i], under, nullptr, full ? kFullEffort : kQuickEffort, stream);
    o.full[r + 1] = full;
}

// Estimates page i over every candidate and over the previous page, then encodes the smallest
// with full effort.
void encodeOptions(const vec<IndexedPage>& pages, int i, const vec<IndexedPage>& candidates, Options& o) {
    o.over_background.resize(candidates.size);
    o.full.resize(candidates.size + 1);
    for (int r = i > 0 ? -1 : 0; r < candidates.size; r++) encodeOption(pages, i, candidates, r, false, o);
    vec<bool> all;
    for (int c = 0; c < candidates.size; c++) all.push(true);
    long long bytes;
    encodeOption(pages, i, candidates, bestReference(o, all, &bytes), true, o);
}

// Encodes with full effort every chosen reference that is still an estimate; true if any was.
bool refineChosen(const vec<IndexedPage>& pages, const vec<IndexedPage>& candidates, const vec<int>& choice,
                  vec<Options>& options) {
    bool any = false;
    for (int i = 0; i < choice.size; i++) {
        if (options[i].full[choice[i] + 1]) continue;
        encodeOption(pages, i, candidates, choice[i], true, options[i]);
        any = true;
    }
    return any;
}

// Fills the show from the plan: candidates that no screen uses are dropped.
void writePlan(vec<Options>& options, Plan& plan, PackedShow& show) {
    vec<int> number;  // candidate -> background number, -1 when dropped
    number.resize(plan.backgrounds.size);
    show.backgrounds.release();
    for (int c = 0; c < plan.backgrounds.size; c++) {
        bool used = false;
        for (int k : plan.choice) used |= k == c;
        number[c] = used ? show.backgrounds.size : -1;
        if (used) show.backgrounds.push().swap(plan.backgrounds[c]);
    }
    show.screens.release();
    show.screens.resize(options.size);
    for (int i = 0; i < options.size; i++) {
        int k = plan.choice[i];
        show.screens[i].selector = k < 0 ? show.backgrounds.size : number[k];
        show.screens[i].payload.swap(options[i].stream(k));
    }
}

}  // namespace

void packPages(const vec<Bitmap>& pages, const vec<bool>& flags, PackedShow& show,
               void (*progress)(int i, int n)) {
    show.flags.release();
    for (int i = 0; i < flags.size; i++) show.flags.push(flags[i]);
    if (pages.size == 0) return;
    vec<IndexedPage> indexed;
    indexed.resize(pages.size);
    for (int i = 0; i < pages.size; i++) indexPage(pages[i], indexed[i]);

    // Candidate 0 is one colour and always available, so the first screen has a background;
    // candidate 1 is what most pages show.
    Bitmap plain, shared;
    plainBackground(indexed[0], plain);
    majorityBackground(pages, shared);
    vec<IndexedPage> candidates;
    candidates.resize(2);
    indexPage(plain, candidates[0]);
    indexPage(shared, candidates[1]);

    vec<Options> options;
    options.resize(pages.size);
    for (int i = 0; i < pages.size; i++) {
        if (progress) progress(i, pages.size);
        encodeOptions(indexed, i, candidates, options[i]);
    }

    // Backgrounds are added greedily while they save more than they cost.
    vec<bool> in_use;
    in_use.resize(candidates.size);
    in_use[0] = true;
    vec<Plan> plans;
    planWith(options, candidates, in_use, plans.push());
    int best = 0;
    for (int c = 1; c < candidates.size; c++) {
        in_use[c] = true;
        planWith(options, candidates, in_use, plans.push());
        if (plans.last().total < plans[best].total)
            best = plans.size - 1;
        else
            in_use[c] = false;
    }
    // Streams chosen from estimates are encoded in full; that only makes them smaller, but the
    // pixels they let show change, so the backgrounds are planned again.
    if (refineChosen(indexed, candidates, plans[best].choice, options)) {
        best = plans.size;
        planWith(options, candidates, in_use, plans.push());
    }
    writePlan(options, plans[best], show);
}
