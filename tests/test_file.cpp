#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "io/file.h"

// A temporary file under /tmp made with mkstemp, removed by the destructor.
struct TempFile {
    std::string path;
    explicit TempFile(const std::string& bytes = "") {
        char name[] = "/tmp/slides-file-XXXXXX";
        int fd = mkstemp(name);
        path = name;
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), (ssize_t)bytes.size());
        ::close(fd);
    }
    ~TempFile() { unlink(path.c_str()); }

    std::string content() const {
        std::string out;
        int fd = ::open(path.c_str(), O_RDONLY);
        char chunk[4096];
        for (ssize_t n; (n = read(fd, chunk, sizeof(chunk))) > 0;) out.append(chunk, n);
        ::close(fd);
        return out;
    }
    void append(const std::string& bytes) const {
        int fd = ::open(path.c_str(), O_WRONLY | O_APPEND);
        EXPECT_EQ(write(fd, bytes.data(), bytes.size()), (ssize_t)bytes.size());
        ::close(fd);
    }
};

static std::string patterned(size_t n) {
    std::string s(n, 0);
    for (size_t i = 0; i < n; i++) s[i] = (char)(i * 7 + i / 256);
    return s;
}

static std::string readAllChars(File& f) {
    std::string out;
    for (int c; (c = f.getChar()) >= 0;) out += (char)c;
    return out;
}

static std::vector<int> packed(unsigned long long value) {
    TempFile t;
    File f;
    f.open(t.path.c_str(), "wb");
    putUInt(f, value);
    f.close();
    std::vector<int> bytes;
    for (unsigned char c : t.content()) bytes.push_back(c);
    return bytes;
}

static unsigned long long unpack(const std::string& bytes) {
    TempFile t(bytes);
    File f;
    f.open(t.path.c_str(), "rb");
    return getUInt(f);
}

static bool isOpenFd(int fd) { return fcntl(fd, F_GETFD) != -1; }

TEST(File, StartsClosed) {
    File f;
    EXPECT_EQ(f.fd, -1);
    EXPECT_EQ(f.state().mode, READ);
    EXPECT_EQ(f.state().buf, nullptr);
    EXPECT_EQ(f.state().size, -1);
    EXPECT_EQ(f.state().pos, 0);
    EXPECT_TRUE(f.state().own_fd);
    EXPECT_EQ(f.getChar(), -1);
}

TEST(File, OpeningForReadingReadsTheFirstBlock) {
    TempFile t(patterned(2000));
    File f;
    f.open(t.path.c_str(), "rb");
    ASSERT_NE(f.fd, -1);
    EXPECT_EQ(f.state().mode, READ);
    EXPECT_EQ(f.state().size, 1024);
    EXPECT_EQ(f.state().pos, 0);
    EXPECT_EQ(readAllChars(f), patterned(2000));
}

TEST(File, FullBlockFileMakesOneMoreReadAtTheEnd) {
    TempFile t(patterned(1024));
    File f;
    f.open(t.path.c_str(), "rb");
    for (int i = 0; i < 1024; i++) ASSERT_GE(f.getChar(), 0);
    EXPECT_EQ(f.state().size, 1024);
    EXPECT_EQ(f.state().pos, 1024);
    t.append("Z");  // a refill after the full block sees bytes added meanwhile
    EXPECT_EQ(f.getChar(), 'Z');
    EXPECT_EQ(f.state().size, 1);
    EXPECT_EQ(f.getChar(), -1);
}

TEST(File, FullBlockFileReportsEndAfterAnEmptyRead) {
    TempFile t(patterned(1024));
    File f;
    f.open(t.path.c_str(), "rb");
    EXPECT_EQ(readAllChars(f), patterned(1024));
    EXPECT_EQ(f.state().size, 0);
    EXPECT_EQ(f.state().pos, 0);
}

TEST(File, ShortBlockReportsEndWithoutReading) {
    TempFile t(patterned(1023));
    File f;
    f.open(t.path.c_str(), "rb");
    EXPECT_EQ(readAllChars(f), patterned(1023));
    EXPECT_EQ(f.state().size, 1023);
    EXPECT_EQ(f.state().pos, 1023);
    t.append("Z");  // no further read() is made after a short one
    EXPECT_EQ(f.getChar(), -1);
    EXPECT_EQ(f.state().size, 1023);
}

