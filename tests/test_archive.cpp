// The slide archive container: layout written by writeArchive, read back by readIndex/readRecord.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "show/archive.h"
#include "helpers/archives.h"
#include "helpers/run.h"

namespace {

void bytes(vec<unsigned char>& v, std::initializer_list<int> list) {
    for (int b : list) v.push((unsigned char)b);
}

// Two backgrounds and two screens with known payloads.
void sample(vec<vec<unsigned char> >& backgrounds, vec<ScreenRecord>& screens, vec<bool>& flags) {
    bytes(backgrounds.push(), {1, 2, 3});
    bytes(backgrounds.push(), {4});
    ScreenRecord& a = screens.push();
    a.selector = 1;
    bytes(a.payload, {9, 8});
    ScreenRecord& b = screens.push();
    b.selector = 2;
    bytes(b.payload, {7});
    flags.push(false);
    flags.push(true);
}

std::string writeSample(const std::string& path, ArchiveLayout layout, const std::string& prefix) {
    vec<vec<unsigned char> > backgrounds;
    vec<ScreenRecord> screens;
    vec<bool> flags;
    sample(backgrounds, screens, flags);
    return writeArchiveFile(path, layout, prefix, backgrounds, screens, flags);
}

TEST(Archive, SeparateLayoutIsDense) {
    TempDir tmp;
    std::string file = writeSample(tmp.file("a"), ARCHIVE_SEPARATE, "");
    // records: 03 01 02 03 | 01 04 | 01 02 09 08 | 02 01 07 ; index at 15: 02 02 00 04 06 0A 00 01 ; trailer 15
    std::string expected = std::string("\x03\x01\x02\x03\x01\x04\x01\x02\x09\x08\x02\x01\x07", 13) +
                           std::string("\x02\x02\x00\x04\x06\x0A\x00\x01", 8) + std::string("\x0D\0\0\0\0\0\0\0", 8);
    EXPECT_EQ(file, expected);
}

TEST(Archive, AppendedLayoutCarriesTheBase) {
    TempDir tmp;
    std::string prefix = "#!program bytes";
    std::string file = writeSample(tmp.file("a"), ARCHIVE_APPENDED, prefix);
    ASSERT_EQ(file.substr(0, prefix.size()), prefix);
    std::string trailer = file.substr(file.size() - 16);
    EXPECT_EQ(trailer.substr(0, 8), std::string("\x0D\0\0\0\0\0\0\0", 8));
    EXPECT_EQ((unsigned char)trailer[8], prefix.size());
    EXPECT_EQ(trailer.substr(9), std::string(7, '\0'));
}

TEST(Archive, ReadsBackWhatWasWritten) {
    TempDir tmp;
    for (ArchiveLayout layout : {ARCHIVE_SEPARATE, ARCHIVE_APPENDED}) {
        writeSample(tmp.file("a"), layout, layout == ARCHIVE_APPENDED ? "prefix" : "");
        File in;
        in.open(tmp.file("a").c_str(), "rb");
        ArchiveIndex index;
        ASSERT_EQ(readIndex(in, layout, index), nullptr);
        EXPECT_EQ(index.base, layout == ARCHIVE_APPENDED ? 6u : 0u);
        ASSERT_EQ(index.nb, 2);
        ASSERT_EQ(index.ns, 2);
        EXPECT_FALSE(index.flags[0]);
        EXPECT_TRUE(index.flags[1]);
        vec<unsigned char> payload;
        int selector = -1;
        ASSERT_EQ(readRecord(in, index, 0, &selector, payload), nullptr);
        ASSERT_EQ(payload.size, 3);
        EXPECT_EQ(payload[2], 3);
        ASSERT_EQ(readRecord(in, index, 3, &selector, payload), nullptr);
        EXPECT_EQ(selector, 2);
        ASSERT_EQ(payload.size, 1);
        EXPECT_EQ(payload[0], 7);
    }
}

TEST(Archive, TrailerWordReadAtEndOfFileSetsTheHighBits) {
    TempDir tmp;
    writeFileBytes(tmp.file("t"), std::string("\x34\x12", 2));
    File in;
    in.open(tmp.file("t").c_str(), "rb");
    EXPECT_EQ(getIntUnpacked(in), 0xFFFFFFFFFFFF1234ull);
}

TEST(Archive, PayloadBytesPastTheEndReadAs0xFF) {
    // Index at 0 (one background at offset 3), the record at 3 claims 12 payload bytes: the 8
    // trailer bytes that follow it, then 4 bytes past the end of the file.
    TempDir tmp;
    std::string file = std::string("\x01\x00\x03\x0C", 4) + std::string(8, '\0');
    writeFileBytes(tmp.file("p"), file);
    File in;
    in.open(tmp.file("p").c_str(), "rb");
    ArchiveIndex index;
    ASSERT_EQ(readIndex(in, ARCHIVE_SEPARATE, index), nullptr);
    vec<unsigned char> payload;
    int selector = 0;
    ASSERT_EQ(readRecord(in, index, 0, &selector, payload), nullptr);
    ASSERT_EQ(payload.size, 12);
    for (int i = 0; i < 8; i++) EXPECT_EQ(payload[i], 0x00) << i;
    for (int i = 8; i < 12; i++) EXPECT_EQ(payload[i], 0xFF) << i;
}

TEST(Archive, RejectsWhatPointsOutsideTheFile) {
    TempDir tmp;
    struct Case {
        std::string bytes;
        const char* what;
    } cases[] = {
        {std::string("\x01\x02", 2), "too short for its trailer"},
        {std::string("\x01\x00\x00", 3) + std::string("\x40\0\0\0\0\0\0\0", 8), "index offset past the end"},
        {std::string("\x01\x00\x50", 3) + std::string(8, '\0'), "record offset past the end"},
        {std::string("\x7F\x00\x00", 3) + std::string(8, '\0'), "more records than bytes"},
    };
    for (const Case& c : cases) {
        writeFileBytes(tmp.file("bad"), c.bytes);
        File in;
        in.open(tmp.file("bad").c_str(), "rb");
        ArchiveIndex index;
        EXPECT_NE(readIndex(in, ARCHIVE_SEPARATE, index), nullptr) << c.what;
    }
}

TEST(Archive, RejectsASelectorOutOfRange) {
    TempDir tmp;
    // index at 3: nb 0, ns 1, offset 0, flag 0; the screen record selects background 2 of none.
    std::string file = std::string("\x02\x00\x00", 3) + std::string("\x00\x01\x00\x00", 4) +
                       std::string("\x03\0\0\0\0\0\0\0", 8);
    writeFileBytes(tmp.file("s"), file);
    File in;
    in.open(tmp.file("s").c_str(), "rb");
    ArchiveIndex index;
    ASSERT_EQ(readIndex(in, ARCHIVE_SEPARATE, index), nullptr);
    vec<unsigned char> payload;
    int selector = 0;
    EXPECT_NE(readRecord(in, index, 0, &selector, payload), nullptr);
}

}  // namespace
