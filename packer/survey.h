// The packer's first pass over a talk's pages, in order: every page is set aside compressed in
// the page store and feeds the two candidate backgrounds the second pass encodes over.
#pragma once
#include "codec/bitmap.h"
#include "packer/page_store.h"

struct Survey {
    vec<Blob> pages;  // each page's stream in the store
    Bitmap plain;     // the first page's commonest colour all over: a stream of a few bytes
    Bitmap shared;    // at each pixel, the colour most pages show there (a majority vote)
    vec<int> votes;   // the vote's running count per pixel
};

// Adds the next page: its stream (the plain encoder's) goes to the store, its pixels to the
// candidates. Every page must have the first page's size. Returns null or an error.
const char* surveyPage(PageStore& store, Survey& survey, const vec<unsigned char>& stream, const Bitmap& page);

// Compresses the page and adds it, for pages at hand in memory.
const char* surveyBitmap(PageStore& store, Survey& survey, Bitmap& page);
