// Room for the index arrays of a show's images in one block of memory, asked to be backed by
// huge pages: the images live until the process ends, and the kernel provides and clears one
// large block in 2 MB pages far faster than thousands of 4 KB ones. Where huge pages are off the
// block is made of ordinary pages, as separate arrays would be.
#pragma once
#include <cstddef>
#include <cstdint>

class ImageRoom {
public:
    ImageRoom() {}
    ImageRoom(const ImageRoom&) = delete;
    ImageRoom& operator=(const ImageRoom&) = delete;
    ~ImageRoom();

    // Reserves room for `count` arrays of `pixels` indices each; false when the memory cannot be
    // reserved (the images then get arrays of their own).
    bool reserve(int count, size_t pixels);
    // The next array, resident and ready to be written: null when the room has no array of that
    // many indices left.
    uint16_t* take(size_t pixels);
    // Gives the memory of the array last taken back to the system, unused.
    void giveBack(uint16_t* array);

private:
    void* mapping = nullptr;
    size_t mapped = 0;
    uint16_t* base = nullptr;
    size_t slot = 0;  // indices per array
    int slots = 0;
    int used = 0;
};
