// PDF talks: rendering, grouping pages into slides, and pack_slides end to end on hand-made PDFs
// checked against poppler's own pdftoppm rendering of the same pages.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "show/archive.h"
#include "show/notes.h"
#include "helpers/archives.h"
#include "helpers/run.h"
#include "png/png.h"
#include "packer/limits.h"
#include "packer/page_geometry.h"
#include "packer/pdf_pages.h"
#include "codec/codec.h"

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
    EXPECT_TRUE(parseSize("16384x4096", &w, &h));  // the longest side, and exactly the codec's pixel limit
    EXPECT_EQ(w, kMaxShowSide);
    EXPECT_EQ((long long)w * h, kMaxPixels);
    for (const char* bad : {"800", "800x", "x600", "0x600", "800x-1", "800x600x", "70000x10", "16385x10", "10x16385",
                            "8193x8192", "9000x9000", "a x b", " 800x600", "800x 600", "+800x600", "99999999999999999999x1"})
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
    Bitmap pages[4];
    solidPage(pages[0], 8, 8, kWhite);
    pages[0].at(1, 1) = kBlue;
    solidPage(pages[1], 8, 8, kWhite);
    pages[1].at(1, 1) = kBlue;
    pages[1].at(2, 2) = kBlack;
    solidPage(pages[2], 8, 8, kBlue);
    solidPage(pages[3], 8, 8, kBlue);
    const char* labels[] = {"1", "1", "1", ""};
    for (bool steps : {true, false}) {
        Grouping g;
        std::vector<bool> flags;
        for (int i = 0; i < 4; i++) {
            GroupedPage page{labels[i], &pages[i]}, before{i > 0 ? labels[i - 1] : "", i > 0 ? &pages[i - 1] : nullptr};
            flags.push_back(continuesSlide(i > 0 ? &before : nullptr, page, steps, g));
        }
        if (steps) {
            // same label and kept content; same label but a new background; no label
            EXPECT_EQ(flags, (std::vector<bool>{false, true, false, false}));
            EXPECT_EQ(g.slides, 3);
            EXPECT_EQ(g.steps, 1);
            EXPECT_EQ(g.relabelled, 1);
        } else {
            EXPECT_EQ(flags, std::vector<bool>(4, false));
            EXPECT_EQ(g.slides, 4);
            EXPECT_EQ(g.relabelled, 0);
        }
    }
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
    for (const char* bad : {"0", "-1", "abc", "", "86401", "1e9", "2x"})
        expectOneError(pack(good, {"--page-timeout", bad}), show, "--page-timeout");
}

int filesIn(const std::string& folder) {
    int n = 0;
    for (auto& entry : std::filesystem::directory_iterator(folder)) n += entry.is_regular_file();
    return n;
}

// ---- notes: every page holds its slide and the presenter's notes beside or below it ----------

// The slides of the notes tests: [1] [2 2+step] [3] [4]; the notes of each slide drawn in a
// 400 x 300 part of their own, none (a blank part) for slide 3.
const std::vector<std::string> kNotedSlides = {kRed, kSquare, std::string(kSquare) + kAdded, kDark, kGrey};
const std::vector<std::string> kNotedLabels = {"1", "2", "2", "3", "4"};
std::string notesOf(int page) {
    const char* drawn[] = {"0.2 g 20 250 300 20 re f 20 210 200 20 re f\n", "0.3 g 20 250 260 20 re f 20 170 340 30 re f\n",
                           "0.3 g 20 250 260 20 re f 20 170 340 30 re f\n", "", "0.1 0.3 0.1 rg 60 60 280 180 re f\n"};
    return drawn[page];
}
const int kNotesOfScreen[] = {0, 1, 1, -1, 2};  // the steps of slide 2 share their notes

// The notes test talk with the notes on `side` ("none": the slides alone, 400 x 300 pages).
std::string notesTalk(const std::string& side) {
    std::vector<TestPage> pages;
    for (size_t i = 0; i < kNotedSlides.size(); i++) {
        // The slide's and the notes' drawings, each moved to its part of the page and kept in it.
        auto at = [](double x, double y, const std::string& drawing) {
            std::ostringstream moved;
            moved << "q " << x << " " << y << " 400 300 re W n 1 0 0 1 " << x << " " << y << " cm " << drawing << " Q\n";
            return drawing.empty() ? std::string() : moved.str();
        };
        const std::string& slide = kNotedSlides[i];
        std::string notes = notesOf((int)i);
        if (side == "right") pages.push_back(page(at(0, 0, slide) + at(400, 0, notes), kNotedLabels[i], 800, 300));
        if (side == "left") pages.push_back(page(at(400, 0, slide) + at(0, 0, notes), kNotedLabels[i], 800, 300));
        if (side == "bottom") pages.push_back(page(at(0, 300, slide) + at(0, 0, notes), kNotedLabels[i], 400, 600));
        if (side == "none") pages.push_back(page(slide, kNotedLabels[i]));
    }
    return makePdf(pages, true);
}

