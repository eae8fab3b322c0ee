// pack_slides under hostile conditions: running out of memory, signals, broken pipes and full
// disks, viewers that are no viewers, unreadable pages; and a deck folder without slides.txt.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "helpers/checks.h"
#include "helpers/pages.h"
#include "helpers/run.h"

namespace {

class PackSlides : public ::testing::Test {
protected:
    TempDir tmp;

    RunResult pack(std::vector<std::string> args, const std::function<void()>& in_child = {}) {
        args.insert(args.begin(), buildProgram("pack_slides"));
        return runProgram(args, "", {}, allOf({timeLimit(60), in_child}));
    }
    std::string page(const std::string& name, int width = 40, int height = 30, unsigned seed = 1) {
        std::string path = tmp.file(name);
        writePage(path, width, height, seed);
        return path;
    }
    // Only these names are left in the folder: no output, no temporary file.
    void expectOnly(std::vector<std::string> names) {
        std::sort(names.begin(), names.end());
        EXPECT_EQ(folderNames(tmp.path), names);
    }
};

TEST_F(PackSlides, RunningOutOfMemoryIsOneErrorLine) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer reserves more address space than the limit allows";
#endif
    std::vector<std::string> args;
    for (int i = 0; i < 3; i++) args.push_back(page("big_" + std::to_string(i) + ".png", 1000, 750, i));
    args.insert(args.end(), {"--archive", tmp.file("talk.slides")});
    RunResult r = pack(args, memoryLimit(60LL << 20));
    EXPECT_EQ(r.status, 1);
    // Pages are read and encoded in worker processes: a page's worker or the packer itself runs out.
    EXPECT_TRUE(oneErrorLine(r, "ran out of memory"));
    expectOnly({"big_0.png", "big_1.png", "big_2.png"});
}

TEST_F(PackSlides, EverySignalThatEndsItRemovesTheTemporaryFile) {
    std::vector<std::string> args = {buildProgram("pack_slides")};
    for (int i = 0; i < 2; i++) args.push_back(page("big_" + std::to_string(i) + ".png", 1000, 750, i));
    args.insert(args.end(), {"-o", tmp.file("show")});
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGSEGV}) {
        int status = signalAfter(args, tmp.path, sig, 300, noCoreFile());
        if (sig == SIGSEGV) {
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << "crash handler re-raises";
        } else {
            ASSERT_TRUE(WIFEXITED(status)) << "signal " << sig;
            EXPECT_EQ(WEXITSTATUS(status), 255) << "signal " << sig;
        }
        expectOnly({"big_0.png", "big_1.png"});
    }
}

TEST_F(PackSlides, AClosedPipeOnStandardOutputDoesNotEndIt) {
    std::string p = page("page.png");
    auto closed_pipe = [] {
        int ends[2];
        if (pipe(ends) != 0) _exit(125);
        close(ends[0]);
        dup2(ends[1], 1);
    };
    RunResult r = pack({p, "-o", tmp.file("show")}, closed_pipe);
    EXPECT_EQ(r.signal, 0) << "ended by SIGPIPE";
    EXPECT_EQ(r.status, 0) << r.err;
    expectOnly({"page.png", "show"});
}

TEST_F(PackSlides, AFullDiskIsOneErrorLineWithItsReason) {
    std::string p = page("page.png");
    RunResult r = pack({p, "-o", tmp.file("show")}, fileSizeLimit(50000));
    EXPECT_EQ(r.signal, 0) << "ended by SIGXFSZ";
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r, "Could not write: " + tmp.file("show") + ": File too large"));
    expectOnly({"page.png"});
}

TEST_F(PackSlides, AViewerMustBeThisSystemsViewerProgram) {
    std::string p = page("page.png");
    std::string viewer = buildProgram("view_slides");
    std::string copy = tmp.file("viewer"), unexecutable = tmp.file("unexecutable"), script = tmp.file("script");
    std::string fifo = tmp.file("fifo"), folder = tmp.file("folder"), fake = tmp.file("fake");
    writeFileBytes(copy, readFileBytes(viewer));
    chmod(copy.c_str(), 0755);
    writeFileBytes(unexecutable, readFileBytes(viewer));
    chmod(unexecutable.c_str(), 0644);
    writeFileBytes(script, "#!/bin/sh\necho Now unpacking the slide show to memory.\n");
    chmod(script.c_str(), 0755);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
    // A program that carries the viewer's banner and usage line but fails -help.
    writeFileBytes(fake, readFileBytes(buildProgram("slides_codec")) +
                             "Now unpacking the slide show to memory.\nUsage: view_slides [SWITCHES]\n");
    chmod(fake.c_str(), 0755);
    struct Case {
        std::string viewer, words;
    } cases[] = {
        {folder, "Could not read the viewer: " + folder + ": not a regular file"},
        {fifo, "Could not read the viewer: " + fifo + ": not a regular file"},  // once waited forever
        {unexecutable, "The viewer " + unexecutable + " is not executable"},
        {script, "is not a program (no ELF header)"},
        {buildProgram("slides_codec"), "is a program but not view_slides"},
        {fake, "does not answer -help as view_slides does"},
        {tmp.file("missing"), "No viewer at " + tmp.file("missing")},
    };
    std::string device = tmp.file("zero");  // a private node of the zero device, which was once copied forever
    bool have_device = mknod(device.c_str(), S_IFCHR | 0666, makedev(1, 5)) == 0;
    for (const Case& c : cases) {
        RunResult r = pack({p, "-o", tmp.file("show"), "--viewer", c.viewer});
        EXPECT_EQ(r.status, 1) << c.viewer;
        EXPECT_TRUE(oneErrorLine(r, c.words));
        EXPECT_FALSE(standsAt(tmp.file("show")));
    }
    if (have_device) {
        RunResult r = pack({p, "-o", tmp.file("show"), "--viewer", device});
        EXPECT_TRUE(oneErrorLine(r, "not a regular file"));
    }
    // A viewer with the switch -help is asked, and one that answers as the viewer does is taken.
    RunResult r = pack({p, "-o", tmp.file("fake_show"), "--viewer", buildProgram("fake_viewer")});
    EXPECT_EQ(r.status, 0) << r.err;
    r = pack({p, "-o", tmp.file("show"), "--viewer", copy});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Using the viewer " + copy + "\n"), std::string::npos) << r.out;
    EXPECT_EQ(readFileBytes(tmp.file("show")).compare(0, readFileBytes(viewer).size(), readFileBytes(viewer)), 0);
}

