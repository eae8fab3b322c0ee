#include <fcntl.h>
#include <sys/mman.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "helpers/run.h"
#include "support/util.h"

// Takes a malloc'ed string, returns it as std::string and frees it.
static std::string take(char* s) {
    std::string out = s ? s : "(null)";
    free(s);
    return out;
}

static std::vector<std::string> split(const char* text, const char* delims) {
    vec<char*> items;
    splitString(text, delims, items);
    std::vector<std::string> out;
    for (char* item : items) out.push_back(take(item));
    return out;
}

static char* formatVia(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    char* s = vnsprintf(fmt, args);
    va_end(args);
    return s;
}

TEST(Format, UsesTheArgumentsOnceForMeasuringAndOnceForWriting) {
    EXPECT_EQ(take(formatVia("%d-%s-%.2f", 42, "x", 1.5)), "42-x-1.50");
    EXPECT_EQ(take(nsprintf("%s", "")), "");
    std::string big(10000, 'q');
    EXPECT_EQ(take(nsprintf("<%s>%d", big.c_str(), 7)), "<" + big + ">7");
}

TEST(Strnum, DecimalText) {
    EXPECT_EQ(take(strnum(0)), "0");
    EXPECT_EQ(take(strnum(-45)), "-45");
    EXPECT_EQ(take(strnum(7)), "7");
    EXPECT_EQ(take(strnum(INT_MAX)), "2147483647");
    EXPECT_EQ(take(strnum(INT_MIN)), "-2147483648");
}

TEST(SplitString, SkipsEmptyItems) {
    EXPECT_EQ(split(",,a,,b,", ","), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(split("", ","), std::vector<std::string>{});
    EXPECT_EQ(split(",,,", ","), std::vector<std::string>{});
    EXPECT_EQ(split("one two,three", " ,"), (std::vector<std::string>{"one", "two", "three"}));
    EXPECT_EQ(split("whole", ","), std::vector<std::string>{"whole"});
}

TEST(SplitString, AppendsToWhatIsThere) {
    vec<char*> items;
    splitString("a b", " ", items);
    splitString("c", " ", items);
    ASSERT_EQ(items.size, 3);
    EXPECT_EQ(take(items[0]) + take(items[1]) + take(items[2]), "abc");
}

TEST(SetExtension, ReplacesAfterTheLastDot) {
    EXPECT_EQ(take(setExtension("dir.d/file", "png")), "dir.png");
    EXPECT_EQ(take(setExtension("a.b.c", "x")), "a.b.x");
    EXPECT_EQ(take(setExtension("noext", "x")), "noext.x");
    EXPECT_EQ(take(setExtension("a.", "")), "a.");
}

TEST(CheckExtension, ComparesTheTextAfterTheLastDot) {
    EXPECT_TRUE(checkExtension("noext", ""));
    EXPECT_FALSE(checkExtension("noext", "png"));
    EXPECT_FALSE(checkExtension("a.PNG", "png"));
    EXPECT_TRUE(checkExtension("a.b.png", "png"));
    EXPECT_TRUE(checkExtension("a.", ""));
    EXPECT_FALSE(checkExtension("a.png", ""));
}

TEST(Trim, RemovesBlanksAndTabsOnly) {
    char s[] = "  \t x y \t ";
    trim(s);
    EXPECT_STREQ(s, "x y");
    char t[] = "\nz\n";
    trim(t);
    EXPECT_STREQ(t, "\nz\n");
    char u[] = " \t ";
    trim(u);
    EXPECT_STREQ(u, "");
    trim(nullptr);
}

TEST(Strtokr, YieldsTokensThenNull) {
    char text[] = "  a b";
    char* state = text;
    EXPECT_STREQ(strtokr(&state, " "), "a");
    EXPECT_STREQ(strtokr(&state, " "), "b");
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(strtokr(&state, " "), nullptr);
}

TEST(Strtokr, TrailingDelimitersEndWithNull) {
    char text[] = "a,, ";
    char* state = text;
    EXPECT_STREQ(strtokr(&state, ", "), "a");
    EXPECT_NE(state, nullptr);
    EXPECT_EQ(strtokr(&state, ", "), nullptr);
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(strtokr(nullptr, ","), nullptr);
}

TEST(ReadFile, EmptyStream) {
    FILE* in = tmpfile();
    unsigned size = 99;
    EXPECT_EQ(take(readFile(in, &size)), "");
    EXPECT_EQ(size, 0u);
    fclose(in);
}

TEST(ReadFile, LargeStreamGrowsTheBuffer) {
    std::string data;
    for (int i = 0; i < 300001; i++) data += (char)('a' + i % 26);
    FILE* in = tmpfile();
    fwrite(data.data(), 1, data.size(), in);
    rewind(in);
    unsigned size = 0;
    char* got = readFile(in, &size);
    EXPECT_EQ(size, data.size());
    EXPECT_EQ(std::string(got, size), data);
    EXPECT_EQ(got[size], 0);
    free(got);
    fclose(in);
}

TEST(ReadFile, PipeWithShortPieces) {
    FILE* in = popen("for i in 1 2 3 4 5; do head -c 30000 /dev/zero | tr '\\0' x; sleep 0.02; done", "r");
    ASSERT_NE(in, nullptr);
    unsigned size = 0;
    std::string got = take(readFile(in, &size));
    pclose(in);
    EXPECT_EQ(size, 150000u);
    EXPECT_EQ(got, std::string(150000, 'x'));
}

TEST(ReadFile, ByPath) {
    TempDir dir;
    std::string path = dir.file("f.txt");
    writeFile(path.c_str(), "hello\0world", 11);
    unsigned size = 0;
    char* got = readFile(path.c_str(), &size);
    EXPECT_EQ(size, 11u);
    EXPECT_EQ(std::string(got, 12), std::string("hello\0world\0", 12));
    free(got);
    EXPECT_EQ(readFile(dir.file("missing").c_str(), &size), nullptr);
    EXPECT_EQ(size, 0xFFFFFFFFu);
}

TEST(WriteFile, WholeStringWhenCountIsAllOnes) {
    TempDir dir;
    std::string path = dir.file("w.txt");
    writeFile(path.c_str(), "abc", 0xFFFFFFFFu);
    EXPECT_EQ(fileSize(path.c_str()), 3);
    writeFile(path.c_str(), "abcdef", 2);
    EXPECT_EQ(take(readFile(path.c_str(), nullptr)), "ab");
    writeFile(dir.file("no/such/dir").c_str(), "x", 1);  // not reported, and no crash
}

TEST(FileSize, MissingFileIsMinusOne) {
    TempDir dir;
    EXPECT_EQ(fileSize(dir.file("missing").c_str()), -1);
    std::string path = dir.file("e");
    writeFile(path.c_str(), "", 0);
    EXPECT_EQ(fileSize(path.c_str()), 0);
}

TEST(OpenFlags, LettersCombineIndependently) {
    EXPECT_EQ(openFlags("r"), O_RDONLY);
    EXPECT_EQ(openFlags("rb"), O_RDONLY);
    EXPECT_EQ(openFlags("w"), O_WRONLY | O_CREAT | O_TRUNC);
    EXPECT_EQ(openFlags("wb"), O_WRONLY | O_CREAT | O_TRUNC);
    EXPECT_EQ(openFlags("a"), O_WRONLY | O_CREAT);
    EXPECT_EQ(openFlags("r+"), O_RDWR);
    EXPECT_EQ(openFlags("w+"), O_RDWR | O_CREAT | O_TRUNC);
    EXPECT_EQ(openFlags("a+"), O_RDWR | O_CREAT);
    EXPECT_EQ(openFlags("rw"), O_RDONLY | O_TRUNC);
    EXPECT_EQ(openFlags("wx"), O_WRONLY | O_CREAT | O_TRUNC | O_EXCL);
}

TEST(OpenFd, CreatesAndOpens) {
    TempDir dir;
    std::string path = dir.file("o");
    int fd = openFd(path.c_str(), "w");
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "hi", 2), 2);
    close(fd);
    fd = openFd(path.c_str(), "r");
    char got[3] = {};
    EXPECT_EQ(read(fd, got, 2), 2);
    EXPECT_STREQ(got, "hi");
    close(fd);
    EXPECT_EQ(openFd(dir.file("missing").c_str(), "r"), -1);
}

