#include "show/notes.h"

#include <cstdio>
#include <cstring>

static const char magic[8] = {'S', 'L', 'N', 'O', 'T', 'E', 'S', '1'};
static const int kFooterBytes = 16;  // block offset and magic
static const char* const damaged = "The show's notes are damaged.";

const vec<unsigned char>* ShowNotes::of(int i) const {
    if (i < 0 || i >= of_screen.size || of_screen[i] < 0 || of_screen[i] >= pictures.size) return nullptr;
    return &pictures[of_screen[i]];
}

void writeNotes(File& out, const ShowNotes& notes, unsigned long long at) {
    if (notes.empty()) return;
    putUInt(out, (unsigned long long)notes.pictures.size);
    for (const vec<unsigned char>& picture : notes.pictures) {
        putUInt(out, (unsigned long long)picture.size);
        for (unsigned char c : picture) out.putChar(c);
    }
    for (int number : notes.of_screen) putUInt(out, (unsigned long long)(number + 1));
    putIntUnpacked(out, at);
    for (char c : magic) out.putChar((unsigned char)c);
}

// Reads one packed integer of the block and checks that it ends inside the block and is at
// most limit (and fits an int).
static bool readBlockUInt(File& archive, long long end, long long limit, unsigned long long& value) {
    value = getUInt(archive);
    return archive.tell() <= end && value <= (unsigned long long)limit && value <= 0x7FFFFFFF;
}

static const char* readBlock(File& archive, const ArchiveIndex& index, long long start, long long end,
                             ShowNotes& notes) {
    archive.seek(start, SEEK_SET);
    unsigned long long count;
    if (!readBlockUInt(archive, end, end - start, count)) return damaged;
    notes.pictures.resize((int)count);
    for (vec<unsigned char>& picture : notes.pictures) {
        unsigned long long n;
        if (!readBlockUInt(archive, end, end - archive.tell(), n)) return damaged;
        picture.resize((int)n);
        if (archive.readBytes(picture.data, (size_t)n) != n) return damaged;
    }
    notes.of_screen.resize(index.ns);
    for (int& number : notes.of_screen) {
        unsigned long long v;
        if (!readBlockUInt(archive, end, (long long)count, v)) return damaged;
        number = (int)v - 1;
    }
    return archive.tell() == end ? nullptr : damaged;
}

const char* readNotes(File& archive, const ArchiveIndex& index, ShowNotes& notes) {
    notes.pictures.release();
    notes.of_screen.release();
    if (index.index_at < (unsigned long long)kFooterBytes) return nullptr;
    long long footer = (long long)(index.base + index.index_at) - kFooterBytes;
    archive.seek(footer, SEEK_SET);
    unsigned long long at = getIntUnpacked(archive);
    char found[8];
    for (char& c : found) c = (char)archive.getChar();
    if (memcmp(found, magic, sizeof magic) != 0) return nullptr;  // a show without notes
    if (at >= index.index_at - kFooterBytes) return damaged;
    const char* error;
    try {
        error = readBlock(archive, index, (long long)(index.base + at), footer, notes);
    } catch (Exception_EOF&) {
        error = damaged;
    }
    if (error) {
        notes.pictures.release();
        notes.of_screen.release();
    }
    return error;
}
