// bench_slides [DECK...]: on every deck of the corpus, every deck folder given and synthetic decks
// of 257 and 1000 pages made from the corpus pages, measures packing (pack_slides with one job
// and with all, its time and peak memory), unpacking (the whole view_slides process, also right
// after heavy file I/O) against libpng decoding the same pages, and, for the corpus and given
// decks, the decoder and makeImage alone, memset, archive sizes and drawing. Prints the tables
// and writes every figure to bench.json in the build folder.
#include <dirent.h>
#include <malloc.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "show/unpack.h"
#include "app/view.h"
#include "codec/codec.h"
#include "support/util.h"
#include "archives.h"
#include "draw_figures.h"
#include "present_figures.h"
#include "packer/deck.h"
#include "process_figures.h"

namespace {

const int kRounds = 5;  // every timing is the best of this many runs over the whole deck

// CPU time of this thread, page faults included: on a machine shared with other work it
// stays close to what the same run takes on an idle one.
double seconds() {
    struct timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

// How malloc serves large blocks while timing. A fresh view_slides process gets fresh pages for
// every large block (nothing large is freed before its images are made), so unpacking is timed
// that way: every large block mapped on its own, and the free memory kept from earlier
// measurements given back first. The decoder, makeImage and libpng alone write into recycled
// memory, like one output buffer.
void freshLargeBlocks() {
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
    malloc_trim(0);
}

void recycledLargeBlocks() {
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
}

template <class F>
double bestOf(int rounds, F fn) {
    double best = 1e30;
    for (int r = 0; r < rounds; r++) {
        double t0 = seconds();
        fn();
        best = std::min(best, seconds() - t0);
    }
    return best;
}

std::vector<unsigned char> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

long long fileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (long long)st.st_size : -1;
}

std::string baseName(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

struct LoadedDeck {
    std::string name, folder;
    Deck deck;
    vec<Bitmap> pages;
    std::vector<std::vector<unsigned char> > png;  // the page files' bytes
    long long png_total = 0;
    int width = 0, height = 0;
};

const char* loadDeck(const std::string& folder, LoadedDeck& d) {
    d.folder = folder;
    d.name = baseName(folder);
    const char* error = readSlideList(folder.c_str(), d.deck);
    if (error) return error;
    d.pages.resize(d.deck.files.size);
    for (int i = 0; i < d.deck.files.size && !error; i++) error = readPage(d.deck.files[i], d.pages[i]);
    if (error) return error;
    if (d.pages.size == 0) return "the deck has no pages";
    for (int i = 0; i < d.deck.files.size; i++) {
        d.png.push_back(readFile(d.deck.files[i]));
        d.png_total += (long long)d.png.back().size();
    }
    d.width = d.pages[0].width;
    d.height = d.pages[0].height;
    return nullptr;
}

void releaseShow(Show& show) {
    for (int i = 0; i < show.images.size; i++) releaseImage(show.images[i]);
    show.images.release();
    show.flags.release();
}

// Everything view_slides does before it opens its window: index, payloads, decoding,
// compositing, makeImage.
const char* unpackArchive(const std::string& path, Show& show) {
    File archive;
    archive.open(path.c_str(), "rb");
    if (archive.fd == -1) return "cannot open the archive";
    ArchiveIndex index;
    const char* error = readIndex(archive, ARCHIVE_SEPARATE, index);
    if (!error) error = unpackShow(archive, index, RUN_VIEW, show, nullptr);
    archive.close();
    return error;
}

// Decodes one PNG held in memory into out (RGBA); false on a libpng failure.
bool decodePng(const std::vector<unsigned char>& bytes, std::vector<unsigned char>& out) {
    png_image image;
    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size())) return false;
    image.format = PNG_FORMAT_RGBA;
    out.resize(PNG_IMAGE_SIZE(image));
    bool ok = png_image_finish_read(&image, nullptr, out.data(), 0, nullptr) != 0;
    png_image_free(&image);
    return ok;
}

