// End-to-end tests of view_slides and pack_slides on the real corpus and on hand-made archives.
#include <fcntl.h>
#include <pty.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <map>
#include <string>
#include <vector>

#include "show/archive.h"
#include "show/unpack.h"
#include "codec/codec.h"
#include "helpers/archives.h"
#include "helpers/checks.h"
#include "helpers/run.h"
#include "png/png.h"

namespace {

const char* kBanner =
    "===============================================================================\n"
    "Now unpacking the slide show to memory. If you have less than 512 MB of RAM,\n"
    "you might want to try:\n"
    "\n"
    "    -png-screens    -- Unpack all slides (including animations) to PNG files\n"
    "    -png-slides     -- Unpack all slides (without animations) to PNG files\n"
    "\n"
    "You can then view the slides using your favorite image viewer.\n"
    "\n"
    "Keys to use within the viewer:\n"
    "\n"
    "    Space, BackSpace -- Move through slides with animations and transitions\n"
    "    PgUp, PgDn       -- Move complete slides (no animations) with transitions\n"
    "    Cursor Keys      -- Move through slides quickly without transitions\n"
    "    Home, End        -- Go to first or last slide\n"
    "    M, E, R, C       -- Go directly to the different sub-sections of the slides\n"
    "    Mouse            -- Yeah, that works to. Just click on the buttons...\n"
    "===============================================================================\n";

struct Page {
    std::string file;
    bool continues;
};

std::vector<Page> readSlidesTxt(const std::string& deck) {
    std::vector<Page> pages;
    std::ifstream in(deck + "/slides.txt");
    std::string file;
    int flag;
    while (in >> file >> flag) pages.push_back({deck + "/" + file, flag == 1});
    return pages;
}

bool fileExists(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

int countFiles(const std::string& dir) {
    int n = 0;
    for (auto& e : std::filesystem::directory_iterator(dir)) n += e.is_regular_file();
    return n;
}

// Packs a corpus deck with pack_slides --verify into an archive (--archive) or a show (-o),
// once per deck and kind for the whole run.
std::string packDeck(const std::string& name, const std::string& option) {
    static TempDir packed;
    std::string path = packed.file(name + option);
    if (std::filesystem::exists(path)) return path;
    RunResult r = runProgram({buildProgram("pack_slides"), corpusDir() + "/" + name, option, path, "--verify"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    return path;
}

class Corpus : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
        deck = corpusDir() + "/" + GetParam();
        pages = readSlidesTxt(deck);
        ASSERT_FALSE(pages.empty());
    }
    std::string deck;
    std::vector<Page> pages;

    std::string pack(const std::string& option) { return packDeck(GetParam(), option); }

    void expectScreens(const std::string& dir) {
        EXPECT_EQ(countFiles(dir), (int)pages.size());
        char name[32];
        for (size_t i = 0; i < pages.size(); i++) {
            snprintf(name, sizeof name, "/screen_%.3d.png", (int)i);
            EXPECT_TRUE(samePng(dir + name, pages[i].file));
        }
    }

    void expectSlides(const std::string& dir) {
        char name[32];
        int slide = 0;
        for (size_t i = 0; i < pages.size(); i++) {
            if (i + 1 < pages.size() && pages[i + 1].continues) continue;
            snprintf(name, sizeof name, "/slide_%.2d.png", ++slide);
            EXPECT_TRUE(samePng(dir + name, pages[i].file));
        }
        EXPECT_EQ(countFiles(dir), slide);
    }

    // The banner and progress lines of a show with nb backgrounds and one screen per page.
    std::string expectedProgress(int nb) {
        std::string s = kBanner;
        for (int i = 1; i <= nb; i++) s += "** Decompressing background " + std::to_string(i) + "/" + std::to_string(nb) + "\r";
        s += "\n";
        for (size_t i = 0; i < pages.size(); i++)
            s += "** Decompressing screen " + std::to_string(i) + "/" + std::to_string(pages.size()) + "\r";
        return s + "\n";
    }
};

TEST_P(Corpus, ArchiveExportsEveryScreenExactly) {
    std::string archive = pack("--archive");
    TempDir out;
    RunResult r = runProgram({buildProgram("view_slides"), archive, "-png-screens"}, out.path);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    expectScreens(out.path);
}

TEST_P(Corpus, ArchiveExportsTheLastScreenOfEverySlide) {
    std::string archive = pack("--archive");
    TempDir out;
    RunResult r = runProgram({buildProgram("view_slides"), archive, "-png-slides"}, out.path);
    ASSERT_EQ(r.status, 0) << r.err;
    expectSlides(out.path);
}

TEST_P(Corpus, SelfContainedShowReadsItsOwnFile) {
    std::string show = pack("-o");
    TempDir screens, slides;
    RunResult r = runProgram({show, "-png-screens"}, screens.path);
    ASSERT_EQ(r.status, 0) << r.err;
    expectScreens(screens.path);
    r = runProgram({show, "-png-slides"}, slides.path);
    ASSERT_EQ(r.status, 0) << r.err;
    expectSlides(slides.path);
}

TEST_P(Corpus, BannerAndProgressAreExact) {
    std::string show = pack("-o");
    TempDir out;
    RunResult r = runProgram({show, "-png-screens"}, out.path);
    ASSERT_EQ(r.status, 0);
    File in;
    in.open(show.c_str(), "rb");
    ArchiveIndex index;
    ASSERT_EQ(readIndex(in, ARCHIVE_APPENDED, index), nullptr);
    EXPECT_GE(index.nb, 1);
    EXPECT_EQ(r.out, expectedProgress(index.nb));
}

TEST_P(Corpus, BothSwitchesExportSlides) {
    std::string archive = pack("--archive");
    TempDir out;
    RunResult r = runProgram({buildProgram("view_slides"), archive, "-png-screens", "--png-slides"}, out.path);
    ASSERT_EQ(r.status, 0) << r.err;
    expectSlides(out.path);
}

// The archives the packer writes for the corpus decks, byte for byte. Reorganising code must
// not change them; a change to packing that does must update these digests on purpose.
TEST_P(Corpus, ArchiveBytesAreTheKnownOnes) {
    const std::map<std::string, std::string> digests = {
        {"conference-talk", "7873a7ce89def9788658318253709bc3923500a355da40a22201b35a6260f83d"},
        {"metropolis", "20f23af1d4fff64f4ce97aff7e024d2934906f55f098596babe31e29e34175ab"}};
    std::string archive = pack("--archive");
    RunResult r = runProgram({"/usr/bin/sha256sum", archive});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, 64), digests.at(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Decks, Corpus, ::testing::Values("conference-talk", "metropolis"));

TEST(Debug, DecodesOnlyTheFirstTwentyScreens) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    std::string deck = corpusDir() + "/conference-talk";
    std::vector<Page> pages = readSlidesTxt(deck);
    ASSERT_GT(pages.size(), 20u);
    TempDir out;
    RunResult r = runProgram({buildProgram("view_slides"), packDeck("conference-talk", "--archive"), "-debug", "-png-screens"}, out.path);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(countFiles(out.path), 20);
    EXPECT_TRUE(fileExists(out.file("screen_019.png")));
    EXPECT_TRUE(samePng(out.file("screen_019.png"), pages[19].file));
}

// A small archive made in the test: a 24 x 16 background and three screens.
std::string smallArchive(ArchiveLayout layout, const std::string& prefix = "") {
    Bitmap bg;
    bg.data = allocPixels(24, 16);
    bg.width = 24;
    bg.height = 16;
    for (int i = 0; i < 24 * 16; i++) bg.data[i] = Color{(unsigned char)(i % 4 * 60), 40, (unsigned char)(i / 24 % 3 * 80), 0};
    vec<vec<unsigned char> > backgrounds;
    compress(bg, backgrounds.push(), false);
    vec<ScreenRecord> screens;
    vec<bool> flags;
    for (int s = 0; s < 3; s++) {
        Bitmap screen;
        screen.data = allocPixels(24, 16);
        screen.width = 24;
        screen.height = 16;
        for (int i = 0; i < 24 * 16; i++)
            screen.data[i] = (i + s) % 5 == 0 ? Color{200, (unsigned char)(s * 50), 10, 0} : color_SeeThrough;
        ScreenRecord& r = screens.push();
        r.selector = s == 0 ? 0 : 1;
        compress(screen, r.payload, false);
        flags.push(s == 2);
    }
    return writeArchiveFile(std::string(::testing::TempDir()) + "/small_archive", layout, prefix, backgrounds,
                            screens, flags);
}

TEST(MalformedArchive, EveryTruncationGivesOneErrorLine) {
    std::string archive = smallArchive(ARCHIVE_SEPARATE);
    TempDir tmp, out;
    for (size_t n = 0; n < archive.size(); n++) {
        writeFileBytes(tmp.file("cut"), archive.substr(0, n));
        RunResult r = runProgram({buildProgram("view_slides"), tmp.file("cut"), "-png-screens"}, out.path);
        EXPECT_EQ(r.status, 1) << "cut at " << n;
        EXPECT_TRUE(oneErrorLine(r)) << "cut at " << n;
    }
}

// Unpacks an archive file in this process the way view_slides does; returns the error or null.
const char* unpackFile(const std::string& path, Show& show) {
    File in;
    in.open(path.c_str(), "rb");
    ArchiveIndex index;
    try {
        const char* error = readIndex(in, ARCHIVE_SEPARATE, index);
        return error ? error : unpackShow(in, index, RUN_VIEW, show, nullptr);
    } catch (Exception_EOF&) {
        return "end of file";
    }
}

TEST(MalformedArchive, EveryCorruptedByteIsHandled) {
    std::string archive = smallArchive(ARCHIVE_SEPARATE);
    TempDir tmp;
    int rejected = 0;
    for (size_t at = 0; at < archive.size(); at++)
        for (int value : {0x00, 0x80, 0xFF}) {
            std::string bad = archive;
            bad[at] = (char)value;
            writeFileBytes(tmp.file("bad"), bad);
            Show show;
            const char* error = unpackFile(tmp.file("bad"), show);
            if (error) {
                rejected++;
                continue;
            }
            // A corruption that still forms an archive (a smaller screen count, another selector)
            // unpacks into whole screens.
            ASSERT_LE(show.images.size, 3);
            for (int i = 0; i < show.images.size; i++) {
                EXPECT_EQ(show.images[i].width, 24);
                EXPECT_EQ(imagePixelCount(show.images[i]), 24 * 16);
            }
        }
    EXPECT_GT(rejected, 0);
}

TEST(MalformedArchive, CorruptedOffsetsAndSelectorsInTheProgram) {
    std::string archive = smallArchive(ARCHIVE_SEPARATE);
    TempDir tmp, out;
    size_t index = archive.size() - 8 - 2 - 4 - 3;  // nb, ns, four offsets, three flags
    struct Case {
        size_t at;
        char value;
        const char* what;
    } cases[] = {
        {index + 2, 0x7F, "background offset past the end"},
        {index + 4, 0x7F, "screen offset past the end"},
        {index + 1, 0x7F, "more screens than the index holds"},
        {archive.size() - 8, 0x7F, "index offset past the end"},
    };
    for (const Case& c : cases) {
        std::string bad = archive;
        bad[c.at] = c.value;
        writeFileBytes(tmp.file("bad"), bad);
        RunResult r = runProgram({buildProgram("view_slides"), tmp.file("bad"), "-png-screens"}, out.path);
        EXPECT_EQ(r.status, 1) << c.what;
        EXPECT_TRUE(oneErrorLine(r)) << c.what;
    }
}

// An archive whose records all point at one tiny stream of a huge one-colour bitmap.
std::string hugeRecordsArchive(int nb, int ns) {
    Bitmap big;
    big.data = allocPixels(4096, 4096);
    big.width = big.height = 4096;
    for (int i = 0; i < 4096 * 4096; i++) big.data[i] = Color{0, 0, 0, 0};
    vec<unsigned char> stream;
    compress(big, stream, false);
    std::string record(1, '\0');  // a screen's selector: background 0
    record += std::string(1, (char)stream.size) + std::string((const char*)stream.data, stream.size);
    std::string index = std::string(1, (char)nb) + std::string(1, (char)ns);
    for (int i = 0; i < nb; i++) index += '\1';  // every background at offset 1: length, payload
    for (int i = 0; i < ns; i++) index += '\0';  // every screen at offset 0: selector, length, payload
    index += std::string(ns, '\0');
    std::string trailer(8, '\0');
    trailer[0] = (char)record.size();
    return record + index + trailer;
}

TEST(MalformedArchive, MemoryStaysBoundedWhateverTheRecordsClaim) {
    TempDir tmp, out;
    struct Case {
        int nb, ns;
        const char* error;
    } cases[] = {
        {20, 1, "ERROR! Backgrounds too large to hold.\n"},
        {1, 100, "ERROR! Screens too large to hold.\n"},
    };
    for (const Case& c : cases) {
        writeFileBytes(tmp.file("huge"), hugeRecordsArchive(c.nb, c.ns));
        RunResult r = runProgram({buildProgram("view_slides"), tmp.file("huge"), "-png-screens"}, out.path);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, c.error);
    }
}

