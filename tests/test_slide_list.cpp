// Slide lists (slides.txt and --slides) parsed from bytes, and the files they are read from.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <string>
#include <vector>

#include "helpers/checks.h"
#include "helpers/pages.h"
#include "helpers/run.h"
#include "packer/slide_list.h"

namespace {

struct Parsed {
    std::string error;  // "" when the list parsed
    std::vector<std::string> names;
    std::vector<int> flags, lines;
};

Parsed parse(const std::string& text) {
    std::vector<char> bytes(text.begin(), text.end());
    bytes.push_back(0);
    vec<ListEntry> entries;
    const char* error = parseSlideList(bytes.data(), text.size(), "slides.txt", entries);
    Parsed p;
    if (error) p.error = error;
    for (const ListEntry& e : entries) {
        p.names.push_back(e.name);
        p.flags.push_back(e.flag);
        p.lines.push_back(e.line);
    }
    return p;
}

TEST(SlideList, LinesGiveNamesFlagsAndLineNumbers) {
    Parsed p = parse("a.png 0\n\n  b.png\t1\r\nc.png 1");
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.names, (std::vector<std::string>{"a.png", "b.png", "c.png"}));
    EXPECT_EQ(p.flags, (std::vector<int>{0, 1, 1}));
    EXPECT_EQ(p.lines, (std::vector<int>{1, 3, 4}));
}

TEST(SlideList, AByteOrderMarkIsSkipped) {
    Parsed p = parse("\xEF\xBB\xBF" "a.png 0\nb.png 1\n");
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.names, (std::vector<std::string>{"a.png", "b.png"}));
    // Only at the start: elsewhere it is part of a name.
    EXPECT_EQ(parse("a.png 0\n\xEF\xBB\xBF" "b.png 1\n").names[1], "\xEF\xBB\xBF" "b.png");
}

TEST(SlideList, ANulByteIsAnErrorNamingTheLine) {
    Parsed p = parse(std::string("a.png 0\nb.png\0 1\nc.png 0\n", 24));
    EXPECT_EQ(p.error, "slides.txt:2: NUL byte in the line");
}

TEST(SlideList, ALineOver4095BytesIsAnErrorNamingTheLine) {
    std::string longest = std::string(4088, 'x') + ".png 0\r";  // 4095 bytes before the line feed
    EXPECT_EQ(parse("a.png 0\n" + longest + "\n").error, "");
    Parsed p = parse("a.png 0\nb.png 1\n" + std::string(4090, 'y') + ".png 0\n");
    EXPECT_EQ(p.error, "slides.txt:3: line longer than 4095 bytes");
    // Once such a line was cut into pieces that read as further lines.
    EXPECT_EQ(parse(std::string(4090, ' ') + "a.png 0\n").error, "slides.txt:1: line longer than 4095 bytes");
}

TEST(SlideList, MalformedLinesAreErrorsNamingTheLine) {
    for (const char* text : {"a.png\n", "a.png 2\n", "a.png 0 extra\n", "a.png 01\n"})
        EXPECT_EQ(parse(std::string("ok.png 0\n") + text).error,
                  "slides.txt:2: expected '<file> <flag>' with flag 0 or 1")
            << text;
}

TEST(SlideList, OnlyARegularFileIsReadAsAList) {
    TempDir tmp;
    std::string page = tmp.file("p.png");
    writePage(page, 20, 10, 1);
    std::vector<std::string> lists = {tmp.file("folder"), tmp.file("fifo")};
    mkdir(lists[0].c_str(), 0755);
    mkfifo(lists[1].c_str(), 0644);  // once the packer waited on it forever
    if (mknod(tmp.file("zero").c_str(), S_IFCHR | 0666, makedev(1, 5)) == 0) lists.push_back(tmp.file("zero"));
    for (const std::string& list : lists) {
        RunResult r = runProgram({buildProgram("pack_slides"), page, "--slides", list, "--archive", tmp.file("a")}, "",
                                 {}, timeLimit(60));
        EXPECT_EQ(r.status, 1) << list;
        EXPECT_TRUE(oneErrorLine(r, "Could not read the slide list: " + list + ": not a regular file"));
    }
    // A deck folder whose slides.txt is a folder.
    std::string deck = tmp.file("deck");
    mkdir(deck.c_str(), 0755);
    mkdir((deck + "/slides.txt").c_str(), 0755);
    RunResult r = runProgram({buildProgram("pack_slides"), deck, "--archive", tmp.file("a")}, "", {}, timeLimit(60));
    EXPECT_TRUE(oneErrorLine(r, "Could not read the slide list: " + deck + "/slides.txt: not a regular file"));
}

TEST(SlideList, ADeckListWithAByteOrderMarkPacks) {
    TempDir tmp;
    writePage(tmp.file("a.png"), 20, 10, 1);
    writePage(tmp.file("b.png"), 20, 10, 2);
    writeFileBytes(tmp.file("slides.txt"), "\xEF\xBB\xBF" "a.png 0\r\nb.png 1\r\n");
    RunResult r = runProgram({buildProgram("pack_slides"), tmp.path, "--archive", tmp.file("a.slides")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Packed 2 pages (1 slides)"), std::string::npos) << r.out;
}

}  // namespace
