#include "packer/packer.h"

#include <cstring>
#include <string>

#include "codec/codec.h"
#include "codec/encoder.h"
#include "packer/job_pool.h"
#include "packer/limits.h"

namespace {

// Candidate backgrounds: 0 is one colour and always available, so that the first screen has a
// background; 1 is what most pages show.
const int kCandidates = 2;
// A screen is coded over a reference: -1 the previous screen, else a candidate. Arrays over the
// references hold the previous screen's entry first.
const int kReferences = kCandidates + 1;

int slotOf(int reference) { return reference + 1; }

// A screen's streams over every reference, kept in the store. Most are quick estimates; `full`
// tells which were encoded with full effort. The first screen has no stream over a previous one.
struct Streams {
    Blob blob[kReferences];
    bool full[kReferences];
};

// The reference with the smallest stream among the candidates in use and the previous screen
// (size 0: none); ties go to the previous screen, then to the lower candidate.
int bestReference(const int sizes[kReferences], const bool in_use[kCandidates], long long* bytes) {
    int best = -1;
    long long size = sizes[0] > 0 ? sizes[0] : -1;
    for (int c = 0; c < kCandidates; c++)
        if (in_use[c] && (size < 0 || sizes[slotOf(c)] < size)) best = c, size = sizes[slotOf(c)];
    *bytes = size;
    return best;
}

const char* loadPage(const PageStore& store, const Blob& blob, Bitmap& page) {
    vec<unsigned char> bytes;
    const char* error = store.get(blob, bytes);
    return error ? error : decompress(page, bytes);
}

// What encoding page i takes, in a worker: the page with its colours numbered and the page before.
struct JobPages {
    Bitmap page, previous;
    IndexedPage indexed;
};

const char* loadJobPages(const PageStore& store, const Survey& survey, int i, JobPages& p) {
    const char* error = loadPage(store, survey.pages[i], p.page);
    if (!error && i > 0) error = loadPage(store, survey.pages[i - 1], p.previous);
    if (!error) indexPage(p.page, p.indexed);
    return error;
}

// The second pass's shared state: the store, the candidates (colours numbered) and every
// screen's streams.
struct Encoding {
    PageStore& store;
    const Survey& survey;
    vec<IndexedPage> candidates;
    vec<Streams> streams;
    int workers;

    // Page i over reference r, with full effort or as a quick estimate.
    void encodeOver(const JobPages& p, int r, bool full, vec<unsigned char>& out) const {
        const Bitmap* under = r < 0 ? &p.previous : candidates[r].bitmap;
        encodePage(p.indexed, under, nullptr, full ? kFullEffort : kQuickEffort, out);
    }

    // Keeps the streams of a job's result (per reference: the full flag, then the stream; an
    // empty part where there is none) as screen i's.
    const char* keep(int i, const vec<unsigned char>& result) {
        Streams& s = streams[i];
        int at = 0;
        for (int k = 0; k < kReferences; k++) {
            const unsigned char *flag, *bytes;
            int flag_size, size;
            if (!takePart(result, at, flag, flag_size) || flag_size != 1 || !takePart(result, at, bytes, size))
                return "A worker's streams came back damaged.";
            if (size == 0 && !*flag) continue;  // not encoded by this job
            vec<unsigned char> stream;
            stream.resize(size);
            memcpy(stream.data, bytes, (size_t)size);
            s.full[k] = *flag != 0;
            if (const char* error = store.put(stream, s.blob[k])) return error;
        }
        return nullptr;
    }

    // Estimates page i over every candidate and over the previous page, then encodes the
    // smallest with full effort.
    const char* encodeOptions(int i, vec<unsigned char>& result) const {
        JobPages p;
        if (const char* error = loadJobPages(store, survey, i, p)) return error;
        vec<unsigned char> out[kReferences];
        int sizes[kReferences] = {};
        for (int r = i > 0 ? -1 : 0; r < kCandidates; r++) {
            encodeOver(p, r, false, out[slotOf(r)]);
            sizes[slotOf(r)] = out[slotOf(r)].size;
        }
        const bool all[kCandidates] = {true, true};
        long long bytes;
        int best = bestReference(sizes, all, &bytes);
        out[slotOf(best)].clear();
        encodeOver(p, best, true, out[slotOf(best)]);
        for (int k = 0; k < kReferences; k++) {
            unsigned char full = k == slotOf(best);
            putPart(result, &full, 1);
            putPart(result, out[k].data, out[k].size);
        }
        return nullptr;
    }

