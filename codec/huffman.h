// Huffman codes over colour indices. Encoder and decoder build the same tree from the
// same frequency list, so every tie-break below is part of the stream format.
#pragma once
#include "support/vec.h"

// The code of one symbol: bit d (see codeBit) is the branch taken at depth d, 1 = second.
struct Huff {
    int length;
    unsigned long long code;
};

// The mask of the bit for depth d: 1 << (d mod 32) as a signed 32-bit value widened with its
// sign, so codes up to 32 bits are exact and longer ones overlap their low bits.
inline unsigned long long codeBit(int d) {
    return (unsigned long long)(long long)(int)(1u << (d & 31));
}

// Builds the decoding tree (node references: >= 0 a node, < 0 the leaf of symbol ~v; the root is
// the last node) and the code of every symbol. Appends to tree and writes into codes without
// clearing them first.
void computeHuffcodes(const vec<int>& freqs, vec<Huff>& codes, vec<Pair<int, int> >& tree);

// Fills codes for the subtree whose reference is node, reached through prefix.
void genCodes(Huff prefix, int node, vec<Pair<int, int> >& tree, vec<Huff>& codes);