bool haveProgram(const char* name) {
    std::string cmd = std::string("command -v ") + name + " > /dev/null 2>&1";
    return system(cmd.c_str()) == 0;
}

// Total size of the pages after optipng -o2; sizes are cached per page file in the build
// folder since optimising is slow. -1 when optipng is missing.
long long optipngTotal(const LoadedDeck& d) {
    if (!haveProgram("optipng")) return -1;
    std::string cache = std::string(SLIDES_BUILD_DIR) + "/bench-optipng";
    mkdir(cache.c_str(), 0755);
    long long total = 0;
    for (int i = 0; i < d.deck.files.size; i++) {
        std::string page = d.deck.files[i];
        std::string key = cache + "/" + d.name + "_" + std::to_string(d.png[i].size()) + "_" + baseName(page);
        if (fileSize(key) < 0) {
            printf("optipng -o2 %s (once: the size is kept in %s)\n", page.c_str(), cache.c_str());
            fflush(stdout);
            std::string cmd = "optipng -quiet -o2 -out '" + key + "' '" + page + "' > /dev/null 2>&1";
            if (system(cmd.c_str()) != 0) return -1;
        }
        total += fileSize(key);
    }
    return total;
}

struct DeckFigures {
    int pages = 0, screens = 0;
    long long archive = 0, png = 0, optipng = -1;
    double unpack_ms = 0, decode_ms = 0, make_image_ms = 0, libpng_ms = 0, memset_ms = 0, fresh_ms = 0;
    long long peak = -1, images_bytes = 0, screen_pixels = 0;
    int viewer_status = 0;
    DrawFigures draw;
    PresentFigures present;
};

// The images of one run are released outside the timed part, as the viewer keeps them.
double timeUnpack(const std::string& archive, Show& kept) {
    double best = 1e30;
    for (int r = 0; r < kRounds; r++) {
        Show show;
        double t0 = seconds();
        const char* error = unpackArchive(archive, show);
        best = std::min(best, seconds() - t0);
        if (error) fprintf(stderr, "unpacking failed: %s\n", error);
        releaseShow(show);
    }
    unpackArchive(archive, kept);
    return best;
}

// Every record's stream of the archive, read once.
void readStreams(const std::string& archive, vec<vec<unsigned char> >& streams) {
    File in;
    in.open(archive.c_str(), "rb");
    ArchiveIndex index;
    if (in.fd == -1 || readIndex(in, ARCHIVE_SEPARATE, index)) return;
    int selector;
    for (int r = 0; r < index.nb + index.ns; r++) readRecord(in, index, r, &selector, streams.push());
}

double timeDecoder(const std::string& archive) {
    vec<vec<unsigned char> > streams;
    readStreams(archive, streams);
    return bestOf(kRounds, [&] {
        for (int i = 0; i < streams.size; i++) {
            Bitmap b;
            const unsigned char* in = streams[i].data;
            decompress(b, in, in + streams[i].size);
        }
    });
}

double timeMakeImage(const vec<Bitmap>& pages) {
    return bestOf(kRounds, [&] {
        for (int i = 0; i < pages.size; i++) {
            Image image;
            makeImage(const_cast<Bitmap&>(pages[i]), image);
            releaseImage(image);
        }
    });
}

double timeLibpng(const LoadedDeck& d) {
    std::vector<unsigned char> out;
    return bestOf(kRounds, [&] {
        for (const auto& bytes : d.png)
            if (!decodePng(bytes, out)) fprintf(stderr, "libpng could not decode a page\n");
    });
}

double timeMemset(const LoadedDeck& d) {
    std::vector<unsigned char> out((size_t)d.width * d.height * 4);
    volatile unsigned char sink = 0;
    double t = bestOf(kRounds, [&] {
        for (int i = 0; i < d.pages.size; i++) {
            memset(out.data(), i & 0xFF, out.size());
            sink = sink + out[(size_t)i * 4099 % out.size()];
        }
    });
    return t;
}

