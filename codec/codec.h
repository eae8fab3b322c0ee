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

// Appends the stream of bitmap to out. raw codes every pixel in row order instead of the region
// tree. The bitmap must be within sizeWithinLimits. A bitmap with no rows or no columns is
// written as its header, one colour, frequency 0 and no bit stream.
void compress(Bitmap& bitmap, vec<unsigned char>& out, bool raw);
