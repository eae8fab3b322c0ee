// PDF talks: rendering, grouping pages into slides, and pack_slides end to end on hand-made PDFs
// checked against poppler's own pdftoppm rendering of the same pages.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "show/archive.h"
#include "helpers/run.h"
#include "png/png.h"
#include "packer/pdf.h"

namespace {

struct TestPage {
    std::string content;  // the page's drawing operators
    std::string label;    // "" for none
    double width = 400, height = 300;
    int rotate = 0;     // the page's own turn, in degrees
    std::string image;  // raw RGB bytes of an image /Im the content may draw, or none
    int image_width = 0, image_height = 0;
};

TestPage page(const std::string& content, const std::string& label, double width = 400, double height = 300) {
    TestPage p;
    p.content = content;
    p.label = label;
    p.width = width;
    p.height = height;
    return p;
}

// A minimal PDF: catalog, page tree, one content stream (and image) per page, page labels when
// `labelled`, and `trailer_extra` added to the trailer dictionary.
std::string makePdf(const std::vector<TestPage>& pages, bool labelled, const std::string& trailer_extra = "") {
    std::string pdf = "%PDF-1.4\n";
    std::vector<size_t> offsets;
    auto object = [&](const std::string& body) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(offsets.size()) + " 0 obj\n" + body + "\nendobj\n";
    };
    std::string kids, nums;
    for (size_t i = 0; i < pages.size(); i++) {
        kids += std::to_string(3 + 3 * i) + " 0 R ";
        if (!pages[i].label.empty()) nums += std::to_string(i) + " << /P (" + pages[i].label + ") >> ";
    }
    object("<< /Type /Catalog /Pages 2 0 R" + (labelled ? " /PageLabels << /Nums [" + nums + "] >>" : "") + " >>");
    object("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>");
    for (size_t i = 0; i < pages.size(); i++) {
        const TestPage& p = pages[i];
        std::ostringstream box;
        box << "[0 0 " << p.width << " " << p.height << "]";
        std::string first = std::to_string(3 + 3 * i);
        object("<< /Type /Page /Parent 2 0 R /MediaBox " + box.str() + " /Rotate " + std::to_string(p.rotate) + " /Contents " + std::to_string(4 + 3 * i) +
               " 0 R /Resources << /XObject << /Im " + std::to_string(5 + 3 * i) + " 0 R >> >> >>");
        object("<< /Length " + std::to_string(p.content.size()) + " >>\nstream\n" + p.content + "\nendstream");
        object("<< /Type /XObject /Subtype /Image /Width " + std::to_string(std::max(p.image_width, 1)) +
               " /Height " + std::to_string(std::max(p.image_height, 1)) +
               " /ColorSpace /DeviceRGB /BitsPerComponent 8 /Length " +
               std::to_string(p.image.empty() ? 3 : p.image.size()) + " >>\nstream\n" +
               (p.image.empty() ? std::string(3, '\0') : p.image) + "\nendstream");
    }
    size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(offsets.size() + 1) + "\n0000000000 65535 f \n";
    char entry[32];
    for (size_t off : offsets) {
        snprintf(entry, sizeof entry, "%010zu 00000 n \n", off);
        pdf += entry;
    }
    pdf += "trailer\n<< /Size " + std::to_string(offsets.size() + 1) + " /Root 1 0 R " + trailer_extra +
           " >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

bool exists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

// Pages for grouping: a slide, a slide with a step drawn over it, a frame that repeats the label
// but replaces the page, and a last slide.
const char* kRed = "1 0 0 rg 40 40 200 120 re f\n";
const char* kSquare = "0 0 1 rg 100 100 150 150 re f 0 g 2 w 10 10 m 390 290 l S 1 0 0 1 300 200 cm 0 0 m 40 0 40 40 0 40 c f\n";
const char* kAdded = "0 0.6 0 rg 260 40 100 60 re f\n";
const char* kDark = "0.1 0.2 0.3 rg 0 0 400 300 re f 1 1 1 rg 150 120 100 60 re f\n";
const char* kGrey = "0.5 g 50 50 300 200 re f\n";

std::vector<TestPage> groupingPages() {
    return {page(kRed, "1"), page(kSquare, "2"), page(std::string(kSquare) + kAdded, "2"), page(kDark, "2"),
            page(kGrey, "3")};
}

// The program's path found along PATH, or the bare name when it is not there.
std::string onPath(const std::string& name) {
    const char* path = getenv("PATH");
    std::stringstream folders(path ? path : "/usr/bin");
    std::string folder;
    while (std::getline(folders, folder, ':'))
        if (access((folder + "/" + name).c_str(), X_OK) == 0) return folder + "/" + name;
    return name;
}

// poppler's own rendering of page `page` (from 1) at w x h pixels.
void referencePage(const std::string& pdf, int page, int w, int h, const TempDir& tmp, Bitmap& out) {
    std::string prefix = tmp.file("ref" + std::to_string(page));
    RunResult r = runProgram({onPath("pdftoppm"), "-png", "-singlefile", "-f", std::to_string(page), "-l",
                              std::to_string(page), "-scale-to-x", std::to_string(w), "-scale-to-y",
                              std::to_string(h), pdf, prefix});
    ASSERT_EQ(r.status, 0) << "pdftoppm (poppler-utils) is needed as the reference renderer: " << r.err;
    ASSERT_TRUE(readPng((prefix + ".png").c_str(), out));
}

// Packs the PDF into an archive and exports every screen; returns pack_slides' run.
RunResult packAndExport(const std::string& pdf, const std::vector<std::string>& options, const TempDir& tmp) {
    std::vector<std::string> argv = {buildProgram("pack_slides"), pdf, "--archive", tmp.file("archive"), "--verify"};
    argv.insert(argv.end(), options.begin(), options.end());
    RunResult r = runProgram(argv);
    if (r.status == 0) {
        EXPECT_EQ(runProgram({buildProgram("view_slides"), tmp.file("archive"), "-png-screens"}, tmp.path).status, 0);
    }
    return r;
}

std::vector<bool> archiveFlags(const std::string& path) {
    File in;
    in.open(path.c_str(), "rb");
    ArchiveIndex index;
    EXPECT_EQ(readIndex(in, ARCHIVE_SEPARATE, index), nullptr);
    std::vector<bool> flags(index.flags.begin(), index.flags.end());
    in.close();
    return flags;
}

std::string screenFile(const TempDir& tmp, int i) {
    char name[32];
    snprintf(name, sizeof name, "screen_%03d.png", i);
    return tmp.file(name);
}

// Checks that the screen holds the reference at (x, y) and the background everywhere else.
void expectScreen(const std::string& path, const Bitmap& ref, int x, int y, int w, int h, Color background) {
    Bitmap screen;
    ASSERT_TRUE(readPng(path.c_str(), screen)) << path;
    ASSERT_EQ(screen.width, w);
    ASSERT_EQ(screen.height, h);
    long wrong = 0;
    for (int sy = 0; sy < h; sy++)
        for (int sx = 0; sx < w; sx++) {
            bool inside = sx >= x && sx < x + ref.width && sy >= y && sy < y + ref.height;
            Color want = inside ? ref.at(sx - x, sy - y) : background;
            wrong += screen.at(sx, sy) != want;
        }
    EXPECT_EQ(wrong, 0) << path << " differs from poppler's rendering in " << wrong << " pixels";
}

std::set<uint32_t> colorsOf(const Bitmap& b) {
    std::set<uint32_t> colors;
    for (long i = 0; i < (long)b.width * b.height; i++) colors.insert(colorKey(b.data[i]));
    return colors;
}

void expectOneError(const RunResult& r, const std::string& output, const std::string& words) {
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.err.rfind("ERROR! ", 0), 0u) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find(words), std::string::npos) << r.err;
    EXPECT_FALSE(exists(output));
}

