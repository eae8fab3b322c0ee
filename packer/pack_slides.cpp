// pack_slides: turns a presenter's PDF talk or PNG pages into a slide archive or a self-contained show.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "io/output.h"
#include "show/notes.h"
#include "show/unpack.h"
#include "support/exits.h"
#include "codec/codec.h"
#include "packer/deck.h"
#include "packer/deck_pages.h"
#include "packer/limits.h"
#include "packer/packer.h"
#include "packer/page_geometry.h"
#include "packer/pdf_pages.h"
#include "packer/progress.h"
#include "packer/viewer.h"

static const char* usage =
    "Usage: pack_slides TALK.pdf (-o SHOW | --archive FILE) [--size WxH] [--background RRGGBB]\n"
    "                         [--no-steps] [--page-timeout SECONDS] [--jobs N] [--verify]\n"
    "                         [--viewer PATH]\n"
    "       pack_slides DECK_FOLDER (-o SHOW | --archive FILE) [--jobs N] [--verify] [--viewer PATH]\n"
    "       pack_slides PAGE.png... [--slides LIST] (-o SHOW | --archive FILE) [--jobs N] [--verify]\n"
    "\n"
    "  TALK.pdf        a PDF talk: every page is rendered at the show's size; consecutive pages\n"
    "                  sharing a page label that show the page before with more added are the\n"
    "                  animation steps of one slide\n"
    "  --size WxH      the show's size for a PDF talk (default 1005x754)\n"
    "  --background RRGGBB  the colour around PDF pages of another aspect ratio (default 000000,\n"
    "                  black); pages are fitted and centred, never stretched\n"
    "  --no-steps      every PDF page is a slide of its own\n"
    "  --page-timeout SECONDS  the longest a PDF page may take to render (default 60); a page\n"
    "                  that takes longer, or that crashes the PDF library, fails the pack\n"
    "  DECK_FOLDER     a folder with slides.txt: one line '<file> <flag>' per page,\n"
    "                  flag 1 = the page continues the slide of the page before;\n"
    "                  without slides.txt its *.png files in name order, one slide each\n"
    "  PAGE.png...     pages given one by one, each its own slide unless --slides\n"
    "                  names a list in the slides.txt format that groups them\n"
    "  -o SHOW         write a self-contained show: the viewer with the archive appended\n"
    "  --archive FILE  write the slide archive alone (view it with: view_slides FILE)\n"
    "  --jobs N        pages read, rendered and encoded by N worker processes at once (default:\n"
    "                  the number of processors); the show is the same for every N\n"
    "  --verify        unpack the written archive and compare every screen with its page\n"
    "  --viewer PATH   the view_slides program to copy (default: the one beside pack_slides)\n"
    "  -h, --help      print this help\n"
    "  --version       print the version\n";

struct Options {
    vec<const char*> inputs;
    const char* slide_list = nullptr;
    const char* show = nullptr;
    const char* archive = nullptr;
    const char* viewer = nullptr;
    const char* size = nullptr;
    const char* background = nullptr;
    const char* jobs = nullptr;
    const char* page_timeout = nullptr;
    const char* notes = nullptr;
    bool verify = false;
    bool no_steps = false;
};

static Output output;  // the show or archive being written

// The exit removes the output's temporary file.
[[noreturn]] static void fail(const char* message) {
    if (progressLineOpen()) putchar('\n');
    fflush(stdout);
    fprintf(stderr, "ERROR! %s\n", message);
    exit(1);
}

// Where the value of an option that takes one goes; null for any other argument.
static const char** valueSlot(Options& o, const char* name) {
    static const char* const names[] = {"-o",     "--archive",    "--slides", "--viewer",
                                        "--size", "--background", "--jobs",   "--page-timeout", "--notes"};
    const char** slots[] = {&o.show, &o.archive,    &o.slide_list, &o.viewer,      &o.size,
                            &o.background, &o.jobs, &o.page_timeout, &o.notes};
    for (size_t k = 0; k < sizeof names / sizeof *names; k++)
        if (!strcmp(name, names[k])) return slots[k];
    return nullptr;
}