TEST(File, SeekFromTheEndReachesTheLastEightBytes) {
    std::string data = patterned(3000);
    TempFile t(data);
    File f;
    f.open(t.path.c_str(), "rb");
    f.seek(-8, SEEK_END);
    EXPECT_EQ(f.state().size, 8);
    EXPECT_EQ(f.state().pos, 0);
    for (int i = 0; i < 8; i++) EXPECT_EQ(f.getChar(), (unsigned char)data[2992 + i]);
    EXPECT_EQ(f.getChar(), -1);
}

TEST(File, SeekFromCurrentIsRelativeToTheLogicalPosition) {
    std::string data = patterned(3000);
    TempFile t(data);
    File f;
    f.open(t.path.c_str(), "rb");
    for (int i = 0; i < 10; i++) f.getChar();
    f.seek(5, SEEK_CUR);
    EXPECT_EQ(f.tell(), 15);
    EXPECT_EQ(f.getChar(), (unsigned char)data[15]);
    f.seek(-3, SEEK_CUR);
    EXPECT_EQ(f.getChar(), (unsigned char)data[13]);
    f.seek(2000, SEEK_SET);
    EXPECT_EQ(f.tell(), 2000);
    EXPECT_EQ(f.getChar(), (unsigned char)data[2000]);
}

TEST(File, TellCountsBytesRead) {
    TempFile t(patterned(3000));
    File f;
    f.open(t.path.c_str(), "rb");
    EXPECT_EQ(f.tell(), 0);
    for (int i = 0; i < 1100; i++) f.getChar();
    EXPECT_EQ(f.tell(), 1100);
}

TEST(File, TellCountsBytesWrittenBeforeTheyReachTheFile) {
    TempFile t;
    File f;
    f.open(t.path.c_str(), "wb");
    EXPECT_EQ(f.state().mode, WRITE);
    EXPECT_EQ(f.state().size, -1);
    for (int i = 0; i < 1024; i++) f.putChar('a');
    EXPECT_EQ(f.tell(), 1024);
    EXPECT_EQ(t.content().size(), 0u);
    f.putChar('b');  // the full buffer goes out first
    EXPECT_EQ(t.content().size(), 1024u);
    EXPECT_EQ(f.state().pos, 1);
    EXPECT_EQ(f.tell(), 1025);
    f.close();
    EXPECT_EQ(t.content(), std::string(1024, 'a') + "b");
}

TEST(File, WriteModeTruncatesAndCreates) {
    TempFile t("old content");
    File f;
    f.open(t.path.c_str(), "w");
    ASSERT_NE(f.fd, -1);
    EXPECT_EQ(t.content(), "");
    f.close();
    std::string fresh = t.path + ".new";
    File g;
    g.open(fresh.c_str(), "wb");
    EXPECT_NE(g.fd, -1);
    g.close();
    EXPECT_EQ(access(fresh.c_str(), F_OK), 0);
    unlink(fresh.c_str());
}

TEST(File, AppendModeWritesAtTheEnd) {
    TempFile t("abc");
    File f;
    f.open(t.path.c_str(), "a");
    EXPECT_EQ(f.state().mode, WRITE);
    EXPECT_EQ(f.tell(), 3);
    putf(f, "xyz");
    f.close();
    EXPECT_EQ(t.content(), "abcxyz");
}

TEST(File, FailedOpenChangesOnlyTheDescriptor) {
    File f;
    f.open("/tmp/slides-no-such-dir/x", "rb");
    EXPECT_EQ(f.fd, -1);
    EXPECT_EQ(f.state().buf, nullptr);
    EXPECT_EQ(f.state().size, -1);
    EXPECT_EQ(f.state().mode, READ);
    TempFile t("abc");
    f.open(t.path.c_str(), "x");  // exclusive creation of an existing file fails
    EXPECT_EQ(f.fd, -1);
}