long differingPixels(const Bitmap& a, const Bitmap& b) {
    if (a.width != b.width || a.height != b.height) return -1;
    long n = 0;
    for (long i = 0; i < (long)a.width * a.height; i++) n += a.data[i] != b.data[i];
    return n;
}

void solidPage(Bitmap& b, int w, int h, Color c) {
    b.data = allocPixels(w, h);
    b.width = w;
    b.height = h;
    for (int i = 0; i < w * h; i++) b.data[i] = c;
}

const Color kWhite = {255, 255, 255, 0}, kBlack = {0, 0, 0, 0}, kBlue = {0, 0, 200, 0};

}  // namespace

TEST(PdfFit, SameAspectFillsTheShow) {
    PageFit f = fitPage(362.83, 272.13, 1005, 754);  // a 4:3 beamer page
    EXPECT_EQ(f.x, 0);
    EXPECT_EQ(f.y, 0);
    EXPECT_EQ(f.width, 1005);
    EXPECT_EQ(f.height, 754);
}

TEST(PdfFit, WidePageIsCentredWithBandsAboveAndBelow) {
    PageFit f = fitPage(640, 360, 1005, 754);
    EXPECT_EQ(f.width, 1005);
    EXPECT_EQ(f.height, 565);
    EXPECT_EQ(f.x, 0);
    EXPECT_EQ(f.y, 94);
}