static void parseOptions(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; i++) {
        const char* a = argv[i];
        bool has_value = i + 1 < argc;
        if (!strcmp(a, "-h") || !strcmp(a, "--help")) {
            fputs(usage, stdout);
            exit(0);
        } else if (!strcmp(a, "--version")) {
            printf("pack_slides (slides) %s\n", SLIDES_VERSION);
            exit(0);
        } else if (!strcmp(a, "--verify")) {
            o.verify = true;
        } else if (!strcmp(a, "--no-steps")) {
            o.no_steps = true;
        } else if (const char** slot = has_value ? valueSlot(o, a) : nullptr) {
            if (*slot) fail(errorf("%s given twice", a));
            *slot = argv[++i];
        } else if (a[0] == '-' && a[1]) {
            fail(errorf("Unknown or incomplete option: %s (see pack_slides --help)", a));
        } else {
            o.inputs.push(a);
        }
    }
    if (o.inputs.size == 0) fail("No pages given (see pack_slides --help)");
    if (!o.show == !o.archive) fail("Give exactly one output: -o SHOW or --archive FILE");
}

static bool isFolder(const char* path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

static void collectDeck(const Options& o, Deck& deck) {
    const char* error = nullptr;
    if (o.inputs.size == 1 && isFolder(o.inputs[0])) {
        if (o.slide_list) fail("--slides applies to pages given one by one; a deck folder has its own slides.txt");
        error = readSlideList(o.inputs[0], deck);
        if (!error && !deck.list)
            printf("No slides.txt in %s: packing its %d PNG files in name order, each a slide of its own\n",
                   o.inputs[0], deck.files.size);
    } else {
        for (int i = 0; i < o.inputs.size; i++) {
            deck.files.push(strdup(o.inputs[i]));
            deck.flags.push(false);
        }
        if (o.slide_list) error = applySlideList(o.slide_list, deck);
    }
    if (error) fail(error);
}

// Finds and checks the viewer before the slow work, so that a wrong one fails at once, and says
// which; its bytes are kept for the show.
static char* chooseViewer(const Options& o, vec<unsigned char>& bytes) {
    const char* error = nullptr;
    char* viewer = viewerPath(o.viewer, &error);
    if (!error) error = loadViewer(viewer, bytes);
    if (error) fail(error);
    printf("Using the viewer %s\n", viewer);
    return viewer;
}

// Every file the pack reads: the output must not replace any of them.
static void collectInputs(const Options& o, const Deck& deck, const char* viewer, vec<const char*>& inputs) {
    for (const char* input : o.inputs) inputs.push(input);
    for (const char* page : deck.files) inputs.push(page);
    if (deck.list) inputs.push(deck.list);
    if (o.slide_list) inputs.push(o.slide_list);
    if (viewer) inputs.push(viewer);
}

// Writes the viewer's bytes (none for an archive alone), the archive and its notes; returns the
// archive's size.
static long long writeOutput(const Options& o, const vec<unsigned char>& viewer, const PackedShow& show,
                             const ShowNotes& notes) {
    File out;
    out.open(output.fd, WRITE, true);
    for (unsigned char c : viewer) out.putChar(c);
    unsigned long long base = (unsigned long long)viewer.size;
    writeArchive(out, o.show ? ARCHIVE_APPENDED : ARCHIVE_SEPARATE, base, show.backgrounds, show.screens,
                 show.flags, &notes);
    long long total = out.tell();
    if (!out.close()) fail(outputError(output, strerror(out.writeError())));
    return total - (long long)base;
}

static bool samePixels(const Image& image, const Bitmap& page) {
    if (image.width != page.width || image.height != page.height) return false;
    vec<Color> row;
    row.resize(page.width);
    for (int y = 0; y < page.height; y++) {
        copyPixels(image, y * page.width, page.width, row.data);
        if (memcmp(row.data, page.data + (size_t)y * page.width, sizeof(Color) * page.width)) return false;
    }
    return true;
}

// The notes read back from the written file are the ones packed, and every picture decodes.
static const char* verifyNotes(File& in, const ArchiveIndex& index, const ShowNotes& packed) {
    ShowNotes read;
    if (const char* error = readNotes(in, index, read)) return error;
    for (int i = 0; i < index.ns; i++) {
        const vec<unsigned char>* a = packed.of(i);
        const vec<unsigned char>* b = read.of(i);
        if (!a != !b || (a && (a->size != b->size || memcmp(a->data, b->data, (size_t)a->size) != 0)))
            return errorf("the notes of screen %d differ from its page's", i + 1);
        Bitmap picture;
        const unsigned char* in = b ? b->data : nullptr;
        if (b && decompress(picture, in, b->data + b->size)) return errorf("the notes of screen %d do not decode", i + 1);
    }
    return nullptr;
}

// Unpacks the written file the way view_slides does and compares every screen with its page,
// one screen at a time, and the notes with the ones packed.
static void verify(const Options& o, const PageStore& store, const Survey& survey, const ShowNotes& notes) {
    File in;
    in.open(output.temp, "rb");
    ArchiveIndex index;
    Show show;
    const char* error = nullptr;
    auto check = [&](int i, Image& image) -> const char* {
        vec<unsigned char> stream;
        Bitmap page;
        const char* problem = i < survey.pages.size ? store.get(survey.pages[i], stream) : "too many screens";
        if (!problem) problem = decompress(page, stream);
        if (!problem && !samePixels(image, page)) problem = errorf("screen %d differs from its page", i + 1);
        releaseImage(image);
        return problem;
    };
    try {
        error = readIndex(in, o.show ? ARCHIVE_APPENDED : ARCHIVE_SEPARATE, index);
        if (!error && index.ns != survey.pages.size) error = "wrong number of screens";
        if (!error) error = unpackShow(in, index, RUN_VIEW, show, nullptr, check);
        if (!error) error = verifyNotes(in, index, notes);
    } catch (Exception_EOF&) {
        error = "unexpected end of file";
    }
    if (error) fail(errorf("Verification failed: %s", error));
}

static void readProgress(int i, int n) { showProgress("Reading", i, n); }
static void renderProgress(int i, int n) { showProgress("Rendering", i, n); }
static void encodeProgress(int i, int n) { showProgress("Encoding", i, n); }

static long long fileBytes(const char* path) {
    struct stat st;
    return stat(path, &st) == 0 ? st.st_size : 0;
}

static long long pngTotal(const Deck& deck) {
    long long total = 0;
    for (int i = 0; i < deck.files.size; i++) total += fileBytes(deck.files[i]);
    return total;
}

// True when the input is one PDF talk; rejects options that do not fit the kind of input.
static bool isPdfInput(const Options& o) {
    bool pdf = false;
    for (int i = 0; i < o.inputs.size; i++) pdf = pdf || (!isFolder(o.inputs[i]) && isPdfFile(o.inputs[i]));
    if (pdf && o.inputs.size > 1) fail("A PDF talk is packed on its own; give one PDF file");
    if (pdf && o.slide_list) fail("--slides groups PNG pages; a PDF talk is grouped by its page labels");
    if (!pdf && (o.size || o.background || o.no_steps || o.page_timeout || o.notes))
        fail("--size, --background, --no-steps, --notes and --page-timeout apply to a PDF talk");
    return pdf;
}

// --jobs N: 1 .. kMaxJobs; by default the processors online.
static int jobCount(const Options& o) {
    if (!o.jobs) {
        long online = sysconf(_SC_NPROCESSORS_ONLN);
        return online < 1 ? 1 : online > kMaxJobs ? kMaxJobs : (int)online;
    }
    char* end;
    long n = strtol(o.jobs, &end, 10);
    if (o.jobs[0] < '0' || o.jobs[0] > '9' || *end || n < 1 || n > kMaxJobs)
        fail(errorf("--jobs wants a number of worker processes from 1 to %d: %s", kMaxJobs, o.jobs));
    return (int)n;
}

static PdfRun pdfRun(const Options& o) {
    PdfRun run;
    PdfOptions& p = run.options;
    if (o.size && !parseSize(o.size, &p.width, &p.height))
        fail(errorf("--size wants WxH, each side 1 to %d and at most %lld pixels, for example 1005x754: %s",
                    kMaxShowSide, kMaxPixels, o.size));
    if (o.background && !parseColor(o.background, &p.background))
        fail(errorf("--background wants a colour RRGGBB, for example ffffff: %s", o.background));
    p.steps = !o.no_steps;
    if (o.notes) {
        static const char* const sides[] = {"right", "left", "bottom"};
        const NotesSide values[] = {NOTES_RIGHT, NOTES_LEFT, NOTES_BOTTOM};
        for (int k = 0; k < 3; k++)
            if (!strcmp(o.notes, sides[k])) p.notes = values[k];
        if (p.notes == NOTES_NONE) fail(errorf("--notes wants right, left or bottom: %s", o.notes));
    }
    run.page_timeout = kDefaultPageTimeout;
    if (o.page_timeout) {
        char* end;
        run.page_timeout = strtod(o.page_timeout, &end);
        if (o.page_timeout[0] < '0' || o.page_timeout[0] > '9' || *end || !(run.page_timeout > 0) ||
            run.page_timeout > kMaxPageTimeout)
            fail(errorf("--page-timeout wants seconds above 0, at most %g: %s", kMaxPageTimeout, o.page_timeout));
    }
    run.jobs = jobCount(o);
    return run;
}

// Renders the talk's pages and groups them into slides; prints what it found.
static void loadPdf(const Options& o, const PdfRun& run, PageStore& store, Survey& survey, vec<bool>& flags,
                    ShowNotes& notes) {
    Grouping g;
    if (const char* error = surveyPdf(o.inputs[0], run, store, survey, flags, g, notes, renderProgress)) fail(error);
    overProgress();
    printf("Found %d pages in %s: %d slides, %d animation steps", survey.pages.size, o.inputs[0], g.slides, g.steps);
    if (g.relabelled) printf(" (%d pages repeat the label before them but start new slides)", g.relabelled);
    printf("%s\n", run.options.steps ? "" : " (--no-steps)");
    if (run.options.notes == NOTES_NONE) return;
    int noted = 0;
    for (int number : notes.of_screen) noted += number >= 0;
    printf("Notes for %d of the %d pages, in %d pictures\n", noted, survey.pages.size, notes.pictures.size);
}

static int packSlides(int argc, char** argv) {
    Options o;
    parseOptions(argc, argv, o);
    bool pdf = isPdfInput(o);
    PdfRun run = pdf ? pdfRun(o) : PdfRun();
    int jobs = pdf ? run.jobs : jobCount(o);
    const char* path = o.show ? o.show : o.archive;
    vec<unsigned char> viewer_bytes;
    char* viewer = o.show ? chooseViewer(o, viewer_bytes) : nullptr;
    Deck deck;
    if (!pdf) collectDeck(o, deck);
    vec<const char*> inputs;
    collectInputs(o, deck, viewer, inputs);
    // Before the slow work, so that an output that cannot or must not be written fails at once.
    if (const char* error = beginOutput(output, path, inputs, o.show ? OUTPUT_PROGRAM : OUTPUT_FILE)) fail(error);
    char room[PATH_MAX];  // the page store lives beside the output
    PageStore store;
    if (const char* error = store.open(folderOf(path, room))) fail(error);
    Survey survey;
    ShowNotes notes;
    if (pdf) {
        loadPdf(o, run, store, survey, deck.flags, notes);
    } else {
        if (const char* error = surveyDeck(deck, jobs, store, survey, readProgress)) fail(error);
    }
    PackedShow show;
    if (const char* error = packPages(store, survey, deck.flags, jobs, show, encodeProgress)) fail(error);
    long long size = writeOutput(o, viewer_bytes, show, notes);
    free(viewer);
    if (o.verify) verify(o, store, survey, notes);
    if (const char* error = finishOutput(output)) fail(error);

    int slides = 0;
    for (int i = 0; i < deck.flags.size; i++) slides += !deck.flags[i];
    long long source = pdf ? fileBytes(o.inputs[0]) : pngTotal(deck);
    overProgress();
    printf("Packed %d pages (%d slides) into %s: archive %lld bytes (%.2f x the %s)%s\n", survey.pages.size, slides,
           path, size, source ? (double)size / source : 0.0, pdf ? "PDF" : "PNG pages", o.verify ? ", verified" : "");
    return 0;
}

// Running out of memory anywhere ends the pack with one error line; the exit removes the output's
// temporary file, as it does after every other failure, an interrupt or a crash.
int main(int argc, char** argv) {
    ignoreWriteSignals();
    try {
        return packSlides(argc, argv);
    } catch (Exception_MemOut&) {
    } catch (std::bad_alloc&) {
    }
    fail("pack_slides ran out of memory");
}
