// The codec stream: header, colour table, frequencies and a bit stream that codes the bitmap
// as a region tree (or, with the raw flag, every pixel in row order) with Huffman codes.
#pragma once
#include "codec/bitmap.h"
#include "support/vec.h"

// Decodes the stream in [in, end) into bitmap. Returns nullptr on success, with in left at the
// byte holding the last bit read (one past it when that bit was a byte's highest). On a
// malformed stream returns a short description, frees what it allocated and leaves the bitmap
// cleared. The bitmap's previous pixels are never freed: hand it a new or cleared bitmap.
const char* decompress(Bitmap& bitmap, const unsigned char*& in, const unsigned char* end);

// The same over the whole of buffer; buffer itself is not changed.
const char* decompress(Bitmap& bitmap, vec<unsigned char>& buffer);

// The same when the stream's length is unknown: it trusts its input and is bounded only by the
// address space, so use it only on streams this program wrote itself. It reads no byte past
// the one holding the stream's last bit, and is slower for that.
const char* decompress(Bitmap& bitmap, unsigned char*& in);

// Reads the width and height from the header of the stream in [in, end); returns the error
// decompress would give for a header cut short or beyond the limits.
const char* readStreamSize(const unsigned char* in, const unsigned char* end, int& width, int& height);

// Decodes the stream in [in, end) and composites it over under in one pass: the result is what
// decompress followed by replacing every see-through pixel by under's pixel at the same place
// gives. under must be at least as wide and high as the stream. The pixels go into bitmap,
// whose array is reused when it already has the stream's size; under may be bitmap itself
// (decoding over its own picture, which must then have the stream's size). Leaves in as
// decompress does. On a malformed stream returns a short description; bitmap keeps its array,
// with pixels partly decoded.
const char* decompressOver(Bitmap& bitmap, const Bitmap& under, const unsigned char*& in, const unsigned char* end);

// The same over a picture of one colour of any size: every see-through pixel becomes under.
const char* decompressOver(Bitmap& bitmap, Color under, const unsigned char*& in, const unsigned char* end);

// Appends the stream of bitmap to out. raw codes every pixel in row order instead of the region
// tree. The bitmap must be within sizeWithinLimits. A bitmap with no rows or no columns is
// written as its header, one colour, frequency 0 and no bit stream.
void compress(Bitmap& bitmap, vec<unsigned char>& out, bool raw);