TEST(PdfFit, TallPageIsCentredWithBandsLeftAndRight) {
    PageFit f = fitPage(595, 842, 1005, 754);  // A4 portrait
    EXPECT_EQ(f.height, 754);
    EXPECT_EQ(f.width, 533);
    EXPECT_EQ(f.x, 236);
    EXPECT_EQ(f.y, 0);
}

TEST(PdfOptions, ParsesSizeAndColour) {
    int w = 0, h = 0;
    EXPECT_TRUE(parseSize("800x600", &w, &h));
    EXPECT_EQ(w, 800);
    EXPECT_EQ(h, 600);
    for (const char* bad : {"800", "800x", "x600", "0x600", "800x-1", "800x600x", "70000x10", "9000x9000", "a x b"})
        EXPECT_FALSE(parseSize(bad, &w, &h)) << bad;
    Color c;
    EXPECT_TRUE(parseColor("#336699", &c));
    EXPECT_EQ(c, (Color{0x33, 0x66, 0x99, 0}));
    EXPECT_TRUE(parseColor("FFffFF", &c));
    EXPECT_EQ(c, kWhite);
    for (const char* bad : {"", "12345", "1234567", "12345g", "#12345"}) EXPECT_FALSE(parseColor(bad, &c)) << bad;
}

TEST(PdfSteps, AddedContentIsAStepReplacedContentIsNot) {
    Bitmap a, b, c, d;
    solidPage(a, 40, 30, kWhite);
    for (int x = 0; x < 40; x++) a.at(x, 0) = kBlue;  // a title bar
    solidPage(b, 40, 30, kWhite);
    for (int x = 0; x < 40; x++) b.at(x, 0) = kBlue, b.at(x, 10) = kBlack;  // bar kept, a line added
    EXPECT_TRUE(looksLikeStep(a, b));
    solidPage(c, 40, 30, kWhite);
    for (int x = 0; x < 40; x++) c.at(x, 15) = kBlack;  // bar gone: a section page
    EXPECT_FALSE(looksLikeStep(a, c));
    solidPage(d, 40, 30, kBlue);  // another background: a standout frame
    EXPECT_FALSE(looksLikeStep(a, d));
}

TEST(PdfSteps, GroupingFollowsLabelsAndContent) {
    vec<Bitmap> pages;
    pages.resize(4);
    solidPage(pages[0], 8, 8, kWhite);
    pages[0].at(1, 1) = kBlue;
    solidPage(pages[1], 8, 8, kWhite);
    pages[1].at(1, 1) = kBlue;
    pages[1].at(2, 2) = kBlack;
    solidPage(pages[2], 8, 8, kBlue);
    solidPage(pages[3], 8, 8, kBlue);
    vec<char*> labels;
    for (const char* l : {"1", "1", "1", ""}) labels.push((char*)l);
    vec<bool> flags;
    Grouping g = groupPages(labels, pages, true, flags);
    EXPECT_EQ(flags.size, 4);
    EXPECT_FALSE(flags[0]);
    EXPECT_TRUE(flags[1]);
    EXPECT_FALSE(flags[2]);  // same label, new background
    EXPECT_FALSE(flags[3]);  // no label
    EXPECT_EQ(g.slides, 3);
    EXPECT_EQ(g.steps, 1);
    EXPECT_EQ(g.relabelled, 1);
    g = groupPages(labels, pages, false, flags);
    EXPECT_FALSE(flags[1]);
    EXPECT_EQ(g.slides, 4);
    EXPECT_EQ(g.relabelled, 0);
}