// The notes of an archive, each decoded (null for none).
std::vector<std::shared_ptr<Bitmap>> archiveNotes(const std::string& path, int* pictures) {
    ArchiveIndex index;
    ShowNotes notes;
    EXPECT_EQ(readArchiveNotes(path, index, notes), nullptr);
    *pictures = notes.pictures.size;
    std::vector<std::shared_ptr<Bitmap>> out;
    for (int i = 0; i < index.ns; i++) {
        const vec<unsigned char>* stream = notes.of(i);
        if (!stream) {
            out.push_back(nullptr);
            continue;
        }
        auto picture = std::make_shared<Bitmap>();
        const unsigned char* bytes = stream->data;
        EXPECT_EQ(decompress(*picture, bytes, stream->data + stream->size), nullptr);
        out.push_back(picture);
    }
    return out;
}

std::string filesOf(const TempDir& tmp, int screens) {
    std::string all;
    for (int i = 0; i < screens; i++) all += readFileBytes(screenFile(tmp, i));
    return all;
}

TEST(PdfNotes, EverySideGivesTheSlidesShowAndItsNotes) {
    TempDir plain;
    writeFile(plain.file("talk.pdf"), notesTalk("none"));
    RunResult r = packAndExport(plain.file("talk.pdf"), {}, plain);
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<std::shared_ptr<Bitmap>> first;
    for (const char* side : {"right", "left", "bottom"}) {
        TempDir tmp;
        writeFile(tmp.file("talk.pdf"), notesTalk(side));
        r = packAndExport(tmp.file("talk.pdf"), {"--notes", side}, tmp);
        ASSERT_EQ(r.status, 0) << side << ": " << r.err;
        EXPECT_NE(r.out.find("Notes for 4 of the 5 pages, in 3 pictures"), std::string::npos) << r.out;
        EXPECT_EQ(archiveFlags(tmp.file("archive")), archiveFlags(plain.file("archive"))) << side;
        // The screens are the slides alone, pixel for pixel.
        EXPECT_EQ(filesOf(tmp, 5), filesOf(plain, 5)) << side;
        int pictures = 0;
        std::vector<std::shared_ptr<Bitmap>> notes = archiveNotes(tmp.file("archive"), &pictures);
        EXPECT_EQ(pictures, 3) << side;
        ASSERT_EQ(notes.size(), 5u);
        for (int i = 0; i < 5; i++) {
            ASSERT_EQ(notes[i] != nullptr, kNotesOfScreen[i] >= 0) << side << " screen " << i;
            if (!notes[i]) continue;
            EXPECT_EQ(notes[i]->width, 1005) << "the notes part at the slide's scale";
            EXPECT_EQ(notes[i]->height, 754);
            EXPECT_GT(colorsOf(*notes[i]).size(), 1u);
            if (!first.empty()) {
                EXPECT_EQ(differingPixels(*notes[i], *first[i]), 0) << side << " screen " << i;
            }
        }
        EXPECT_EQ(differingPixels(*notes[1], *notes[2]), 0);
        EXPECT_GT(differingPixels(*notes[0], *notes[1]), 0);
        if (first.empty()) first = notes;
    }
}

TEST(PdfNotes, ShowWithNotesExportsTheFilesOfTheShowWithout) {
    TempDir noted, plain;
    writeFile(noted.file("talk.pdf"), notesTalk("right"));
    writeFile(plain.file("talk.pdf"), notesTalk("none"));
    for (const char* mode : {"-png-screens", "-png-slides"}) {
        TempDir a, b;
        ASSERT_EQ(runProgram({buildProgram("pack_slides"), noted.file("talk.pdf"), "--notes", "right", "-o",
                              a.file("show")}).status, 0);
        ASSERT_EQ(runProgram({buildProgram("pack_slides"), plain.file("talk.pdf"), "-o", b.file("show")}).status, 0);
        EXPECT_GT(readFileBytes(a.file("show")).size(), readFileBytes(b.file("show")).size());
        TempDir out_a, out_b;
        EXPECT_EQ(runProgram({a.file("show"), mode}, out_a.path).status, 0);
        EXPECT_EQ(runProgram({b.file("show"), mode}, out_b.path).status, 0);
        std::vector<std::string> names;
        for (auto& entry : std::filesystem::directory_iterator(out_b.path)) names.push_back(entry.path().filename());
        EXPECT_EQ(names.size(), mode == std::string("-png-screens") ? 5u : 4u);
        EXPECT_EQ(filesIn(out_a.path), (int)names.size());
        for (const std::string& name : names)
            EXPECT_EQ(readFileBytes(out_a.file(name)), readFileBytes(out_b.file(name))) << mode << " " << name;
    }
}