TEST(MalformedArchive, IntactArchiveExports) {
    std::string archive = smallArchive(ARCHIVE_SEPARATE);
    TempDir tmp, out;
    writeFileBytes(tmp.file("good"), archive);
    RunResult r = runProgram({buildProgram("view_slides"), tmp.file("good"), "-png-screens"}, out.path);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(countFiles(out.path), 3);
}

TEST(Interrupt, CtrlCWhileUnpackingEndsWithStatus255) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    std::string archive = packDeck("conference-talk", "--archive");
    TempDir out;
    int status = signalAfter({buildProgram("view_slides"), archive, "-png-screens"}, out.path, SIGINT, 300);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal";
    EXPECT_EQ(WEXITSTATUS(status), 255);
    EXPECT_LT(countFiles(out.path), 31) << "interrupted before the end";
}

TEST(Interrupt, CtrlCWhilePackingLeavesNoOutput) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    TempDir out;
    int status = signalAfter({buildProgram("pack_slides"), corpusDir() + "/conference-talk", "-o", out.file("show")},
                             out.path, SIGINT, 300);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by a signal";
    EXPECT_EQ(WEXITSTATUS(status), 255);
    EXPECT_EQ(countFiles(out.path), 0) << "the show or its temporary file was left behind";
}

TEST(ViewSlides, UnopenableArchive) {
    RunResult r = runProgram({buildProgram("view_slides"), "/nonexistent/talk.slides"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "ERROR! Could not open: /nonexistent/talk.slides\n");
    EXPECT_EQ(r.out, kBanner);
}

// Index counts of 2^31 and above read as 32-bit ints were none (an empty show, exported without a
// word) or a few; they are an error.
TEST(ViewSlides, CountsBeyondA32BitIntAreAnError) {
    TempDir tmp, out;
    const std::string counts[] = {
        std::string("\xE0\0\0\0\0\x80\0\0\0", 9),  // 2^31
        std::string("\xE0\0\0\0\x01\0\0\0\x01", 9),  // 2^32 + 1, once read as 1
    };
    for (const std::string& count : counts) {
        for (bool screens : {true, false}) {
            // The index alone: nb, ns, then an offset, at the start of the file; the trailer points at it.
            std::string index = screens ? std::string(1, '\0') + count : count + std::string(1, '\1');
            writeFileBytes(tmp.file("big"), index + std::string(1, '\0') + std::string(8, '\0'));
            RunResult r = runProgram({buildProgram("view_slides"), tmp.file("big"), "-png-screens"}, out.path);
            EXPECT_EQ(r.status, 1);
            EXPECT_EQ(r.err, "ERROR! Index count too large for a slide archive.\n");
        }
    }
    EXPECT_EQ(countFiles(out.path), 0);
}

// A show or the viewer named where an archive belongs once read as garbage ("Record offset outside
// the archive."); it is said what the file is.
TEST(ViewSlides, AShowOrTheViewerGivenAsTheArchiveIsSaidToBeAProgram) {
    TempDir tmp;
    std::string show = tmp.file("show");
    writeFileBytes(show, smallArchive(ARCHIVE_APPENDED, readFileBytes(buildProgram("view_slides"))));
    RunResult r = runProgram({buildProgram("view_slides"), show, "-png-screens"}, tmp.path);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "ERROR! " + show + " is a slide show to be run, not an archive: start it as a program.\n");
    r = runProgram({buildProgram("view_slides"), buildProgram("view_slides"), "-png-screens"}, tmp.path);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "ERROR! " + buildProgram("view_slides") + " is a program, not a slide archive.\n");
    EXPECT_EQ(countFiles(tmp.path), 1);
}