// The part of unpacking that the kernel does: fresh pages for 2 bytes a pixel of every screen,
// obtained from one room and first written the way makeImage does. Freed outside the timed part.
double timeFreshImageMemory(const LoadedDeck& d) {
    size_t pixels = (size_t)d.width * d.height;
    double best = 1e30;
    for (int r = 0; r < kRounds; r++) {
        ImageRoom room;
        double t0 = seconds();
        room.reserve(d.pages.size, pixels);
        for (int i = 0; i < d.pages.size; i++) memset(room.take(pixels), i & 0xFF, pixels * 2);
        best = std::min(best, seconds() - t0);
    }
    return best;
}

long long imagesBytes(const Show& show) {
    long long total = 0;
    for (int i = 0; i < show.images.size; i++)
        total += (long long)show.images[i].pixels.count * 2 + (long long)show.images[i].palette.count * 4 +
                 (long long)show.images[i].colors.count * 4;
    return total;
}

// The in-process figures of a deck whose archive pack_slides wrote.
DeckFigures measureDeck(LoadedDeck& d, const std::string& archive) {
    DeckFigures f;
    f.pages = f.screens = d.pages.size;
    f.png = d.png_total;
    f.archive = fileSize(archive);
    f.optipng = optipngTotal(d);

    Show show;
    freshLargeBlocks();
    f.unpack_ms = timeUnpack(archive, show) * 1e3;
    f.fresh_ms = timeFreshImageMemory(d) * 1e3;
    recycledLargeBlocks();
    f.decode_ms = timeDecoder(archive) * 1e3;
    f.make_image_ms = timeMakeImage(d.pages) * 1e3;
    f.libpng_ms = timeLibpng(d) * 1e3;
    f.memset_ms = timeMemset(d) * 1e3;

    f.images_bytes = imagesBytes(show);
    f.screen_pixels = (long long)d.width * d.height * f.screens;
    RunFigures viewer = runMeasured({std::string(SLIDES_BUILD_DIR) + "/view_slides", archive});
    f.peak = viewer.maxrss;
    f.viewer_status = viewer.status;
    f.draw = measureDrawing(show.images);
    f.present = measurePresenting(show.images, show.flags, d.pages);
    releaseShow(show);
    return f;
}

void printRow(const char* what, double deck_ms, int screens, double unpack_ms, const char* target) {
    printf("  %-34s %9.2f ms %8.3f ms/screen %8.2fx %s\n", what, deck_ms, deck_ms / screens,
           deck_ms / unpack_ms, target);
}

void printScroll(const char* server, const ScrollFigure& s) {
    if (s.measured)
        printf("  presenting scroll on %s: %.1f ms in %.0f frames for trans_time %.0f ms (%+.1f %%, target within "
               "15 %%)\n",
               server, s.seconds * 1e3, s.frames, trans_time * 1e3, (s.seconds / trans_time - 1) * 100);
    else
        printf("  presenting scroll on %s skipped: %s\n", server, s.skipped.c_str());
}

void printPresenting(const PresentFigures& p) {
    if (!p.measured) {
        printf("  presenting figures skipped: %s\n", p.skipped.c_str());
        return;
    }
    printf("  presenting on Xvfb depth 24: a screen scaled and drawn at 1920 x 1080 %.2f ms (target <= 8), "
           "kept %.2f ms; at 3840 x 2160 %.2f ms (target <= 30), kept %.2f ms\n",
           p.draw_1080_ms, p.redraw_1080_ms, p.draw_2160_ms, p.redraw_2160_ms);
    printScroll("Xvfb", p.xvfb);
    printScroll("Xorg's dummy driver", p.xorg);
    printf("  console at 1366 x 768 on Xvfb depth 24, update after a move: %.2f ms, worst %.2f ms (target <= 16); "
           "with notes %.2f ms, worst %.2f ms\n",
           p.console.step_ms, p.console.step_worst_ms, p.console_notes.step_ms, p.console_notes.step_worst_ms);
    printf("  console, a jump with nothing made ahead: %.2f ms, worst %.2f ms; with notes %.2f ms, worst %.2f ms\n",
           p.console.jump_ms, p.console.jump_worst_ms, p.console_notes.jump_ms, p.console_notes.jump_worst_ms);
}