TEST(PdfNotes, PagesNotMadeThatWayAreRefused) {
    TempDir tmp;
    std::string show = tmp.file("show");
    writeFile(tmp.file("plain.pdf"), notesTalk("none"));
    writeFile(tmp.file("right.pdf"), notesTalk("right"));
    writeFile(tmp.file("bottom.pdf"), notesTalk("bottom"));
    auto pack = [&](const std::string& pdf, const std::string& side) {
        return runProgram({buildProgram("pack_slides"), tmp.file(pdf), "--notes", side, "-o", show});
    };
    expectOneError(pack("plain.pdf", "right"), show, "Page 1 of");
    expectOneError(pack("plain.pdf", "right"), show, "does not hold a slide with its notes beside it (--notes right)");
    expectOneError(pack("plain.pdf", "left"), show, "(--notes left)");
    expectOneError(pack("plain.pdf", "bottom"), show, "notes below it (--notes bottom)");
    expectOneError(pack("right.pdf", "bottom"), show, "(--notes bottom)");
    expectOneError(pack("bottom.pdf", "right"), show, "(--notes right)");
    expectOneError(pack("right.pdf", "top"), show, "--notes wants right, left or bottom: top");
    // Notes come with a PDF talk, not with PNG pages.
    Bitmap png;
    solidPage(png, 40, 30, kBlue);
    ASSERT_TRUE(writePng(tmp.file("page.png").c_str(), png));
    expectOneError(runProgram({buildProgram("pack_slides"), tmp.file("page.png"), "--notes", "right", "-o", show}),
                   show, "apply to a PDF talk");
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

// A page whose image declares 10^6 x 10^6 pixels in three bytes: the PDF library renders it for
// minutes or more.
TestPage endlessPage(const std::string& label) {
    TestPage p = page("q 400 0 0 300 0 0 cm /Im Do Q\n", label);
    p.image_width = p.image_height = 1000000;
    return p;
}

TEST(PdfWorkers, APageThatTakesTooLongFailsThePackNamingIt) {
    TempDir tmp;
    std::string pdf = tmp.file("slow.pdf"), show = tmp.file("show");
    writeFile(pdf, makePdf({page(kRed, "1"), endlessPage("2")}, true));
    auto start = std::chrono::steady_clock::now();
    RunResult r = runProgram({buildProgram("pack_slides"), pdf, "-o", show, "--page-timeout", "1"});
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    expectOneError(r, show, "Rendering page 2 of " + pdf + " took more than 1 s (see --page-timeout)");
    EXPECT_EQ(r.status, 1);
    EXPECT_LT(seconds, 30) << "the time limit did not stop the page";
    EXPECT_EQ(filesIn(tmp.path), 1) << "a temporary file was left behind";
}

// The pids of a process's children.
std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> children;
    for (auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::string stat = readFileBytes(entry.path().string() + "/stat");
        size_t close = stat.rfind(')');
        int ppid = 0;
        if (close != std::string::npos && sscanf(stat.c_str() + close + 1, " %*c %d", &ppid) == 1 && ppid == parent)
            children.push_back(std::stoi(name));
    }
    return children;
}