    // Encodes page i over reference r with full effort, as the only stream of its result.
    const char* encodeFully(int i, int r, vec<unsigned char>& result) const {
        JobPages p;
        if (const char* error = loadJobPages(store, survey, i, p)) return error;
        vec<unsigned char> out;
        encodeOver(p, r, true, out);
        for (int k = 0; k < kReferences; k++) {
            unsigned char full = k == slotOf(r);
            putPart(result, &full, 1);
            putPart(result, out.data, k == slotOf(r) ? out.size : 0);
        }
        return nullptr;
    }

    int size(int i, int slot) const { return streams[i].blob[slot].size; }
};

struct Plan {
    vec<int> choice;                       // per screen
    vec<vec<unsigned char> > backgrounds;  // per candidate, empty when unused
    long long total = 0;
};

int wordsFor(int pixels) { return (pixels + 63) / 64; }

// In a worker: one bit per pixel that screen i's chosen stream leaves see-through (none when the
// stream does not decode).
const char* seeThroughBits(const Encoding& e, int i, int reference, int pixels, vec<unsigned char>& result) {
    vec<unsigned char> stream;
    if (const char* error = e.store.get(e.streams[i].blob[slotOf(reference)], stream)) return error;
    Bitmap decoded;
    const unsigned char* in = stream.data;
    bool decoded_ok = !decompress(decoded, in, stream.data + stream.size) && decoded.width * decoded.height == pixels;
    vec<uint64_t> bits;
    bits.assignZero(wordsFor(pixels));
    for (int p = 0; decoded_ok && p < pixels; p++)
        if (isSeeThrough(decoded.data[p])) bits[p >> 6] |= 1ull << (p & 63);
    putPart(result, bits.data, bits.size * (int)sizeof(uint64_t));
    return nullptr;
}

// Marks, for every candidate, the pixels that some screen shows through its see-through pixels
// (directly, or through the previous screens that it lets show). Workers decode the screens;
// here the pixels each candidate shows through the current screen are followed as bits.
const char* markShown(const Encoding& e, const vec<int>& choice, int pixels, vec<vec<unsigned char> >& shown) {
    int words = wordsFor(pixels);
    vec<uint64_t> origin[kCandidates], seen[kCandidates];  // shown through the current screen, through any
    for (int c = 0; c < kCandidates; c++) origin[c].assignZero(words), seen[c].assignZero(words);
    vec<uint64_t> see;
    see.resize(words);
    JobRun run;
    run.count = choice.size;
    run.workers = e.workers;
    run.work = [&](int i, vec<unsigned char>& result) { return seeThroughBits(e, i, choice[i], pixels, result); };
    run.take = [&](int i, vec<unsigned char>& result) -> const char* {
        int at = 0, size;
        const unsigned char* bits;
        if (!takePart(result, at, bits, size) || size != words * (int)sizeof(uint64_t))
            return "A worker's see-through pixels came back damaged.";
        memcpy(see.data, bits, (size_t)size);
        // Opaque pixels show nothing; see-through ones show the chosen candidate, or over the
        // previous screen whatever it showed there.
        for (int c = 0; c < kCandidates; c++)
            for (int w = 0; w < words; w++) {
                uint64_t now = choice[i] == c ? see[w] : choice[i] < 0 ? origin[c][w] & see[w] : 0;
                origin[c][w] = now;
                seen[c][w] |= now;
            }
        return nullptr;
    };
    run.name = [](int i) { return "Choosing the backgrounds of page " + std::to_string(i + 1); };
    if (const char* error = runJobs(run)) return error;
    shown.resize(kCandidates);
    for (int c = 0; c < kCandidates; c++) {
        shown[c].assignZero(pixels);
        for (int p = 0; p < pixels; p++) shown[c][p] = (seen[c][p >> 6] >> (p & 63)) & 1;
    }
    return nullptr;
}

// Picks every screen's best reference among the candidates in use, then encodes those candidates
// with the pixels that no screen shows free to take any colour.
const char* planWith(const Encoding& e, const bool in_use[kCandidates], Plan& plan) {
    plan.choice.resize(e.streams.size);
    plan.total = 0;
    for (int i = 0; i < e.streams.size; i++) {
        int sizes[kReferences];
        for (int k = 0; k < kReferences; k++) sizes[k] = e.size(i, k);
        long long bytes = 0;
        plan.choice[i] = bestReference(sizes, in_use, &bytes);
        plan.total += bytes;
    }
    const Bitmap& first = *e.candidates[0].bitmap;
    int pixels = first.width * first.height;
    vec<vec<unsigned char> > shown;
    if (const char* error = markShown(e, plan.choice, pixels, shown)) return error;
    plan.backgrounds.resize(kCandidates);
    vec<unsigned char> unseen;
    unseen.assignZero(pixels);
    for (int c = 0; c < kCandidates; c++) {
        if (!in_use[c]) continue;
        for (int p = 0; p < pixels; p++) unseen[p] = !shown[c][p];
        encodePage(e.candidates[c], nullptr, unseen.data, kFullEffort, plan.backgrounds[c]);
        plan.total += plan.backgrounds[c].size;
    }
    return nullptr;
}

// Encodes with full effort every chosen reference that is still an estimate; *any tells whether
// there was one.
const char* refineChosen(Encoding& e, const vec<int>& choice, bool* any) {
    vec<int> pages;  // the screens to encode again
    for (int i = 0; i < choice.size; i++)
        if (!e.streams[i].full[slotOf(choice[i])]) pages.push(i);
    *any = pages.size > 0;
    JobRun run;
    run.count = pages.size;
    run.workers = e.workers;
    run.work = [&](int job, vec<unsigned char>& result) {
        return e.encodeFully(pages[job], choice[pages[job]], result);
    };
    run.take = [&](int job, vec<unsigned char>& result) { return e.keep(pages[job], result); };
    run.name = [&](int job) { return "Encoding page " + std::to_string(pages[job] + 1); };
    return runJobs(run);
}

// Fills the show from the plan: candidates that no screen uses are dropped.
const char* writePlan(const Encoding& e, Plan& plan, PackedShow& show) {
    int number[kCandidates];  // candidate -> background number, -1 when dropped
    show.backgrounds.release();
    for (int c = 0; c < kCandidates; c++) {
        bool used = false;
        for (int k : plan.choice) used |= k == c;
        number[c] = used ? show.backgrounds.size : -1;
        if (used) show.backgrounds.push().swap(plan.backgrounds[c]);
    }
    show.screens.release();
    show.screens.resize(e.streams.size);
    for (int i = 0; i < e.streams.size; i++) {
        int k = plan.choice[i];
        show.screens[i].selector = k < 0 ? show.backgrounds.size : number[k];
        if (const char* error = e.store.get(e.streams[i].blob[slotOf(k)], show.screens[i].payload)) return error;
    }
    return nullptr;
}

}  // namespace