void printFigures(const LoadedDeck& d, const DeckFigures& f) {
    const double mb = 1024.0 * 1024.0;
    printf("\n== %s: %d screens of %d x %d ==\n", d.name.c_str(), f.screens, d.width, d.height);
    printf("  %-34s %12s %18s %9s   (CPU time, best of %d)\n", "", "deck", "per screen", "vs unpack", kRounds);
    printRow("unpacking in this process", f.unpack_ms, f.screens, f.unpack_ms, "");
    printRow("decoder alone", f.decode_ms, f.screens, f.unpack_ms, "");
    printRow("makeImage alone", f.make_image_ms, f.screens, f.unpack_ms, "");
    printRow("libpng decode (preloaded)", f.libpng_ms, f.screens, f.unpack_ms, "");
    printRow("memset of the RGBA bytes", f.memset_ms, f.screens, f.unpack_ms, "");
    printRow("fresh pages for the images", f.fresh_ms, f.screens, f.unpack_ms, "(kernel; part of unpacking)");
    printf("  decoder alone vs libpng: %.2fx faster (target >= 10x); unpacking vs libpng: %.2fx faster\n",
           f.libpng_ms / f.decode_ms, f.libpng_ms / f.unpack_ms);
    double limit = f.images_bytes * 1.03 + 40 * mb;
    printf("  peak memory of view_slides: %.1f MB = %.3f bytes/pixel (exit status %d); images %.1f MB = %.3f "
           "bytes/pixel; limit %.1f MB: %s\n",
           f.peak / mb, (double)f.peak / f.screen_pixels, f.viewer_status, f.images_bytes / mb,
           (double)f.images_bytes / f.screen_pixels, limit / mb, f.peak <= limit ? "within" : "ABOVE");
    printf("  archive %lld bytes = %.3f of the PNG total (%lld)", f.archive, (double)f.archive / f.png, f.png);
    if (f.optipng > 0)
        printf(", %.3f of optipng -o2 (%lld)\n", (double)f.archive / f.optipng, f.optipng);
    else
        printf("; optipng not installed\n");
    if (f.draw.measured)
        printf("  Xvfb depth 24: drawSlide + commit %.2f ms a screen (target < 5); transition %.1f ms for "
               "trans_time %.0f ms (step %d, %+.1f %%)\n",
               f.draw.draw_ms, f.draw.transition_ms, f.draw.wanted_ms, f.draw.step,
               (f.draw.transition_ms / f.draw.wanted_ms - 1) * 100);
    else
        printf("  X figures skipped: %s\n", f.draw.skipped.c_str());
    printPresenting(f.present);
}

std::string jsonFigures(const LoadedDeck& d, const DeckFigures& f) {
    std::ostringstream o;
    o << "    {\"deck\": \"" << d.name << "\", \"screens\": " << f.screens << ", \"width\": " << d.width
      << ", \"height\": " << d.height << ",\n     \"unpack_ms\": " << f.unpack_ms
      << ", \"decode_ms\": " << f.decode_ms << ", \"make_image_ms\": " << f.make_image_ms
      << ", \"libpng_ms\": " << f.libpng_ms << ", \"memset_ms\": " << f.memset_ms
      << ", \"fresh_image_pages_ms\": " << f.fresh_ms
      << ",\n     \"peak_bytes\": " << f.peak << ", \"images_bytes\": " << f.images_bytes
      << ", \"screen_pixels\": " << f.screen_pixels << ", \"archive_bytes\": " << f.archive
      << ", \"png_bytes\": " << f.png << ", \"optipng_bytes\": " << f.optipng;
    if (f.draw.measured)
        o << ", \"draw_ms\": " << f.draw.draw_ms << ", \"transition_ms\": " << f.draw.transition_ms
          << ", \"trans_time_ms\": " << f.draw.wanted_ms;
    if (f.present.measured)
        o << ",\n     \"present_draw_1080_ms\": " << f.present.draw_1080_ms
          << ", \"present_draw_2160_ms\": " << f.present.draw_2160_ms
          << ", \"present_scroll_xvfb_ms\": " << f.present.xvfb.seconds * 1e3
          << ", \"present_scroll_xorg_ms\": " << f.present.xorg.seconds * 1e3
          << ", \"console_move_ms\": " << f.present.console.step_ms
          << ", \"console_move_notes_ms\": " << f.present.console_notes.step_ms;
    o << "}";
    return o.str();
}