TEST(ViewSlides, WithoutAnAppendedArchiveSaysSo) {
    RunResult r = runProgram({buildProgram("view_slides"), "-png-screens"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r));
    EXPECT_NE(r.err.find("No slide show is appended to"), std::string::npos) << r.err;
}

TEST(ViewSlides, CommandLineErrors) {
    struct Case {
        std::vector<std::string> args;
        std::string err;
    } cases[] = {
        {{"-foo"}, "ERROR! Unknown switch: foo\n"},
        {{"-debug=1"}, "ERROR! Switch takes no argument: debug\n"},
        {{"-debug", "-debug"}, "ERROR! Unknown switch: debug\n"},
        {{"a", "b"}, "ERROR! Superfluous argument: b\n"},
        {{"[1;2"}, "ERROR! Unterminated list; missing ']'. Did you forget to use quotes or commas?\n"},
        {{"12"}, "ERROR! Argument 1 expected to be a string.\n"},
        {{",view", ",edit"}, "ERROR! Only one command may be specified.\n"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> argv = {buildProgram("view_slides")};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        RunResult r = runProgram(argv);
        EXPECT_EQ(r.status, 10) << c.err;
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.out, kBanner);
    }
}

TEST(PackSlides, BadInputLeavesNoOutput) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    std::string page = corpusDir() + "/metropolis/page_001.png";
    TempDir tmp;
    writeFileBytes(tmp.file("not.png"), "this is not a PNG file");
    Bitmap small;
    small.data = allocPixels(10, 10);
    small.width = small.height = 10;
    for (int i = 0; i < 100; i++) small.data[i] = Color{1, 2, 3, 0};
    ASSERT_TRUE(writePng(tmp.file("small.png").c_str(), small));
    struct Case {
        std::vector<std::string> args;
        std::string output;
    } cases[] = {
        {{tmp.file("missing.png"), "-o", tmp.file("show1")}, tmp.file("show1")},
        {{tmp.file("not.png"), "--archive", tmp.file("a2")}, tmp.file("a2")},
        {{page, tmp.file("small.png"), "-o", tmp.file("show3")}, tmp.file("show3")},
        {{page, "-o", "/nonexistent/folder/show"}, "/nonexistent/folder/show"},
        {{tmp.path, "-o", tmp.file("show5")}, tmp.file("show5")},  // no slides.txt, and not.png is no PNG
    };
    for (const Case& c : cases) {
        std::vector<std::string> argv = {buildProgram("pack_slides")};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        RunResult r = runProgram(argv);
        EXPECT_NE(r.status, 0) << c.output;
        EXPECT_TRUE(oneErrorLine(r));
        EXPECT_FALSE(fileExists(c.output)) << c.output;
        EXPECT_EQ(countFiles(tmp.path), 2) << "a temporary file was left behind";
    }
}

