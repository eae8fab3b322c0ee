// Notes that travel inside a show: pictures of the presenter's notes, one per screen at most,
// kept where a reader that knows nothing of notes never looks: between the last record and the
// index, which records and index alone never reach.
//
//   records... | notes block | block offset (u64 LE, relative to B) | "SLNOTES1" | index | trailer
//
// Notes block (packed integers): the number of pictures p; p times a length n and n bytes, a
// codec stream; then one number per screen: its picture's number plus one, 0 for none.
#pragma once
#include "io/file.h"
#include "show/archive.h"
#include "support/vec.h"

struct ShowNotes {
    vec<vec<unsigned char> > pictures;  // codec streams
    vec<int> of_screen;                 // per screen: a picture number, or -1 for none

    bool empty() const { return pictures.size == 0; }
    // The codec stream of the notes of screen i, or null.
    const vec<unsigned char>* of(int i) const;
};

// Writes the notes block and its footer at the stream's position, which is `at` bytes after the
// archive's base. Nothing is written for empty notes.
void writeNotes(File& out, const ShowNotes& notes, unsigned long long at);

// Reads the notes of an archive whose index has been read: none (notes left empty) when the
// archive carries no notes block. Returns null, or a one-line description of what is wrong.
const char* readNotes(File& archive, const ArchiveIndex& index, ShowNotes& notes);