TEST(PdfPack, LabelledPagesGroupAndMatchPoppler) {
    TempDir tmp;
    std::string pdf = tmp.file("talk.pdf");
    writeFile(pdf, makePdf(groupingPages(), true));
    RunResult r = packAndExport(pdf, {}, tmp);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Found 5 pages in " + pdf + ": 4 slides, 1 animation steps (1 pages repeat"),
              std::string::npos) << r.out;
    EXPECT_EQ(archiveFlags(tmp.file("archive")), (std::vector<bool>{false, false, true, false, false}));
    for (int i = 0; i < 5; i++) {
        Bitmap ref;
        ASSERT_NO_FATAL_FAILURE(referencePage(pdf, i + 1, 1005, 754, tmp, ref));
        expectScreen(screenFile(tmp, i), ref, 0, 0, 1005, 754, kBlack);
    }
}

TEST(PdfPack, NoStepsMakesEveryPageASlide) {
    TempDir tmp;
    std::string pdf = tmp.file("talk.pdf");
    writeFile(pdf, makePdf(groupingPages(), true));
    RunResult r = runProgram({buildProgram("pack_slides"), pdf, "--archive", tmp.file("archive"), "--no-steps"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("5 slides, 0 animation steps"), std::string::npos) << r.out;
    EXPECT_EQ(archiveFlags(tmp.file("archive")), std::vector<bool>(5, false));
}

TEST(PdfPack, WithoutLabelsEveryPageIsASlide) {
    TempDir tmp;
    std::string pdf = tmp.file("plain.pdf");
    writeFile(pdf, makePdf({page(kSquare, ""), page(std::string(kSquare) + kAdded, ""), page(kRed, "")}, false));
    RunResult r = packAndExport(pdf, {}, tmp);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("3 slides, 0 animation steps"), std::string::npos) << r.out;
    EXPECT_EQ(archiveFlags(tmp.file("archive")), std::vector<bool>(3, false));
    Bitmap ref;
    ASSERT_NO_FATAL_FAILURE(referencePage(pdf, 2, 1005, 754, tmp, ref));
    expectScreen(screenFile(tmp, 1), ref, 0, 0, 1005, 754, kBlack);
}

TEST(PdfPack, WidePagesAreFittedAndCentred) {
    TempDir tmp;
    std::string pdf = tmp.file("wide.pdf");
    TestPage wide = page("0.9 0.4 0.1 rg 0 0 640 360 re f 0 g 3 w 0 0 m 640 360 l S\n", "1", 640, 360);
    writeFile(pdf, makePdf({wide, wide}, true));
    Color background = {0x33, 0x66, 0x99, 0};
    RunResult r = packAndExport(pdf, {"--background", "336699"}, tmp);
    ASSERT_EQ(r.status, 0) << r.err;
    Bitmap ref;
    ASSERT_NO_FATAL_FAILURE(referencePage(pdf, 1, 1005, 565, tmp, ref));
    expectScreen(screenFile(tmp, 0), ref, 0, 94, 1005, 754, background);

    TempDir small;
    r = packAndExport(pdf, {"--size", "300x400"}, small);  // a tall show: bands above and below
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_NO_FATAL_FAILURE(referencePage(pdf, 1, 300, 169, small, ref));
    expectScreen(screenFile(small, 0), ref, 0, 115, 300, 400, kBlack);
}

