// bench_slides [DECK...]: on every deck of the corpus and every deck folder given, measures
// unpacking an archive the way view_slides does, the decoder and makeImage alone, libpng and
// memset on the same pages, the viewer's peak memory, archive sizes, packing and drawing.
// Prints a table per deck and writes every figure to bench.json in the build folder.
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
#include "packer/packer.h"

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

// Peak resident size of view_slides unpacking an archive in view mode with no display: it
// unpacks everything, then fails to open the display. A child's peak counts the memory of the
// process it was forked from, so the runs are started by a spawner forked while this program
// is still small; it takes archive paths on one pipe and answers "status bytes" on the other.
struct ViewerSpawner {
    FILE* ask = nullptr;
    FILE* answer = nullptr;
};

void serveViewerRuns(FILE* ask, FILE* answer) {
    std::string program = std::string(SLIDES_BUILD_DIR) + "/view_slides";
    char path[4096];
    while (fgets(path, sizeof path, ask)) {
        path[strcspn(path, "\n")] = 0;
        pid_t pid = fork();
        if (pid == 0) {
            unsetenv("DISPLAY");
            if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(127);
            execl(program.c_str(), program.c_str(), path, (char*)nullptr);
            _exit(127);
        }
        int st = 0;
        struct rusage usage;
        bool ok = pid > 0 && wait4(pid, &st, 0, &usage) == pid;
        fprintf(answer, "%d %lld\n", ok && WIFEXITED(st) ? WEXITSTATUS(st) : -1,
                ok ? (long long)usage.ru_maxrss * 1024 : -1LL);
        fflush(answer);
    }
    _exit(0);
}

ViewerSpawner startViewerSpawner() {
    ViewerSpawner s;
    int to[2], from[2];
    if (pipe(to) != 0 || pipe(from) != 0) return s;
    pid_t pid = fork();
    if (pid == 0) {
        close(to[1]);
        close(from[0]);
        serveViewerRuns(fdopen(to[0], "r"), fdopen(from[1], "w"));
    }
    close(to[0]);
    close(from[1]);
    if (pid < 0) return s;
    s.ask = fdopen(to[1], "w");
    s.answer = fdopen(from[0], "r");
    return s;
}