TEST(Memory, ProcessFigures) {
    long long page = getpagesize();
    long long used = memUsed(), resident = memResident();
    EXPECT_GT(resident, 0);
    EXPECT_GE(used, resident);
    EXPECT_EQ(used % page, 0);
    EXPECT_EQ(resident % page, 0);
    EXPECT_EQ(memReadStat(0) * page, used);
    EXPECT_EQ(memReadStat(-1), -1);
    EXPECT_EQ(memReadStat(100), -1);
}

TEST(Memory, PhysicalMatchesTheSystemsCount) {
    long long physical = memPhysical();
    long long pages = sysconf(_SC_PHYS_PAGES) * (long long)getpagesize();
    EXPECT_GT(physical, 0);
    EXPECT_NEAR((double)physical, (double)pages, pages * 0.01);
}

TEST(Memory, PopulatedPagesAreResidentAndKeepTheirContents) {
    const size_t page = getpagesize(), pages = 64;
    unsigned char* area =
        (unsigned char*)mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(area, MAP_FAILED);
    area[5 * page + 7] = 42;
    // A block that starts and ends inside a page: only the whole pages within it are populated.
    bool done = populatePages(area + 100, pages * page - 200);
    std::vector<unsigned char> resident(pages);
    ASSERT_EQ(mincore(area, pages * page, resident.data()), 0);
    if (!done) {
        munmap(area, pages * page);
        GTEST_SKIP() << "this kernel cannot populate pages";
    }
    EXPECT_FALSE(resident[0] & 1) << "the partial first page is left alone";
    for (size_t i = 1; i + 1 < pages; i++) EXPECT_TRUE(resident[i] & 1) << "page " << i;
    EXPECT_FALSE(resident[pages - 1] & 1) << "the partial last page is left alone";
    EXPECT_EQ(area[5 * page + 7], 42);
    EXPECT_EQ(area[9 * page], 0);
    EXPECT_FALSE(populatePages(area + 100, 200)) << "no whole page within";
    munmap(area, pages * page);
}
