// Bytes set aside while packing: pages and their candidate streams are kept compressed in an
// unnamed temporary file, so that packing holds a few pages in memory whatever their number.
// The file has no name, so it vanishes with the packer however it ends. Worker processes forked
// after bytes were put read them back through the same descriptor.
#pragma once
#include "support/vec.h"

// Where put() placed some bytes.
struct Blob {
    long long at = 0;
    int size = 0;
};

class PageStore {
public:
    PageStore() {}
    PageStore(const PageStore&) = delete;
    PageStore& operator=(const PageStore&) = delete;
    ~PageStore();

    // Opens the file in folder; returns null or an error.
    const char* open(const char* folder);
    // Appends the bytes; returns null or an error (a full disk).
    const char* put(const vec<unsigned char>& bytes, Blob& blob);
    // Reads the bytes of blob into out; returns null or an error.
    const char* get(const Blob& blob, vec<unsigned char>& out) const;

private:
    int fd = -1;
    long long end = 0;
    const char* folder_ = nullptr;
};