TEST(PdfPack, TurnedPagesAreShownTurned) {
    TempDir tmp;
    std::string pdf = tmp.file("turned.pdf");
    TestPage turned = page("1 0 0 rg 40 40 200 120 re f 0 g 3 w 0 0 m 300 400 l S\n", "1", 300, 400);
    turned.rotate = 90;  // a portrait page shown as landscape
    writeFile(pdf, makePdf({turned}, true));
    RunResult r = packAndExport(pdf, {}, tmp);
    ASSERT_EQ(r.status, 0) << r.err;
    Bitmap ref;
    ASSERT_NO_FATAL_FAILURE(referencePage(pdf, 1, 754, 1005, tmp, ref));  // sizes along the page's own axes
    expectScreen(screenFile(tmp, 0), ref, 0, 0, 1005, 754, kBlack);
}

TEST(PdfPack, SizeOptionRendersAtThatSize) {
    TempDir tmp;
    std::string pdf = tmp.file("talk.pdf");
    writeFile(pdf, makePdf(groupingPages(), true));
    RunResult r = packAndExport(pdf, {"--size", "640x480"}, tmp);
    ASSERT_EQ(r.status, 0) << r.err;
    Bitmap ref;
    ASSERT_NO_FATAL_FAILURE(referencePage(pdf, 2, 640, 480, tmp, ref));
    expectScreen(screenFile(tmp, 1), ref, 0, 0, 640, 480, kBlack);
}

TEST(PdfPack, PhotographsPackExactly) {
    TempDir tmp;
    std::mt19937 random(7);
    TestPage photo = page("q 400 0 0 300 0 0 cm /Im Do Q\n", "1");
    photo.image_width = 400;
    photo.image_height = 300;
    for (int i = 0; i < 400 * 300 * 3; i++) photo.image += (char)(random() & 255);
    std::string pdf = tmp.file("photo.pdf");
    writeFile(pdf, makePdf({photo}, true));
    RunResult r = packAndExport(pdf, {}, tmp);
    ASSERT_EQ(r.status, 0) << r.err;
    Bitmap ref;
    ASSERT_NO_FATAL_FAILURE(referencePage(pdf, 1, 1005, 754, tmp, ref));
    EXPECT_GT(colorsOf(ref).size(), 65535u);
    expectScreen(screenFile(tmp, 0), ref, 0, 0, 1005, 754, kBlack);
}

TEST(PdfPack, BadInputsGiveOneErrorLineAndNoOutput) {
    TempDir tmp;
    std::string show = tmp.file("show");
    auto pack = [&](const std::string& pdf, std::vector<std::string> extra = {}) {
        std::vector<std::string> argv = {buildProgram("pack_slides"), pdf, "-o", show};
        argv.insert(argv.end(), extra.begin(), extra.end());
        return runProgram(argv);
    };
    std::string broken = tmp.file("broken.pdf");
    writeFile(broken, "%PDF-1.4\nthis is not a PDF at all\n");
    expectOneError(pack(broken), show, "Could not read the PDF file");

    std::string missing = tmp.file("missing.pdf");
    expectOneError(pack(missing), show, "Could not read the PDF file");

    std::string empty = tmp.file("empty.pdf");
    writeFile(empty, makePdf({}, false));
    expectOneError(pack(empty), show, "no pages");

    std::string locked = tmp.file("locked.pdf");
    std::string hash(64, 'a');
    writeFile(locked, makePdf({page(kRed, "1")}, true,
                              "/Encrypt << /Filter /Standard /V 1 /R 2 /O <" + hash + "> /U <" + hash +
                                  "> /P -4 >> /ID [<00112233445566778899aabbccddeeff> "
                                  "<00112233445566778899aabbccddeeff>]"));
    expectOneError(pack(locked), show, "encrypted");

    std::string good = tmp.file("good.pdf");
    writeFile(good, makePdf({page(kRed, "1")}, true));
    std::string unwritable = tmp.file("no/such/folder/show");
    RunResult r = runProgram({buildProgram("pack_slides"), good, "-o", unwritable});
    expectOneError(r, unwritable, "Could not write");

    expectOneError(pack(good, {"--size", "big"}), show, "--size");
    expectOneError(pack(good, {"--background", "white"}), show, "--background");
    expectOneError(pack(good, {"--slides", good}), show, "page labels");
    expectOneError(runProgram({buildProgram("pack_slides"), good, good, "-o", show}), show, "one PDF");
}