TEST_F(PackSlides, UnreadablePagesSayWhy) {
    std::string good = page("good.png");
    std::string cut = tmp.file("cut.png"), wide = tmp.file("wide.png"), text = tmp.file("text.png");
    std::string bytes = readFileBytes(good);
    writeFileBytes(cut, bytes.substr(0, bytes.size() / 2));
    writeFileBytes(text, "not a picture");
    Bitmap line;
    line.data = allocPixels(70000, 1);
    line.width = 70000;
    line.height = 1;
    for (int i = 0; i < 70000; i++) line.data[i] = Color{1, 2, 3, 0};
    ASSERT_TRUE(writePng(wide.c_str(), line));
    struct Case {
        std::string page, words;
    } cases[] = {
        {tmp.file("missing.png"), "Could not read the PNG file: " + tmp.file("missing.png") + ": No such file or directory"},
        {cut, "Could not read the PNG file: " + cut + ": the file ends early (cut short)"},
        {text, "Could not read the PNG file: " + text + ": not a PNG file (no PNG signature)"},
        {wide, "Could not read the PNG file: " + wide + ": image size 70000x1 beyond the limits (65535 a side"},
    };
    for (const Case& c : cases) {
        RunResult r = pack({good, c.page, "--archive", tmp.file("talk.slides")});
        EXPECT_EQ(r.status, 1) << c.page;
        EXPECT_TRUE(oneErrorLine(r, c.words));
    }
}

TEST_F(PackSlides, AFolderWithoutSlidesTxtPacksItsPngFilesInNameOrder) {
    std::string deck = tmp.file("deck");
    mkdir(deck.c_str(), 0755);
    std::vector<std::string> names = {"b.png", "a.png", "c.png"};
    for (size_t i = 0; i < names.size(); i++) writePage(deck + "/" + names[i], 40, 30, 20 + i);
    writeFileBytes(deck + "/notes.txt", "not a page");
    writeFileBytes(deck + "/.hidden.png", "not a page either");
    mkdir((deck + "/folder.png").c_str(), 0755);
    RunResult r = pack({deck + "/", "--archive", tmp.file("talk.slides")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("No slides.txt in " + deck + "/: packing its 3 PNG files in name order, each a slide of its own\n"),
              std::string::npos)
        << r.out;
    EXPECT_TRUE(std::regex_search(r.out, std::regex("Packed 3 pages \\(3 slides\\) into " + tmp.file("talk.slides") +
                                                    ": archive [0-9]+ bytes \\([0-9]+\\.[0-9][0-9] x the PNG pages\\)\n")))
        << r.out;
    TempDir out;
    ASSERT_EQ(runProgram({buildProgram("view_slides"), tmp.file("talk.slides"), "-png-slides"}, out.path).status, 0);
    EXPECT_TRUE(samePng(out.file("slide_01.png"), deck + "/a.png"));
    EXPECT_TRUE(samePng(out.file("slide_02.png"), deck + "/b.png"));
    EXPECT_TRUE(samePng(out.file("slide_03.png"), deck + "/c.png"));
    EXPECT_EQ(folderNames(out.path).size(), 3u);

    std::string empty = tmp.file("empty");
    mkdir(empty.c_str(), 0755);
    r = pack({empty, "--archive", tmp.file("none.slides")});
    EXPECT_TRUE(oneErrorLine(r, empty + " has neither a slides.txt nor PNG pages"));
}

TEST_F(PackSlides, PathsInMessagesHaveNoDoubledSlashes) {
    std::string deck = tmp.file("deck");
    mkdir(deck.c_str(), 0755);
    writeFileBytes(deck + "/slides.txt", "missing.png 0\n");
    RunResult r = pack({deck + "//", "--archive", tmp.file("talk.slides")});
    EXPECT_TRUE(oneErrorLine(r, "Could not read the PNG file: " + deck + "/missing.png: No such file or directory"));
    writeFileBytes(deck + "/slides.txt", "missing.png 2\n");
    r = pack({deck + "/", "--archive", tmp.file("talk.slides")});
    EXPECT_TRUE(oneErrorLine(r, deck + "/slides.txt:1: expected '<file> <flag>' with flag 0 or 1"));
    EXPECT_EQ(r.err.find("//"), std::string::npos) << r.err;
}

}  // namespace
