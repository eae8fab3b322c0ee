// slides_codec with inputs it cannot keep: partly transparent pixels, inputs too large to hold,
// and files it cannot read.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "helpers/checks.h"
#include "helpers/pages.h"
#include "helpers/run.h"
#include "png/png.h"

namespace {

RunResult codec(const std::vector<std::string>& args, const std::function<void()>& in_child = {}) {
    std::vector<std::string> argv = {buildProgram("slides_codec")};
    argv.insert(argv.end(), args.begin(), args.end());
    return runProgram(argv, "", {}, allOf({timeLimit(60), in_child}));
}

// A 4 x 2 picture with the given pixels.
void writePicture(const std::string& path, const std::vector<Color>& pixels) {
    Bitmap b;
    b.data = allocPixels(4, 2);
    b.width = 4;
    b.height = 2;
    for (int i = 0; i < 8; i++) b.data[i] = pixels[i];
    ASSERT_TRUE(writePng(path.c_str(), b));
}

TEST(SlidesCodec, FullyTransparentPixelsOfAnyColourBecomeTheSeeThroughPixel) {
    TempDir tmp;
    Color red = {200, 0, 0, 0}, clear_green = {0, 255, 0, 255}, clear_white = {255, 255, 255, 255};
    writePicture(tmp.file("in.png"), {red, clear_green, red, clear_white, red, red, color_SeeThrough, red});
    ASSERT_EQ(codec({"encode", tmp.file("in.png"), tmp.file("s.bin")}).status, 0);
    ASSERT_EQ(codec({"decode", tmp.file("s.bin"), tmp.file("out.png")}).status, 0);
    Bitmap out;
    ASSERT_TRUE(readPng(tmp.file("out.png").c_str(), out));
    for (int i : {1, 3, 6}) EXPECT_TRUE(out.data[i] == color_SeeThrough) << "pixel " << i;  // once they came back opaque
    for (int i : {0, 2, 4, 5, 7}) EXPECT_TRUE(out.data[i] == red) << "pixel " << i;
}

TEST(SlidesCodec, PartlyTransparentPixelsAreRefused) {
    TempDir tmp;
    Color red = {200, 0, 0, 0}, half = {10, 20, 30, 128};
    writePicture(tmp.file("in.png"), {red, red, red, red, red, half, red, red});
    RunResult r = codec({"encode", tmp.file("in.png"), tmp.file("s.bin")});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r, tmp.file("in.png") + " has partly transparent pixels (the first at 1, 1)"));
    EXPECT_EQ(folderNames(tmp.path), std::vector<std::string>{"in.png"});
}

TEST(SlidesCodec, AnInputTooLargeForAStreamIsRefusedAtOnce) {
    TempDir tmp;
    std::string big = tmp.file("big.bin");
    // A sparse file of 1.1 GB: reading it once ran the array's growth into an endless loop.
    ASSERT_EQ(runProgram({"/usr/bin/truncate", "-s", "1100M", big}).status, 0);
    RunResult r = codec({"decode", big, tmp.file("big.png")});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r, "cannot read " + big + ": larger than 1073741824 bytes"));
}

TEST(SlidesCodec, ABigInputThroughAPipeEndsWithOutOfMemoryUnderALimit) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer reserves more address space than the limit allows";
#endif
    TempDir tmp;
    std::string big = tmp.file("big.bin");
    ASSERT_EQ(runProgram({"/usr/bin/truncate", "-s", "1100M", big}).status, 0);
    // Standard input is a pipe fed from the sparse file, so its size is not known in advance.
    auto piped = [big] {
        int ends[2];
        if (pipe(ends) != 0) _exit(125);
        if (fork() == 0) {
            close(ends[0]);
            dup2(ends[1], 1);
            execl("/bin/cat", "cat", big.c_str(), (char*)nullptr);
            _exit(127);
        }
        close(ends[1]);
        dup2(ends[0], 0);
    };
    RunResult r = codec({"decode", "/dev/stdin", tmp.file("big.png")}, allOf({memoryLimit(300LL << 20), piped}));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(oneErrorLine(r, "ERROR! out of memory"));
    EXPECT_EQ(folderNames(tmp.path), std::vector<std::string>{"big.bin"});
}

TEST(SlidesCodec, UnreadableInputsSayWhy) {
    TempDir tmp;
    writeFileBytes(tmp.file("text.png"), "not a picture");
    RunResult r = codec({"encode", tmp.file("missing.png"), tmp.file("s.bin")});
    EXPECT_TRUE(oneErrorLine(r, "cannot read PNG " + tmp.file("missing.png") + ": No such file or directory"));
    r = codec({"encode", tmp.file("text.png"), tmp.file("s.bin")});
    EXPECT_TRUE(oneErrorLine(r, "not a PNG file (no PNG signature)"));
    r = codec({"decode", tmp.file("missing.bin"), tmp.file("s.png")});
    EXPECT_TRUE(oneErrorLine(r, "cannot read " + tmp.file("missing.bin") + ": No such file or directory"));
}

}  // namespace