// `pack_slides talk.pdf -o talk.pdf` once replaced the talk with the show.
TEST(PdfPack, TheTalkIsNeverReplacedByItsShow) {
    TempDir tmp;
    std::string pdf = tmp.file("talk.pdf");
    writeFile(pdf, makePdf({page(kRed, "1")}, true));
    std::string talk = readFileBytes(pdf);
    for (const char* output : {"-o", "--archive"}) {
        RunResult r = runProgram({buildProgram("pack_slides"), pdf, output, pdf});
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, "ERROR! Could not write: " + pdf + ": it would replace the input " + pdf + "\n");
        EXPECT_EQ(readFileBytes(pdf), talk);
    }
}

// The corpus talks: grouping by labels and content gives exactly the decks' slide lists.
TEST(PdfCorpus, GroupingMatchesTheSlideLists) {
    std::string corpus = corpusDir();
    if (corpus.empty()) GTEST_SKIP() << "corpus folder absent: " SLIDES_SOURCE_DIR "/../shared/corpus";
    int decks = 0;
    for (const char* deck : {"conference-talk", "metropolis"}) {
        std::string pdf = corpus + "/" + deck + "/source.pdf";
        if (!exists(pdf)) continue;
        decks++;
        vec<Bitmap> pages;
        vec<char*> labels;
        ASSERT_EQ(renderPdf(pdf.c_str(), PdfOptions(), pages, labels, nullptr), nullptr);
        vec<bool> flags;
        groupPages(labels, pages, true, flags);
        for (int i = 0; i < labels.size; i++) free(labels[i]);
        std::ifstream list(corpus + "/" + deck + "/slides.txt");
        std::string name;
        int flag, i = 0;
        for (; list >> name >> flag; i++) {
            ASSERT_LT(i, flags.size) << deck;
            EXPECT_EQ(flags[i], flag == 1) << deck << " page " << i + 1;
            Bitmap page;
            ASSERT_TRUE(readPng((corpus + "/" + deck + "/" + name).c_str(), page));
            EXPECT_EQ(differingPixels(page, pages[i]), 0) << deck << " page " << i + 1;
        }
        EXPECT_EQ(i, flags.size) << deck;
    }
    if (decks == 0) GTEST_SKIP() << "no source.pdf in the corpus decks";
}

// The whole way: a beamer talk to a show that exports the last screen of every slide.
TEST(PdfCorpus, TalkBecomesAShowThatExportsItsSlides) {
    std::string corpus = corpusDir();
    std::string deck = corpus + "/conference-talk";
    if (corpus.empty() || !exists(deck + "/source.pdf")) GTEST_SKIP() << "corpus talk absent: " << deck;
    TempDir tmp;
    RunResult r = runProgram({buildProgram("pack_slides"), deck + "/source.pdf", "-o", tmp.file("talk")});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(runProgram({tmp.file("talk"), "-png-slides"}, tmp.path).status, 0);
    std::ifstream list(deck + "/slides.txt");
    std::vector<std::string> names;
    std::vector<int> flags;
    std::string name;
    int flag;
    while (list >> name >> flag) names.push_back(name), flags.push_back(flag);
    int slide = 0;
    for (size_t i = 0; i < names.size(); i++) {
        if (i + 1 < names.size() && flags[i + 1]) continue;  // not the last screen of its slide
        char file[32];
        snprintf(file, sizeof file, "slide_%02d.png", ++slide);
        Bitmap page;
        ASSERT_TRUE(readPng((deck + "/" + names[i]).c_str(), page));
        expectScreen(tmp.file(file), page, 0, 0, page.width, page.height, kBlack);
    }
    char after[32];
    snprintf(after, sizeof after, "slide_%02d.png", slide + 1);
    EXPECT_FALSE(exists(tmp.file(after)));
}