// The bytes do not depend on the number of worker processes, for PNG pages and for the PDF talk
// they were rendered from (which gives the same pages and the same grouping).
TEST(PackSlides, JobsDoNotChangeTheBytes) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    std::string deck = corpusDir() + "/metropolis";
    std::string reference = readFileBytes(packDeck("metropolis", "--archive"));
    ASSERT_FALSE(reference.empty());
    TempDir tmp;
    for (std::string input : {deck, deck + "/source.pdf"}) {
        if (!fileExists(input)) continue;
        for (const char* jobs : {"1", "3"}) {
            RunResult r = runProgram({buildProgram("pack_slides"), input, "--archive", tmp.file("a"), "--jobs", jobs});
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_TRUE(readFileBytes(tmp.file("a")) == reference) << input << " with --jobs " << jobs;
        }
    }
}

TEST(PackSlides, BadJobCountsGiveOneErrorLine) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    TempDir tmp;
    std::string deck = corpusDir() + "/metropolis";
    for (std::vector<std::string> jobs : std::vector<std::vector<std::string> >{
             {"0"}, {"-1"}, {"abc"}, {""}, {"257"}, {"1.5"}, {"2x"}, {"99999999999999999999"}, {"2", "--jobs", "2"}}) {
        std::vector<std::string> argv = {buildProgram("pack_slides"), deck, "-o", tmp.file("show"), "--jobs"};
        argv.insert(argv.end(), jobs.begin(), jobs.end());
        RunResult r = runProgram(argv);
        EXPECT_EQ(r.status, 1) << jobs[0];
        EXPECT_TRUE(oneErrorLine(r)) << jobs[0];
        EXPECT_NE(r.err.find("--jobs"), std::string::npos) << r.err;
        EXPECT_EQ(countFiles(tmp.path), 0) << "an output was left behind";
    }
}

