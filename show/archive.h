// The slide archive container: records, index and trailer. This module is the only place that
// reads or writes the layout; the viewer and the packer both go through it.
//
//   [program bytes: B] records... index [I: u64 LE] [B: u64 LE]     appended to the program
//   records... index [I: u64 LE]                                    separate file (B = 0)
//
// Index (packed integers): nb, ns, nb + ns record offsets relative to B, ns continuation flag bytes.
// Background record: length, payload. Screen record: background selector, length, payload.
#pragma once
#include "io/file.h"
#include "support/vec.h"

// Where the archive lives: appended to the program (two trailer words) or a file of its own (one).
enum ArchiveLayout { ARCHIVE_SEPARATE = 0, ARCHIVE_APPENDED = 1 };

struct ArchiveIndex {
    unsigned long long length = 0;  // of the whole file
    unsigned long long base = 0;    // B: where the archive starts
    unsigned long long index_at = 0;  // I: where the index starts, relative to base
    int nb = 0;                     // backgrounds
    int ns = 0;                     // screens
    vec<unsigned long long> offsets;  // nb + ns, relative to base
    vec<bool> flags;                  // ns: the screen continues the slide before it
};

// One 8-byte little-endian trailer word; an end of file at byte k sets every bit from 8k up.
unsigned long long getIntUnpacked(File& file);
void putIntUnpacked(File& file, unsigned long long value);

// Reads the trailer and the index. Returns null, or a one-line description of what is wrong.
const char* readIndex(File& archive, ArchiveLayout layout, ArchiveIndex& index);

// Reads record r (backgrounds first, then screens): its payload and, for a screen, its background
// selector. Payload bytes past the end of the file read as 0xFF. Returns null or an error text.
const char* readRecord(File& archive, const ArchiveIndex& index, int r, int* selector,
                       vec<unsigned char>& payload);

struct ShowNotes;

// One screen to be written: its selector (0 .. nb-1 = a background, nb = the previous screen).
struct ScreenRecord {
    int selector = 0;
    vec<unsigned char> payload;
};

// Appends records, index and trailer at the stream's current position, which must be `base`
// bytes into the file (0 for a separate archive). Records are laid out densely in index order;
// notes, when given and not empty, go between the last record and the index.
void writeArchive(File& out, ArchiveLayout layout, unsigned long long base,
                  const vec<vec<unsigned char> >& backgrounds, const vec<ScreenRecord>& screens,
                  const vec<bool>& flags, const ShowNotes* notes = nullptr);