std::vector<std::string> corpusDecks() {
    std::string corpus = std::string(SLIDES_SOURCE_DIR) + "/../shared/corpus";
    std::vector<std::string> decks;
    DIR* dir = opendir(corpus.c_str());
    if (!dir) {
        printf("No corpus at %s: skipping its decks.\n", corpus.c_str());
        return decks;
    }
    while (struct dirent* e = readdir(dir)) {
        std::string folder = corpus + "/" + e->d_name;
        if (e->d_name[0] != '.' && fileSize(folder + "/slides.txt") >= 0) decks.push_back(folder);
    }
    closedir(dir);
    std::sort(decks.begin(), decks.end());
    return decks;
}

const double kMB = 1024.0 * 1024.0;

// A deck to measure: its folder, whether the in-process figures are wanted (the corpus and the
// decks given; the synthetic ones only repeat corpus pages), and whether its unpacking is
// measured against libpng (every deck but the 1000-page one, which is for packing).
struct DeckInput {
    std::string name, folder;
    bool detailed, unpacked;
    std::vector<int> jobs;  // the numbers of jobs it is packed with
};

std::string buildPath(const std::string& name) { return std::string(SLIDES_BUILD_DIR) + "/" + name; }
std::string archivePath(const std::string& name) { return buildPath("bench-" + name + ".slides"); }

// pack_slides on a deck folder or a PDF talk with a number of jobs.
struct PackRow {
    std::string deck, input;
    int jobs = 0;
    RunFigures run;
    double one_job_s = 0;  // the same with one job, when measured
};

RunFigures pack(const std::string& input, const std::string& archive, int jobs) {
    return runMeasured({buildPath("pack_slides"), input, "--archive", archive, "--jobs", std::to_string(jobs)});
}

// Packs with each number of jobs in turn; every archive must have the first one's bytes, which
// stays as the deck's archive.
void measurePacking(const std::string& deck, const std::string& label, const std::string& input,
                    const std::string& archive, const std::vector<int>& jobs, std::vector<PackRow>& rows) {
    double one_job_s = 0;
    for (size_t k = 0; k < jobs.size(); k++) {
        std::string path = k == 0 ? archive : archive + ".again";
        PackRow row{deck, label, jobs[k], pack(input, path, jobs[k]), 0};
        if (k > 0 && readFile(path) != readFile(archive)) row.run.status = -2;
        if (jobs[k] == 1) one_job_s = row.run.elapsed_s;
        row.one_job_s = one_job_s;
        rows.push_back(row);
        if (k > 0) unlink(path.c_str());
    }
}

// The best and the worst of several runs.
struct Spread {
    double best = 1e30, worst = 0;
    void add(double t) { best = std::min(best, t), worst = std::max(worst, t); }
};

// The whole view_slides process unpacking the archive (it then finds no display and ends),
// against libpng decoding the deck's PNG pages in this process, each kRounds times.
struct UnpackRow {
    std::string deck;
    int screens = 0;
    Spread viewer_cpu, viewer_elapsed, libpng;
    RunFigures after_io;
    long long maxrss = 0, images_bytes = 0;
};

