// Notes inside a show: written between the records and the index, invisible to the archive's
// own reader, read back by readNotes.
#include <gtest/gtest.h>

#include <string>

#include "helpers/archives.h"
#include "helpers/run.h"
#include "show/notes.h"

namespace {

void bytes(vec<unsigned char>& v, std::initializer_list<int> list) {
    for (int b : list) v.push((unsigned char)b);
}

struct Sample {
    vec<vec<unsigned char> > backgrounds;
    vec<ScreenRecord> screens;
    vec<bool> flags;
    ShowNotes notes;

    Sample() {
        bytes(backgrounds.push(), {1, 2, 3});
        for (int i = 0; i < 3; i++) {
            ScreenRecord& s = screens.push();
            s.selector = i == 0 ? 0 : 1;
            bytes(s.payload, {10 + i, 20 + i});
            flags.push(i == 2);
        }
        bytes(notes.pictures.push(), {0xAA, 0xBB, 0xCC});
        bytes(notes.pictures.push(), {0xDD});
        notes.of_screen.push(1);
        notes.of_screen.push(-1);
        notes.of_screen.push(0);
    }

    std::string write(const std::string& path, ArchiveLayout layout, bool with_notes) {
        return writeArchiveFile(path, layout, layout == ARCHIVE_APPENDED ? "program" : "", backgrounds, screens,
                                flags, with_notes ? &notes : nullptr);
    }
};

struct Opened {
    File in;
    ArchiveIndex index;
    Opened(const std::string& path, ArchiveLayout layout) {
        in.open(path.c_str(), "rb");
        EXPECT_EQ(readIndex(in, layout, index), nullptr);
    }
};

std::string records(Opened& a) {
    std::string all;
    vec<unsigned char> payload;
    for (int r = 0; r < a.index.nb + a.index.ns; r++) {
        int selector = -1;
        EXPECT_EQ(readRecord(a.in, a.index, r, &selector, payload), nullptr);
        all += std::to_string(selector) + ":" + std::string(payload.begin(), payload.end()) + ";";
    }
    for (int i = 0; i < a.index.ns; i++) all += a.index.flags[i] ? "1" : "0";
    return all;
}

}  // namespace

TEST(Notes, ReadBackWhatWasWritten) {
    TempDir tmp;
    for (ArchiveLayout layout : {ARCHIVE_SEPARATE, ARCHIVE_APPENDED}) {
        Sample s;
        s.write(tmp.file("n"), layout, true);
        Opened a(tmp.file("n"), layout);
        ShowNotes notes;
        ASSERT_EQ(readNotes(a.in, a.index, notes), nullptr);
        ASSERT_EQ(notes.pictures.size, 2);
        ASSERT_EQ(notes.of(0), &notes.pictures[1]);
        EXPECT_EQ(notes.of(1), nullptr);
        ASSERT_EQ(notes.of(2), &notes.pictures[0]);
        EXPECT_EQ(std::string(notes.pictures[0].begin(), notes.pictures[0].end()), "\xAA\xBB\xCC");
        EXPECT_EQ(notes.pictures[1].size, 1);
        EXPECT_EQ(notes.of(3), nullptr);
        EXPECT_EQ(notes.of(-1), nullptr);
    }
}

TEST(Notes, TheArchiveReaderSeesTheSameRecordsAndFlags) {
    TempDir tmp;
    for (ArchiveLayout layout : {ARCHIVE_SEPARATE, ARCHIVE_APPENDED}) {
        Sample s;
        std::string plain = s.write(tmp.file("plain"), layout, false);
        std::string noted = s.write(tmp.file("noted"), layout, true);
        EXPECT_GT(noted.size(), plain.size());
        Opened a(tmp.file("plain"), layout), b(tmp.file("noted"), layout);
        EXPECT_EQ(records(a), records(b));
        EXPECT_EQ(a.index.offsets.size, b.index.offsets.size);
        // The records are where they were; only the index moved behind the notes.
        for (int r = 0; r < a.index.offsets.size; r++) EXPECT_EQ(a.index.offsets[r], b.index.offsets[r]);
        EXPECT_GT(b.index.index_at, a.index.index_at);
    }
}

TEST(Notes, AShowWithoutNotesHasNone) {
    TempDir tmp;
    Sample s;
    s.write(tmp.file("plain"), ARCHIVE_SEPARATE, false);
    Opened a(tmp.file("plain"), ARCHIVE_SEPARATE);
    ShowNotes notes;
    EXPECT_EQ(readNotes(a.in, a.index, notes), nullptr);
    EXPECT_TRUE(notes.empty());
    EXPECT_EQ(notes.of(0), nullptr);
}

TEST(Notes, EmptyNotesWriteNothing) {
    TempDir tmp;
    Sample s;
    std::string plain = s.write(tmp.file("plain"), ARCHIVE_SEPARATE, false);
    s.notes.pictures.release();
    s.notes.of_screen.release();
    EXPECT_EQ(s.write(tmp.file("empty"), ARCHIVE_SEPARATE, true), plain);
}

TEST(Notes, EveryDamagedByteOfTheBlockIsCaught) {
    TempDir tmp;
    Sample s;
    s.write(tmp.file("plain"), ARCHIVE_SEPARATE, false);
    std::string noted = s.write(tmp.file("noted"), ARCHIVE_SEPARATE, true);
    Opened without(tmp.file("plain"), ARCHIVE_SEPARATE), with(tmp.file("noted"), ARCHIVE_SEPARATE);
    // Every byte between the last record and the index, set to other values: the notes read
    // back intact, read as damaged or read as absent; nothing is read outside the block.
    size_t first = (size_t)without.index.index_at, last = (size_t)with.index.index_at;
    int damaged = 0;
    for (size_t at = first; at < last; at++)
        for (int v = 0; v < 256; v += 17) {
            if ((unsigned char)noted[at] == v) continue;
            std::string bad = noted;
            bad[at] = (char)v;
            writeFileBytes(tmp.file("bad"), bad);
            Opened a(tmp.file("bad"), ARCHIVE_SEPARATE);
            ShowNotes notes;
            const char* error = readNotes(a.in, a.index, notes);
            if (error) {
                damaged++;
                EXPECT_TRUE(notes.empty());
                EXPECT_STREQ(error, "The show's notes are damaged.");
            }
            for (int i = 0; i < 3; i++) {
                const vec<unsigned char>* picture = notes.of(i);
                EXPECT_TRUE(!picture || picture->size <= 3);
            }
        }
    EXPECT_GT(damaged, 0);
}