// A crash inside the PDF library, as when a worker rendering a page dies of a segmentation fault:
// the pack fails with one line naming the page, and the packer itself ends normally.
TEST(PdfWorkers, AWorkerThatCrashesFailsThePackNamingThePage) {
    TempDir tmp;
    std::string pdf = tmp.file("crash.pdf"), show = tmp.file("show");
    writeFile(pdf, makePdf({endlessPage("1")}, true));
    std::string out = tmp.file("out"), err = tmp.file("err");
    pid_t packer = fork();
    if (packer == 0) {
        if (!freopen(out.c_str(), "w", stdout) || !freopen(err.c_str(), "w", stderr)) _exit(127);
        std::string program = buildProgram("pack_slides");
        execl(program.c_str(), program.c_str(), pdf.c_str(), "-o", show.c_str(), "--jobs", "1", (char*)nullptr);
        _exit(127);
    }
    // The stage line is printed once the page's worker has started.
    for (int tries = 0; readFileBytes(out).find("Rendering") == std::string::npos && tries < 3000; tries++)
        usleep(10000);
    std::vector<pid_t> workers = childrenOf(packer);
    EXPECT_EQ(workers.size(), 1u);
    for (pid_t worker : workers) kill(worker, SIGSEGV);
    int status = 0;
    waitpid(packer, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << "the packer itself died";
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(readFileBytes(err), "ERROR! Rendering page 1 of " + pdf +
                                      " failed: its worker process was killed by signal 11 (Segmentation fault)\n");
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    EXPECT_EQ(filesIn(tmp.path), 1) << "a temporary file was left behind";
}

// The show's size is checked before any page is rendered: this talk's page would take minutes.
TEST(PdfWorkers, ASizeBeyondTheLimitsIsRefusedBeforeRendering) {
    TempDir tmp;
    std::string pdf = tmp.file("slow.pdf"), show = tmp.file("show");
    writeFile(pdf, makePdf({endlessPage("1")}, true));
    for (const char* size : {"16385x100", "100x16385", "9000x9000", "8193x8192"}) {
        RunResult r = runProgram({buildProgram("pack_slides"), pdf, "-o", show, "--size", size});
        expectOneError(r, show, std::string("--size wants WxH, each side 1 to 16384 and at most 67108864 pixels"));
        EXPECT_EQ(r.out.find("Rendering"), std::string::npos) << size;
    }
}

// Renders a corpus talk at the show size in worker processes as the packer does; gives the
// grouping flags, and the pages through `page` (null: not wanted).
std::vector<bool> groupTalk(const std::string& pdf, int width, int height,
                            const std::function<void(int i, const Bitmap& page)>& page = nullptr) {
    TempDir tmp;
    PageStore store;
    EXPECT_EQ(store.open(tmp.path.c_str()), nullptr);
    PdfRun run;
    run.options.width = width;
    run.options.height = height;
    run.jobs = 2;
    Survey survey;
    vec<bool> flags;
    Grouping g;
    ShowNotes notes;
    EXPECT_EQ(surveyPdf(pdf.c_str(), run, store, survey, flags, g, notes, nullptr), nullptr);
    for (int i = 0; page && i < survey.pages.size; i++) {
        vec<unsigned char> stream;
        Bitmap rendered;
        EXPECT_EQ(store.get(survey.pages[i], stream), nullptr);
        EXPECT_EQ(decompress(rendered, stream), nullptr);
        page(i, rendered);
    }
    return std::vector<bool>(flags.begin(), flags.end());
}

// The corpus talks' slide lists: page file names and flags.
struct SlideList {
    std::vector<std::string> names;
    std::vector<bool> flags;
};

SlideList readSlideList(const std::string& deck) {
    SlideList list;
    std::ifstream in(deck + "/slides.txt");
    std::string name;
    int flag;
    while (in >> name >> flag) list.names.push_back(name), list.flags.push_back(flag == 1);
    return list;
}

// Runs check(deck folder) for every corpus talk with its source.pdf, or skips.
void forEachCorpusTalk(const std::function<void(const std::string& deck)>& check) {
    std::string corpus = corpusDir();
    if (corpus.empty()) GTEST_SKIP() << "corpus folder absent: " SLIDES_SOURCE_DIR "/../shared/corpus";
    int decks = 0;
    for (const char* name : {"conference-talk", "metropolis"}) {
        std::string deck = corpus + "/" + name;
        if (!exists(deck + "/source.pdf")) continue;
        decks++;
        check(deck);
    }
    if (decks == 0) GTEST_SKIP() << "no source.pdf in the corpus decks";
}

// The corpus talks: grouping by labels and content gives exactly the decks' slide lists, and
// every rendered page is the corpus page.
TEST(PdfCorpus, GroupingMatchesTheSlideLists) {
    forEachCorpusTalk([](const std::string& deck) {
        SlideList list = readSlideList(deck);
        std::vector<bool> flags = groupTalk(deck + "/source.pdf", 1005, 754, [&](int i, const Bitmap& rendered) {
            ASSERT_LT(i, (int)list.names.size()) << deck;
            Bitmap page;
            ASSERT_TRUE(readPng((deck + "/" + list.names[i]).c_str(), page));
            EXPECT_EQ(differingPixels(page, rendered), 0) << deck << " page " << i + 1;
        });
        EXPECT_EQ(flags, list.flags) << deck;
    });
}

// The grouping does not depend on the show's size: wide, small and large shows give the lists too.
TEST(PdfCorpus, GroupingIsTheSameAtOtherSizes) {
    forEachCorpusTalk([](const std::string& deck) {
        SlideList list = readSlideList(deck);
        for (auto size : {std::make_pair(1920, 1080), std::make_pair(800, 600)})
            EXPECT_EQ(groupTalk(deck + "/source.pdf", size.first, size.second), list.flags)
                << deck << " at " << size.first << "x" << size.second;
    });
}

TEST(PdfCorpus, GroupingIsTheSameAtFourTimesHd) {
    forEachCorpusTalk([](const std::string& deck) {
        EXPECT_EQ(groupTalk(deck + "/source.pdf", 3840, 2160), readSlideList(deck).flags) << deck;
    });
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