UnpackRow measureUnpacking(const DeckInput& d) {
    UnpackRow row;
    row.deck = d.name;
    Deck deck;
    if (readSlideList(d.folder.c_str(), deck)) return row;
    row.screens = deck.files.size;
    std::vector<std::vector<unsigned char> > png;
    for (int i = 0; i < deck.files.size; i++) png.push_back(readFile(deck.files[i]));
    Show show;
    if (!unpackArchive(archivePath(d.name), show)) row.images_bytes = imagesBytes(show);
    releaseShow(show);
    std::vector<unsigned char> out;
    for (int r = 0; r < kRounds; r++) {
        RunFigures v = runMeasured({buildPath("view_slides"), archivePath(d.name)});
        row.viewer_cpu.add(v.cpu_s);
        row.viewer_elapsed.add(v.elapsed_s);
        row.maxrss = std::max(row.maxrss, v.maxrss);
        double t0 = seconds();
        for (const auto& bytes : png) decodePng(bytes, out);
        row.libpng.add(seconds() - t0);
    }
    return row;
}

// The load average over the last minute: on a machine shared with other work, the wall clock of
// several jobs says little when the processors were already busy.
double loadAverage() {
    double load = -1;
    FILE* in = fopen("/proc/loadavg", "r");
    if (in && fscanf(in, "%lf", &load) != 1) load = -1;
    if (in) fclose(in);
    return load;
}

void printPacking(const std::vector<PackRow>& rows, double load_before, double load_after) {
    printf("\n== Packing: pack_slides --archive: wall clock, and processor time of the packer and its workers;\n"
           "   peak = the largest sum of their resident memory, sampled every 10 ms.\n"
           "   Load average of the machine %.1f before, %.1f after ==\n",
           load_before, load_after);
    printf("  %-30s %5s %9s %9s %10s %11s  %s\n", "deck (input)", "jobs", "time", "cpu", "vs 1 job", "peak",
           "target");
    for (const PackRow& r : rows) {
        double limit = r.deck.find("1000") != std::string::npos ? 600 : 500;
        const char* verdict = r.run.status == -2  ? "BYTES DIFFER FROM 1 JOB"
                              : r.run.status != 0 ? "FAILED"
                              : r.run.peak_tree / kMB < limit ? (limit == 600 ? "< 600 MB met" : "< 500 MB met")
                                                              : "ABOVE";
        char speed[16] = "";
        if (r.one_job_s > 0 && r.jobs > 1) snprintf(speed, sizeof speed, "%.2fx", r.one_job_s / r.run.elapsed_s);
        printf("  %-30s %5d %8.2fs %8.2fs %10s %8.1f MB  %s\n", (r.deck + " (" + r.input + ")").c_str(), r.jobs,
               r.run.elapsed_s, r.run.cpu_s, speed, r.run.peak_tree / kMB, verdict);
    }
}

void printUnpacking(const std::vector<UnpackRow>& rows) {
    printf("\n== Unpacking: the whole view_slides process (user + system time) against libpng decoding the same\n"
           "   pages in this process, best and worst of %d; then one run right after heavy file I/O.\n"
           "   Load average of the machine %.1f ==\n",
           kRounds, loadAverage());
    printf("  %-16s %7s %17s %17s %15s %15s %20s\n", "deck", "screens", "view_slides", "libpng", "best vs best",
           "worst vs worst", "after heavy I/O");
    for (const UnpackRow& r : rows)
        printf("  %-16s %7d %7.0f / %4.0f ms %7.0f / %4.0f ms %14.2fx %14.2fx %10.0f ms %6.2fx\n", r.deck.c_str(),
               r.screens, r.viewer_cpu.best * 1e3, r.viewer_cpu.worst * 1e3, r.libpng.best * 1e3,
               r.libpng.worst * 1e3, r.libpng.best / r.viewer_cpu.best, r.libpng.worst / r.viewer_cpu.worst,
               r.after_io.cpu_s * 1e3, r.libpng.best / r.after_io.cpu_s);
    printf("  (target: 6x or better; the view_slides elapsed times were");
    for (const UnpackRow& r : rows) printf(" %s %.0f / %.0f ms", r.deck.c_str(), r.viewer_elapsed.best * 1e3,
                                           r.viewer_elapsed.worst * 1e3);
    printf(")\n  peak memory of view_slides against 1.03 x the images + 40 MB:");
    for (const UnpackRow& r : rows) {
        double limit = r.images_bytes * 1.03 + 40 * kMB;
        printf(" %s %.1f of %.1f MB%s", r.deck.c_str(), r.maxrss / kMB, limit / kMB, r.maxrss <= limit ? "" : " ABOVE");
    }
    printf("\n");
}