// Progress into a log file or a pipe: one line per stage, never a carriage return.
TEST(PackSlides, ProgressElsewhereIsOneLinePerStage) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    TempDir tmp;
    std::string deck = corpusDir() + "/metropolis";
    RunResult r = runProgram({buildProgram("pack_slides"), deck + "/page_001.png", deck + "/page_002.png",
                              deck + "/page_003.png", "--archive", tmp.file("a")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find('\r'), std::string::npos);
    EXPECT_EQ(r.out.rfind("Reading 3 pages\nEncoding 3 pages\nPacked 3 pages (3 slides) into ", 0), 0u) << r.out;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 3) << r.out;
}

// Progress on a terminal: one line rewritten in place, page by page.
TEST(PackSlides, ProgressOnATerminalIsOneLineRewritten) {
    if (corpusDir().empty()) GTEST_SKIP() << "corpus folder ../shared/corpus is absent";
    TempDir tmp;
    std::string program = buildProgram("pack_slides"), archive = tmp.file("a");
    std::string page1 = corpusDir() + "/metropolis/page_001.png", page2 = corpusDir() + "/metropolis/page_002.png";
    int terminal;
    pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        execl(program.c_str(), program.c_str(), page1.c_str(), page2.c_str(), "--archive", archive.c_str(),
              (char*)nullptr);
        _exit(127);
    }
    std::string out;
    char buffer[4096];
    for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) > 0;) out.append(buffer, (size_t)n);
    int status = 0;
    waitpid(pid, &status, 0);
    close(terminal);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;
    EXPECT_NE(out.find("\rReading page 1/2 \rReading page 2/2 \rEncoding page 1/2 "), std::string::npos) << out;
    EXPECT_NE(out.find("\rEncoding page 2/2 \rPacked 2 pages"), std::string::npos) << out;
    EXPECT_EQ(out.find("Encoding 2 pages"), std::string::npos) << out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
}

}  // namespace
