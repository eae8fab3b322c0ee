// Room for the index arrays of a show's images in one block of memory, asked to be backed by
// huge pages: the images live until the process ends, and the kernel usually provides and clears
// one large block in 2 MB pages far faster than thousands of 4 KB ones. Not always: a virtual
// machine may have handed free memory back to its host, which then provides each huge page
// slowly, and a kernel may have to compact memory first. So huge pages are kept only while they
// come cheaper than small pages would; after the first array that came slower, the rest of the
// room takes small pages. Where huge pages are off the block is made of small pages throughout.
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
    bool huge = false;  // the rest of the room may still take huge pages
};