std::string jsonPacking(const PackRow& r) {
    std::ostringstream o;
    o << "    {\"deck\": \"" << r.deck << "\", \"input\": \"" << r.input << "\", \"jobs\": " << r.jobs
      << ", \"elapsed_s\": " << r.run.elapsed_s << ", \"cpu_s\": " << r.run.cpu_s
      << ", \"peak_bytes\": " << r.run.peak_tree << ", \"status\": " << r.run.status << "}";
    return o.str();
}

std::string jsonUnpacking(const UnpackRow& r) {
    std::ostringstream o;
    o << "    {\"deck\": \"" << r.deck << "\", \"screens\": " << r.screens
      << ", \"view_slides_cpu_best_s\": " << r.viewer_cpu.best << ", \"view_slides_cpu_worst_s\": " << r.viewer_cpu.worst
      << ", \"view_slides_elapsed_best_s\": " << r.viewer_elapsed.best
      << ", \"view_slides_elapsed_worst_s\": " << r.viewer_elapsed.worst << ", \"libpng_best_s\": " << r.libpng.best
      << ", \"libpng_worst_s\": " << r.libpng.worst << ", \"after_heavy_io_cpu_s\": " << r.after_io.cpu_s
      << ", \"view_slides_maxrss_bytes\": " << r.maxrss << ", \"images_bytes\": " << r.images_bytes << "}";
    return o.str();
}

std::string jsonList(const char* name, const std::vector<std::string>& items) {
    std::string s = std::string("\"") + name + "\": [\n";
    for (size_t i = 0; i < items.size(); i++) s += items[i] + (i + 1 < items.size() ? ",\n" : "\n");
    return s + "]";
}

}  // namespace

// What notes add to a show: the deck written as a talk with a notes page beside every slide
// (make_notes_pdf) packed with --notes right, against the same talk without the notes pages.
struct NotesRow {
    std::string deck;
    long long with_notes = -1, without = -1;
};

NotesRow measureNotes(const DeckInput& d) {
    NotesRow row{d.name};
    std::string talk = buildPath("bench-" + d.name + "-notes"), plain = buildPath("bench-" + d.name + "-plain");
    for (const std::string& side : {std::string("right"), std::string("none")}) {
        std::string pdf = (side == "none" ? plain : talk) + ".pdf", archive = (side == "none" ? plain : talk) + ".slides";
        if (runMeasured({buildPath("make_notes_pdf"), d.folder, pdf, side}).status != 0) return row;
        std::vector<std::string> argv = {buildPath("pack_slides"), pdf, "--archive", archive};
        if (side != "none") argv.insert(argv.end(), {"--notes", side});
        if (runMeasured(argv).status != 0) return row;
        (side == "none" ? row.without : row.with_notes) = fileSize(archive);
    }
    return row;
}

void printNotes(const std::vector<NotesRow>& rows) {
    if (rows.empty()) return;
    printf("\n== notes packed into the show (make_notes_pdf, --notes right) ==\n");
    for (const NotesRow& r : rows) {
        if (r.with_notes < 0 || r.without < 0) {
            printf("  %-18s could not be measured\n", r.deck.c_str());
            continue;
        }
        printf("  %-18s %lld bytes with notes, %lld without: the notes add %lld bytes (%.1f %%)\n", r.deck.c_str(),
               r.with_notes, r.without, r.with_notes - r.without, 100.0 * (r.with_notes - r.without) / r.without);
    }
}