const char* packPages(PageStore& store, const Survey& survey, const vec<bool>& flags, int jobs,
                      PackedShow& show, void (*progress)(int i, int n)) {
    show.flags.release();
    for (int i = 0; i < flags.size; i++) show.flags.push(flags[i]);
    int n = survey.pages.size;
    if (n == 0) return nullptr;
    Encoding e{store, survey, {}, {}, 0};
    long long pixels = (long long)survey.plain.width * survey.plain.height;
    e.workers = workersWithin(jobs, kEncodeBytesPerPixel * pixels, kWorkerMemoryBudget);
    e.candidates.resize(kCandidates);
    indexPage(survey.plain, e.candidates[0]);
    indexPage(survey.shared, e.candidates[1]);
    e.streams.resize(n);

    JobRun run;
    run.count = n;
    run.workers = e.workers;
    run.work = [&](int i, vec<unsigned char>& result) { return e.encodeOptions(i, result); };
    run.take = [&](int i, vec<unsigned char>& result) { return e.keep(i, result); };
    if (progress) run.waiting = [&](int i) { progress(i, n); };
    run.name = [](int i) { return "Encoding page " + std::to_string(i + 1); };
    if (const char* error = runJobs(run)) return error;

    // Backgrounds are added greedily while they save more than they cost.
    bool in_use[kCandidates] = {true, false};
    vec<Plan> plans;
    if (const char* error = planWith(e, in_use, plans.push())) return error;
    int best = 0;
    for (int c = 1; c < kCandidates; c++) {
        in_use[c] = true;
        if (const char* error = planWith(e, in_use, plans.push())) return error;
        if (plans.last().total < plans[best].total)
            best = plans.size - 1;
        else
            in_use[c] = false;
    }
    // Streams chosen from estimates are encoded in full; that only makes them smaller, but the
    // pixels they let show change, so the backgrounds are planned again.
    bool refined = false;
    if (const char* error = refineChosen(e, plans[best].choice, &refined)) return error;
    if (refined) {
        best = plans.size;
        if (const char* error = planWith(e, in_use, plans.push())) return error;
    }
    return writePlan(e, plans[best], show);
}
