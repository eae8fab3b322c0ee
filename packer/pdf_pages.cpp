#include "packer/pdf_pages.h"

#include <cstring>
#include <string>

#include "codec/codec.h"
#include "codec/encoder.h"
#include "packer/job_pool.h"
#include "packer/limits.h"

namespace {

const char* countPages(const char* path, const PdfRun& pdf, int* pages) {
    JobRun run;
    run.count = 1;
    run.time_limit = pdf.page_timeout;
    run.time_limit_note = " (see --page-timeout)";
    run.work = [&](int, vec<unsigned char>& result) {
        int n = 0;
        const char* error = countPdfPages(path, &n);
        putPart(result, &n, sizeof n);
        return error;
    };
    run.take = [&](int, vec<unsigned char>& result) {
        int at = 0, size;
        const unsigned char* n;
        if (!takePart(result, at, n, size) || size != sizeof *pages) return "A worker's page count came back damaged.";
        memcpy(pages, n, sizeof *pages);
        return (const char*)nullptr;
    };
    run.name = [&](int) { return std::string("Opening ") + path; };
    return runJobs(run);
}

bool oneColour(const Bitmap& b) {
    for (size_t i = 1, n = (size_t)b.width * b.height; i < n; i++)
        if (b.data[i] != b.data[0]) return false;
    return true;
}

// A worker's rendering of one page: its label, the show's page (the plain encoder's stream), the
// grouping rendering's stream (empty when it is the show's page itself) and the notes picture's
// stream as the archive keeps it (empty when there are none or they are blank).
void putRendered(RenderedPage& page, vec<unsigned char>& result) {
    putPart(result, page.label.data, page.label.size);
    vec<unsigned char> stream;
    compress(page.show, stream, false);
    putPart(result, stream.data, stream.size);
    stream.clear();
    if (page.grouping.data) compress(page.grouping, stream, false);
    putPart(result, stream.data, stream.size);
    stream.clear();
    if (page.notes.data && !oneColour(page.notes)) {
        IndexedPage indexed;
        indexPage(page.notes, indexed);
        encodePage(indexed, nullptr, nullptr, kFullEffort, stream);
    }
    putPart(result, stream.data, stream.size);
}

// Adds a page's notes stream to the show's notes; the same notes as the page before share its
// picture.
void addNotes(const unsigned char* stream, int size, ShowNotes& notes) {
    int number = -1;
    if (size > 0) {
        int last = notes.pictures.size - 1;
        bool repeated = last >= 0 && notes.pictures[last].size == size &&
                        memcmp(notes.pictures[last].data, stream, (size_t)size) == 0;
        if (!repeated) {
            vec<unsigned char>& picture = notes.pictures.push();
            picture.resize(size);
            memcpy(picture.data, stream, (size_t)size);
        }
        number = notes.pictures.size - 1;
    }
    notes.of_screen.push(number);
}

// The packer's side of the pages, taken in order.
struct Taker {
    const char* path;
    const PdfRun& pdf;
    PageStore& store;
    Survey& survey;
    vec<bool>& flags;
    Grouping& grouping;
    ShowNotes& notes;
    std::string before_label;
    Bitmap before;  // the page before's grouping rendering

    const char* take(int i, const vec<unsigned char>& result) {
        int at = 0, label_size, show_size, grouping_size, notes_size;
        const unsigned char *label, *show, *grouped, *noted;
        if (!takePart(result, at, label, label_size) || !takePart(result, at, show, show_size) ||
            !takePart(result, at, grouped, grouping_size) || !takePart(result, at, noted, notes_size))
            return "A worker's page came back damaged.";
        if (pdf.options.notes != NOTES_NONE) addNotes(noted, notes_size, notes);
        vec<unsigned char> stream;
        stream.resize(show_size);
        memcpy(stream.data, show, (size_t)show_size);
        Bitmap page, rendering;
        const unsigned char* in = show;
        const char* error = decompress(page, in, show + show_size);
        if (!error) error = surveyPage(store, survey, stream, page);
        if (!error && grouping_size > 0) {
            in = grouped;
            error = decompress(rendering, in, grouped + grouping_size);
        }
        if (error) return error;
        std::string text((const char*)label, (size_t)label_size);
        const Bitmap& seen = grouping_size > 0 ? rendering : page;
        GroupedPage now{text.c_str(), &seen}, last{before_label.c_str(), &before};
        flags.push(continuesSlide(i > 0 ? &last : nullptr, now, pdf.options.steps, grouping));
        before_label = text;
        keep(grouping_size > 0 ? rendering : page);
        return nullptr;
    }

    // Keeps the page's grouping rendering as the next page's page before.
    void keep(Bitmap& rendering) {
        before.clear();
        before.data = rendering.data;
        before.width = rendering.width;
        before.height = rendering.height;
        resetBitmap(rendering);
    }
};

}  // namespace

const char* surveyPdf(const char* path, const PdfRun& pdf, PageStore& store, Survey& survey, vec<bool>& flags,
                      Grouping& grouping, ShowNotes& notes, void (*progress)(int i, int n)) {
    int n = 0;
    if (const char* error = countPages(path, pdf, &n)) return error;
    long long pixels = (long long)pdf.options.width * pdf.options.height + (long long)kGroupingWidth * kGroupingHeight;
    long long worker_bytes = kRenderBytesPerPixel * pixels;
    // With notes a worker also holds the notes half and encodes it.
    if (pdf.options.notes != NOTES_NONE) worker_bytes += kEncodeBytesPerPixel * pdf.options.width * pdf.options.height;
    Taker taker{path, pdf, store, survey, flags, grouping, notes, "", Bitmap()};
    JobRun run;
    run.count = n;
    run.workers = workersWithin(pdf.jobs, worker_bytes, kWorkerMemoryBudget);
    run.time_limit = pdf.page_timeout;
    run.time_limit_note = " (see --page-timeout)";
    run.work = [&](int i, vec<unsigned char>& result) {
        RenderedPage page;
        const char* error = renderPdfPage(path, i, pdf.options, page);
        if (!error) putRendered(page, result);
        return error;
    };
    run.take = [&](int i, vec<unsigned char>& result) { return taker.take(i, result); };
    if (progress) run.waiting = [&](int i) { progress(i, n); };
    run.name = [&](int i) { return "Rendering page " + std::to_string(i + 1) + " of " + path; };
    return runJobs(run);
}