int main(int argc, char** argv) {
    startSpawner();
    std::vector<DeckInput> decks;
    std::vector<std::string> corpus = corpusDecks();
    long online = sysconf(_SC_NPROCESSORS_ONLN);
    int all = online < 1 ? 1 : (int)online;
    for (const std::string& folder : corpus) decks.push_back({baseName(folder), folder, true, true, {1, all}});
    for (int i = 1; i < argc; i++) decks.push_back({baseName(argv[i]), argv[i], true, true, {1, all}});
    if (!corpus.empty()) {
        for (int pages : {257, 1000}) {
            std::string name = "corpus-" + std::to_string(pages);
            std::string folder = buildPath("bench-decks/" + name);
            mkdir(buildPath("bench-decks").c_str(), 0755);
            if (const char* error = makeCycledDeck(folder, pages, corpus))
                printf("Skipping %s: %s\n", name.c_str(), error);
            else if (pages == 257)  // also with many jobs, more than fit in the workers' memory budget
                decks.push_back({name, folder, false, true, {1, all, 16}});
            else  // for its memory: one job would take minutes
                decks.push_back({name, folder, false, false, {all}});
        }
    }
    if (decks.empty()) {
        printf("No decks to measure: give deck folders (with slides.txt) as arguments.\n");
        return 0;
    }
    printf("Packing every deck with --jobs 1 and --jobs %d (the processors online) ...\n", all);
    fflush(stdout);
    std::vector<PackRow> packing;
    double load_before = loadAverage();
    for (const DeckInput& d : decks) {
        measurePacking(d.name, "PNG pages", d.folder, archivePath(d.name), d.jobs, packing);
        std::string pdf = d.folder + "/source.pdf";
        if (d.detailed && fileSize(pdf) > 0)
            measurePacking(d.name, "PDF", pdf, archivePath(d.name + "-pdf"), d.jobs, packing);
    }

    double load_after = loadAverage();
    std::vector<NotesRow> notes;
    for (const DeckInput& d : decks)
        if (d.detailed) notes.push_back(measureNotes(d));
    std::vector<UnpackRow> unpacking;
    for (const DeckInput& d : decks)
        if (d.unpacked) unpacking.push_back(measureUnpacking(d));
    const long long kHeavyBytes = 4LL << 30;
    printf("Heavy file I/O: writing and reading back %lld MB ...\n", kHeavyBytes >> 20);
    fflush(stdout);
    double io_s = heavyFileIo(SLIDES_BUILD_DIR, kHeavyBytes);
    for (UnpackRow& r : unpacking) r.after_io = runMeasured({buildPath("view_slides"), archivePath(r.deck)});
    removeHeavyFile(SLIDES_BUILD_DIR);
    printf("(%.1f s of file I/O)\n", io_s);

    std::vector<std::string> json;
    for (const DeckInput& input : decks) {
        if (!input.detailed) continue;
        LoadedDeck d;
        if (const char* error = loadDeck(input.folder, d)) {
            printf("Skipping %s: %s\n", input.folder.c_str(), error);
            continue;
        }
        DeckFigures f = measureDeck(d, archivePath(input.name));
        printFigures(d, f);
        json.push_back(jsonFigures(d, f));
    }
    printPacking(packing, load_before, load_after);
    printUnpacking(unpacking);
    printNotes(notes);

    std::vector<std::string> packing_json, unpacking_json;
    for (const PackRow& r : packing) packing_json.push_back(jsonPacking(r));
    for (const UnpackRow& r : unpacking) unpacking_json.push_back(jsonUnpacking(r));
    std::string path = buildPath("bench.json");
    std::ofstream out(path);
    out << "{" << jsonList("decks", json) << ",\n" << jsonList("packing", packing_json) << ",\n"
        << jsonList("unpacking", unpacking_json) << "}\n";
    printf("\nFigures written to %s\n", path.c_str());
    return 0;
}