TEST(File, ReadAndWriteWithoutPlusOpensReadOnlyAndTruncates) {
    TempFile t("abc");
    File f;
    f.open(t.path.c_str(), "rw");
    ASSERT_NE(f.fd, -1);
    EXPECT_EQ(fcntl(f.fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(f.state().mode, READ);
    EXPECT_EQ(t.content(), "");
}

TEST(File, WritingAfterReadingLandsAtTheLogicalPosition) {
    TempFile t("hello world");
    File f;
    f.open(t.path.c_str(), "r+");
    EXPECT_EQ(f.state().mode, READ);
    EXPECT_EQ(f.getChar(), 'h');
    EXPECT_EQ(f.getChar(), 'e');
    f.putChar('X');
    EXPECT_EQ(f.state().mode, WRITE);
    EXPECT_EQ(f.state().size, -1);
    f.close();
    EXPECT_EQ(t.content(), "heXlo world");
}

TEST(File, ReadingAfterWritingFlushesFirst) {
    TempFile t;
    File f;
    f.open(t.path.c_str(), "w+");
    EXPECT_EQ(f.state().mode, WRITE);
    putf(f, "%s-%d", "abc", 42);
    f.seek(0, SEEK_SET);
    EXPECT_EQ(f.state().mode, WRITE);
    EXPECT_EQ(readAllChars(f), "abc-42");
    EXPECT_EQ(f.state().mode, READ);
    f.seek(2, SEEK_SET);
    f.putChar('Q');
    f.seek(4, SEEK_SET);
    EXPECT_EQ(f.getChar(), '4');
    f.close();
    EXPECT_EQ(t.content(), "abQ-42");
}

TEST(File, EmptyFormatStillSwitchesToWriting) {
    TempFile t("abc");
    File f;
    f.open(t.path.c_str(), "r+");
    f.getChar();
    putf(f, "%s", "");
    EXPECT_EQ(f.state().mode, WRITE);
    EXPECT_EQ(f.state().pos, 0);
    EXPECT_EQ(f.tell(), 1);
}

TEST(File, CloseOnAClosedFileDoesNothing) {
    File f;
    f.close();
    EXPECT_EQ(f.fd, -1);
    TempFile t("abc");
    f.open(t.path.c_str(), "rb");
    f.close();
    f.close();
    EXPECT_EQ(f.fd, -1);
    EXPECT_EQ(f.state().buf, nullptr);
}

TEST(File, CloseLeavesABorrowedDescriptorOpen) {
    TempFile t("abc");
    int fd = ::open(t.path.c_str(), O_RDONLY);
    {
        File f;
        f.open(fd, READ, false);
        EXPECT_EQ(f.state().size, 3);
        EXPECT_EQ(f.getChar(), 'a');
        f.close();
        EXPECT_EQ(f.fd, -1);
    }
    EXPECT_TRUE(isOpenFd(fd));
    ::close(fd);
}

TEST(File, CloseClosesAnOwnedDescriptor) {
    TempFile t("abc");
    int fd = ::open(t.path.c_str(), O_RDONLY);
    File f;
    f.open(fd, READ, true);
    f.close();
    EXPECT_FALSE(isOpenFd(fd));
}

TEST(File, ReopeningClosesThePreviousDescriptorEvenIfBorrowed) {
    TempFile t("abc");
    int first = ::open(t.path.c_str(), O_RDONLY);
    int second = ::open(t.path.c_str(), O_RDONLY);
    File f;
    f.open(first, READ, false);
    f.open(second, READ, true);
    EXPECT_FALSE(isOpenFd(first));
    EXPECT_EQ(f.fd, second);
}

TEST(File, AdoptedDescriptorForWritingStartsEmpty) {
    TempFile t;
    int fd = ::open(t.path.c_str(), O_WRONLY);
    File f;
    f.open(fd, WRITE, true);
    EXPECT_EQ(f.state().size, -1);
    putf(f, "n=%d", 7);
    EXPECT_EQ(t.content(), "");
    f.close();
    EXPECT_EQ(t.content(), "n=7");
}

TEST(File, DestructorFlushesAndCloses) {
    TempFile t;
    int fd;
    {
        File f;
        f.open(t.path.c_str(), "wb");
        fd = f.fd;
        putf(f, "bye");
    }
    EXPECT_FALSE(isOpenFd(fd));
    EXPECT_EQ(t.content(), "bye");
}

TEST(File, CloseReportsAWriteThatFailed) {
    File f;
    f.open("/dev/full", "wb");
    ASSERT_NE(f.fd, -1);
    for (int i = 0; i < 3000; i++) f.putChar('x');  // the first flush already fails
    EXPECT_EQ(f.writeError(), ENOSPC);
    putf(f, "more");
    EXPECT_FALSE(f.close());
    EXPECT_EQ(f.writeError(), ENOSPC);  // kept after closing, for the message
}

TEST(File, CloseReportsAFailureOfTheLastFlush) {
    File f;
    f.open("/dev/full", "wb");
    putf(f, "short");  // nothing is written before close
    EXPECT_EQ(f.writeError(), 0);
    EXPECT_FALSE(f.close());
    EXPECT_EQ(f.writeError(), ENOSPC);
}

TEST(File, WriteErrorIsClearedByOpening) {
    TempFile t;
    File f;
    f.open("/dev/full", "wb");
    putf(f, "lost");
    EXPECT_FALSE(f.close());
    f.open(t.path.c_str(), "wb");
    EXPECT_EQ(f.writeError(), 0);
    putf(f, "kept");
    EXPECT_TRUE(f.close());
    EXPECT_EQ(t.content(), "kept");
}

TEST(GetFile, ReadsTheRestWithACountedTerminator) {
    std::string data = patterned(2000);
    TempFile t(data);
    File f;
    f.open(t.path.c_str(), "rb");
    for (int i = 0; i < 3; i++) f.getChar();
    vec<char> out;
    getFile(f, out);
    ASSERT_EQ(out.size, 1998);
    EXPECT_EQ(std::string(out.data, 1997), data.substr(3));
    EXPECT_EQ(out[1997], 0);
    char* storage = out.data;
    getFile(f, out);  // at the end: only the terminator, in the same storage
    EXPECT_EQ(out.size, 1);
    EXPECT_EQ(out.data, storage);
}

TEST(GetLine, SplitsAtLineFeeds) {
    TempFile t("ab\ncd");
    File f;
    f.open(t.path.c_str(), "rb");
    vec<char> out;
    getLine(f, out);
    EXPECT_EQ(out.size, 3);
    EXPECT_STREQ(out.data, "ab");
    getLine(f, out);
    EXPECT_EQ(out.size, 3);
    EXPECT_STREQ(out.data, "cd");
    getLine(f, out);
    EXPECT_EQ(out.size, 1);
    EXPECT_STREQ(out.data, "");
}

TEST(GetLine, EmptyLineGivesOnlyTheTerminator) {
    TempFile t("\nx\n");
    File f;
    f.open(t.path.c_str(), "rb");
    vec<char> out;
    getLine(f, out);
    EXPECT_EQ(out.size, 1);
    getLine(f, out);
    EXPECT_STREQ(out.data, "x");
}

TEST(PackedInt, LengthClassesFollowTheThresholds) {
    const unsigned long long values[] = {0x7F, 0x80, 0x1FFF, 0x2000, 0x1FFFFF, 0x200000, 0x1FFFFFFF, 0x20000000};
    const size_t lengths[] = {1, 2, 2, 3, 3, 4, 4, 9};
    for (int i = 0; i < 8; i++) EXPECT_EQ(packed(values[i]).size(), lengths[i]) << values[i];
    EXPECT_EQ(packed(0x100000000ull).size(), 9u);
}

TEST(PackedInt, ExactBytes) {
    EXPECT_EQ(packed(0x20000000), (std::vector<int>{0xE0, 0, 0, 0, 0, 0x20, 0, 0, 0}));
    EXPECT_EQ(packed(536551), (std::vector<int>{0xA8, 0x2F, 0xE7}));
    EXPECT_EQ(packed(3), (std::vector<int>{0x03}));
    EXPECT_EQ(packed(257), (std::vector<int>{0x81, 0x01}));
    EXPECT_EQ(packed(0x1FFFFFFF), (std::vector<int>{0xDF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(packed(~0ull), (std::vector<int>{0xE0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(PackedInt, RoundTripsThroughOneStream) {
    const unsigned long long values[] = {0,         1,          0x7F,        0x80,       0x1FFF, 0x2000,
                                         0x1FFFFF,  0x200000,   0x1FFFFFFF,  0x20000000, 536551, 0xFFFFFFFFull,
                                         1ull << 40, ~0ull - 1, ~0ull,       12345678901ull};
    TempFile t;
    File f;
    f.open(t.path.c_str(), "w+");
    for (int rep = 0; rep < 100; rep++)  // crosses several buffer boundaries
        for (unsigned long long v : values) putUInt(f, v);
    f.seek(0, SEEK_SET);
    for (int rep = 0; rep < 100; rep++)
        for (unsigned long long v : values) ASSERT_EQ(getUInt(f), v);
    EXPECT_THROW(getUInt(f), Exception_EOF);
}

TEST(PackedInt, EmptyStreamThrows) {
    EXPECT_THROW(unpack(""), Exception_EOF);
}

TEST(PackedInt, CutValuesReadMissingBytesAsOnes) {
    EXPECT_EQ(unpack("\x81"), 0xFFFFFFFFull);
    EXPECT_EQ(unpack("\xA1\x01"), 0xFFFFFFFFull);
    EXPECT_EQ(unpack("\xC1\x01\x02"), 0xFFFFFFFFull);
    EXPECT_EQ(unpack(std::string("\xE0\x12", 2)), ~0ull);
    EXPECT_EQ(unpack(std::string("\xE0\x00\x00\x00\x01\x12", 6)), 0x1FFFFFFFFull);
}

TEST(PackedInt, ReaderAcceptsLongerFormsAndIgnoresSpareBits) {
    EXPECT_EQ(unpack(std::string("\x80\x05", 2)), 5u);
    EXPECT_EQ(unpack(std::string("\xC0\x00\x00\x07", 4)), 7u);
    EXPECT_EQ(unpack(std::string("\xFF\x00\x00\x00\x00\x00\x00\x01\x02", 9)), 0x102u);
}

TEST(ReadBytes, MatchesByteByByteReading) {
    std::string data = patterned(5000);
    TempFile t(data);
    File bulk, single;
    bulk.open(t.path.c_str(), "rb");
    single.open(t.path.c_str(), "rb");
    unsigned char out[3000];
    const size_t steps[] = {100, 2000, 1, 1024, 3000};
    size_t at = 0;
    for (size_t n : steps) {
        size_t got = bulk.readBytes(out, n);
        size_t expect = std::min(n, data.size() - at);
        ASSERT_EQ(got, expect);
        EXPECT_EQ(std::string((char*)out, got), data.substr(at, got));
        for (size_t i = 0; i < n; i++) single.getChar();
        EXPECT_EQ(bulk.state().pos, single.state().pos);
        EXPECT_EQ(bulk.state().size, single.state().size);
        at += got;
    }
    EXPECT_EQ(bulk.readBytes(out, 10), 0u);
}

TEST(ReadBytes, FullBlockFileEndsLikeGetChar) {
    TempFile t(patterned(1024));
    File f;
    f.open(t.path.c_str(), "rb");
    unsigned char out[2048];
    EXPECT_EQ(f.readBytes(out, 2048), 1024u);
    EXPECT_EQ(f.state().size, 0);
    EXPECT_EQ(std::string((char*)out, 1024), patterned(1024));
}

TEST(ReadBytes, SwitchesAWritingStreamToReading) {
    TempFile t;
    File f;
    f.open(t.path.c_str(), "w+");
    putf(f, "0123456789");
    f.seek(4, SEEK_SET);
    unsigned char out[16];
    EXPECT_EQ(f.readBytes(out, 16), 6u);
    EXPECT_EQ(std::string((char*)out, 6), "456789");
    EXPECT_EQ(f.state().mode, READ);
}
