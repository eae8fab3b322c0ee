// A presenter's deck: the page files in order and the slide grouping.
#pragma once
#include "codec/bitmap.h"
#include "support/util.h"
#include "support/vec.h"

struct Deck {
    vec<char*> files;     // malloc'ed paths
    vec<bool> flags;      // true: the page continues the slide of the page before
    char* list = nullptr;  // a deck folder's slides.txt (malloc'ed); null when it has none
    ~Deck();
};

// Reads a deck folder: the pages its slides.txt lists, or, when it has no slides.txt, its *.png
// files in name order, each a slide of its own. Returns null or a one-line error.
const char* readSlideList(const char* folder, Deck& deck);

// Takes the grouping of deck.files from a slides.txt-style list, matching by file name.
const char* applySlideList(const char* list_path, Deck& deck);

// Reads one page, which must be opaque and not empty. Returns null or a one-line error.
const char* readPage(const char* path, Bitmap& page);

// Page i must have the first page's size: null, or the error that says it has not.
const char* sizeMismatch(const Deck& deck, int i, const Bitmap& page, const Bitmap& first);
