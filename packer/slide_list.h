// Slide lists (a deck's slides.txt, or --slides): one line "<file> <flag>" per page, in the order
// of the show; flag 1 means the page continues the slide of the page before. Blank lines are
// skipped, and so is a UTF-8 byte-order mark at the start.
#pragma once
#include <cstddef>

#include "support/vec.h"

// The longest line, and the largest list that is read.
const int kMaxListLine = 4095;
const long long kMaxListBytes = 64LL << 20;

struct ListEntry {
    const char* name;  // points into the parsed bytes
    bool flag;
    int line;  // from 1
};

// Parses the list in bytes[0, n), followed by a NUL byte at bytes[n]; writes NUL bytes into it to
// end the names. `path` names the list in errors. Appends the entries. Returns null or an error
// naming the line.
const char* parseSlideList(char* bytes, size_t n, const char* path, vec<ListEntry>& entries);

// Reads the list file at path (a regular file only) into bytes and parses it. Returns null or an error.
const char* readSlideListFile(const char* path, vec<unsigned char>& bytes, vec<ListEntry>& entries);