long long viewerPeakBytes(ViewerSpawner& spawner, const std::string& archive, int* status) {
    long long peak = -1;
    *status = -1;
    if (!spawner.ask) return -1;
    fprintf(spawner.ask, "%s\n", archive.c_str());
    fflush(spawner.ask);
    if (fscanf(spawner.answer, "%d %lld", status, &peak) != 2) return -1;
    return peak;
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
    double pack_ms_page = 0;
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

double timeDecoder(const PackedShow& packed) {
    vec<const vec<unsigned char>*> streams;
    for (int i = 0; i < packed.backgrounds.size; i++) streams.push(&packed.backgrounds[i]);
    for (int i = 0; i < packed.screens.size; i++) streams.push(&packed.screens[i].payload);
    return bestOf(kRounds, [&] {
        for (int i = 0; i < streams.size; i++) {
            Bitmap b;
            const unsigned char* in = streams[i]->data;
            decompress(b, in, in + streams[i]->size);
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
// obtained and first written the way makeImage does. Freed outside the timed part.
double timeFreshImageMemory(const LoadedDeck& d) {
    size_t bytes = (size_t)d.width * d.height * 2;
    double best = 1e30;
    for (int r = 0; r < kRounds; r++) {
        std::vector<char*> blocks;
        double t0 = seconds();
        for (int i = 0; i < d.pages.size; i++) {
            char* block = smart_realloc(nullptr, 0, (unsigned)bytes);
            populatePages(block, bytes);
            memset(block, i & 0xFF, bytes);
            blocks.push_back(block);
        }
        best = std::min(best, seconds() - t0);
        for (char* block : blocks) smart_free(block, (unsigned)bytes);
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

DeckFigures measureDeck(LoadedDeck& d, ViewerSpawner& spawner) {
    DeckFigures f;
    f.pages = f.screens = d.pages.size;
    f.png = d.png_total;

    PackedShow packed;
    f.pack_ms_page = bestOf(1, [&] {
        PageStore store;
        store.open("/tmp");
        Survey survey;
        for (int i = 0; i < d.pages.size; i++) surveyBitmap(store, survey, d.pages[i]);
        packPages(store, survey, d.deck.flags, 1, packed, nullptr);
    }) * 1e3 / f.pages;
    std::string archive = std::string(SLIDES_BUILD_DIR) + "/bench-" + d.name + ".slides";
    writeArchiveFile(archive, ARCHIVE_SEPARATE, "", packed.backgrounds, packed.screens, packed.flags);
    f.archive = fileSize(archive);
    f.optipng = optipngTotal(d);

    Show show;
    freshLargeBlocks();
    f.unpack_ms = timeUnpack(archive, show) * 1e3;
    f.fresh_ms = timeFreshImageMemory(d) * 1e3;
    recycledLargeBlocks();
    f.decode_ms = timeDecoder(packed) * 1e3;
    f.make_image_ms = timeMakeImage(d.pages) * 1e3;
    f.libpng_ms = timeLibpng(d) * 1e3;
    f.memset_ms = timeMemset(d) * 1e3;

    f.images_bytes = imagesBytes(show);
    f.screen_pixels = (long long)d.width * d.height * f.screens;
    f.peak = viewerPeakBytes(spawner, archive, &f.viewer_status);
    f.draw = measureDrawing(show.images);
    f.present = measurePresenting(show.images);
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
}

void printFigures(const LoadedDeck& d, const DeckFigures& f) {
    const double mb = 1024.0 * 1024.0;
    printf("\n== %s: %d screens of %d x %d ==\n", d.name.c_str(), f.screens, d.width, d.height);
    printf("  %-34s %12s %18s %9s   (CPU time, best of %d)\n", "", "deck", "per screen", "vs unpack", kRounds);
    printRow("unpacking (as view_slides)", f.unpack_ms, f.screens, f.unpack_ms, "");
    printRow("decoder alone", f.decode_ms, f.screens, f.unpack_ms, "");
    printRow("makeImage alone", f.make_image_ms, f.screens, f.unpack_ms, "");
    printRow("libpng decode (preloaded)", f.libpng_ms, f.screens, f.unpack_ms, "(target >= 6x)");
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
    printf("  packing %.1f ms a page\n", f.pack_ms_page);
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
      << ", \"png_bytes\": " << f.png << ", \"optipng_bytes\": " << f.optipng
      << ",\n     \"pack_ms_per_page\": " << f.pack_ms_page;
    if (f.draw.measured)
        o << ", \"draw_ms\": " << f.draw.draw_ms << ", \"transition_ms\": " << f.draw.transition_ms
          << ", \"trans_time_ms\": " << f.draw.wanted_ms;
    if (f.present.measured)
        o << ",\n     \"present_draw_1080_ms\": " << f.present.draw_1080_ms
          << ", \"present_draw_2160_ms\": " << f.present.draw_2160_ms
          << ", \"present_scroll_xvfb_ms\": " << f.present.xvfb.seconds * 1e3
          << ", \"present_scroll_xorg_ms\": " << f.present.xorg.seconds * 1e3;
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

}  // namespace

int main(int argc, char** argv) {
    ViewerSpawner spawner = startViewerSpawner();
    std::vector<std::string> decks = corpusDecks();
    for (int i = 1; i < argc; i++) decks.push_back(argv[i]);
    if (decks.empty()) {
        printf("No decks to measure: give deck folders (with slides.txt) as arguments.\n");
        return 0;
    }
    std::vector<std::string> json;
    for (const std::string& folder : decks) {
        LoadedDeck d;
        if (const char* error = loadDeck(folder, d)) {
            printf("Skipping %s: %s\n", folder.c_str(), error);
            continue;
        }
        DeckFigures f = measureDeck(d, spawner);
        printFigures(d, f);
        json.push_back(jsonFigures(d, f));
    }
    std::string path = std::string(SLIDES_BUILD_DIR) + "/bench.json";
    std::ofstream out(path);
    out << "{\"decks\": [\n";
    for (size_t i = 0; i < json.size(); i++) out << json[i] << (i + 1 < json.size() ? ",\n" : "\n");
    out << "]}\n";
    printf("\nFigures written to %s\n", path.c_str());
    return 0;
}
