#include "packer/deck_pages.h"

#include <string>

#include "codec/codec.h"
#include "packer/job_pool.h"
#include "packer/limits.h"

// Pages first .. end-1, each read and compressed in a worker, then decoded here for the survey.
static const char* surveyPages(const Deck& deck, int first, int end, int workers, PageStore& store, Survey& survey,
                               void (*progress)(int i, int n)) {
    JobRun run;
    run.count = end - first;
    run.workers = workers;
    run.work = [&](int job, vec<unsigned char>& result) {
        Bitmap page;
        const char* error = readPage(deck.files[first + job], page);
        if (!error) compress(page, result, false);
        return error;
    };
    run.take = [&](int job, vec<unsigned char>& stream) {
        int i = first + job;
        Bitmap page;
        const unsigned char* in = stream.data;
        const char* error = decompress(page, in, stream.data + stream.size);
        if (!error && i > 0) error = sizeMismatch(deck, i, page, survey.shared);
        return error ? error : surveyPage(store, survey, stream, page);
    };
    if (progress) run.waiting = [&](int job) { progress(first + job, deck.files.size); };
    run.name = [&](int job) { return std::string("Reading ") + deck.files[first + job]; };
    return runJobs(run);
}

const char* surveyDeck(const Deck& deck, int jobs, PageStore& store, Survey& survey, void (*progress)(int i, int n)) {
    // The first page alone: its size tells how many workers fit in memory.
    const char* error = surveyPages(deck, 0, 1, 1, store, survey, progress);
    if (error || deck.files.size == 1) return error;
    long long pixels = (long long)survey.shared.width * survey.shared.height;
    int workers = workersWithin(jobs, kEncodeBytesPerPixel * pixels, kWorkerMemoryBudget);
    return surveyPages(deck, 1, deck.files.size, workers, store, survey, progress);
}
