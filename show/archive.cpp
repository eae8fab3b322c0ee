#include "show/archive.h"

#include <sys/stat.h>

#include <climits>
#include <cstdio>

#include "show/notes.h"

// What readIndex says when the trailer does not point into the file: no archive is there.
static const char* const no_archive = "No slide archive found: the file ends without a valid trailer.";

unsigned long long getIntUnpacked(File& file) {
    unsigned long long value = 0;
    for (int k = 0; k < 8; k++) value |= (unsigned long long)(long long)file.getChar() << (8 * k);
    return value;
}

void putIntUnpacked(File& file, unsigned long long value) {
    for (int k = 0; k < 8; k++) file.putChar((unsigned char)(value >> (8 * k)));
}

static unsigned long long fileLength(File& file) {
    struct stat st;
    if (fstat(file.fd, &st) != 0) return 0;
    return (unsigned long long)st.st_size;
}

// Reads a count of the index: a packed integer that must fit a 32-bit signed int (a larger one
// would read as none or as a few). A count that needs more index bytes than the file has is malformed.
static const char* readCount(File& file, unsigned long long limit, int& count) {
    unsigned long long n = getUInt(file);
    count = 0;
    if (n > INT_MAX) return "Index count too large for a slide archive.";
    count = (int)n;
    return n > limit ? "Index counts exceed the size of the archive." : nullptr;
}

const char* readIndex(File& archive, ArchiveLayout layout, ArchiveIndex& index) {
    index.length = fileLength(archive);
    unsigned long long trailer = layout == ARCHIVE_APPENDED ? 16 : 8;
    if (index.length < trailer) return no_archive;

    index.base = 0;
    if (layout == ARCHIVE_APPENDED) {
        archive.seek(-8, SEEK_END);
        index.base = getIntUnpacked(archive);
        archive.seek(-16, SEEK_END);
    } else {
        archive.seek(-8, SEEK_END);
    }
    unsigned long long at = getIntUnpacked(archive);
    unsigned long long end = index.length - trailer;  // the index lies before the trailer
    if (index.base > end || at >= end - index.base) return no_archive;
    index.index_at = at;
    archive.seek((long long)(index.base + at), SEEK_SET);

    unsigned long long room = end - index.base - at;
    const char* error = readCount(archive, room, index.nb);
    if (!error) error = readCount(archive, room, index.ns);
    if (error) return error;
    if ((unsigned long long)index.nb + index.ns > room) return "Index counts exceed the size of the archive.";

    index.offsets.resize(index.nb + index.ns);
    for (int i = 0; i < index.nb + index.ns; i++) {
        index.offsets[i] = getUInt(archive);
        if (index.offsets[i] >= index.length - index.base) return "Record offset outside the archive.";
    }
    index.flags.resize(index.ns);
    for (int i = 0; i < index.ns; i++) index.flags[i] = archive.getChar() != 0;  // end of file counts as set
    return nullptr;
}

const char* readRecord(File& archive, const ArchiveIndex& index, int r, int* selector,
                       vec<unsigned char>& payload) {
    archive.seek((long long)(index.base + index.offsets[r]), SEEK_SET);
    if (r >= index.nb) {
        unsigned long long k = getUInt(archive);
        if (k > (unsigned long long)index.nb) return "Background selector out of range.";
        *selector = (int)k;
    }
    unsigned long long n = getUInt(archive);
    if (n > index.length || n > 0x7FFFFFFF) return "Record length exceeds the size of the archive.";
    payload.release();
    payload.resize((int)n);
    size_t got = archive.readBytes(payload.data, (size_t)n);
    for (size_t i = got; i < n; i++) payload[(int)i] = 0xFF;  // bytes past the end of the file
    return nullptr;
}

void writeArchive(File& out, ArchiveLayout layout, unsigned long long base,
                  const vec<vec<unsigned char> >& backgrounds, const vec<ScreenRecord>& screens,
                  const vec<bool>& flags, const ShowNotes* notes) {
    vec<unsigned long long> offsets;
    unsigned long long at = 0;
    auto putRecord = [&](int selector, const vec<unsigned char>& payload) {
        long long start = out.tell();
        if (selector >= 0) putUInt(out, (unsigned long long)selector);
        putUInt(out, (unsigned long long)payload.size);
        for (int i = 0; i < payload.size; i++) out.putChar(payload[i]);
        offsets.push(at);
        at += (unsigned long long)(out.tell() - start);
    };
    for (int i = 0; i < backgrounds.size; i++) putRecord(-1, backgrounds[i]);
    for (int i = 0; i < screens.size; i++) putRecord(screens[i].selector, screens[i].payload);
    if (notes) {
        long long start = out.tell();
        writeNotes(out, *notes, at);
        at += (unsigned long long)(out.tell() - start);
    }

    putUInt(out, (unsigned long long)backgrounds.size);
    putUInt(out, (unsigned long long)screens.size);
    for (int i = 0; i < offsets.size; i++) putUInt(out, offsets[i]);
    for (int i = 0; i < screens.size; i++) out.putChar(flags[i] ? 1 : 0);
    putIntUnpacked(out, at);
    if (layout == ARCHIVE_APPENDED) putIntUnpacked(out, base);
}
