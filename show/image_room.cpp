#include "show/image_room.h"

#include <sys/mman.h>
#include <unistd.h>

#include "support/util.h"

static const size_t kHugePage = 2u << 20;

ImageRoom::~ImageRoom() {
    if (mapping) munmap(mapping, mapped);
}

bool ImageRoom::reserve(int count, size_t pixels) {
    if (mapping || count <= 0 || pixels == 0) return false;
    size_t bytes = (size_t)count * pixels * sizeof(uint16_t);
    mapped = (bytes + 2 * kHugePage - 1) / kHugePage * kHugePage;  // room to start on a huge page
    mapping = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapping == MAP_FAILED) {
        mapping = nullptr;
        return false;
    }
    uintptr_t start = ((uintptr_t)mapping + kHugePage - 1) & ~(uintptr_t)(kHugePage - 1);
    base = (uint16_t*)start;
#ifdef MADV_HUGEPAGE
    madvise(base, mapped - (start - (uintptr_t)mapping), MADV_HUGEPAGE);  // a hint; refused where they are off
#endif
    slot = pixels;
    slots = count;
    return true;
}

uint16_t* ImageRoom::take(size_t pixels) {
    if (used == slots || pixels != slot) return nullptr;
    uint16_t* array = base + (size_t)used++ * slot;
    populatePages(array, slot * sizeof(uint16_t));
    return array;
}

void ImageRoom::giveBack(uint16_t* array) {
    const uintptr_t page = (uintptr_t)sysconf(_SC_PAGESIZE);
    uintptr_t first = ((uintptr_t)array + page - 1) & ~(page - 1);
    uintptr_t end = ((uintptr_t)(array + slot)) & ~(page - 1);
    if (end > first) madvise((void*)first, end - first, MADV_DONTNEED);
}
