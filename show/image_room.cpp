#include "show/image_room.h"

#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include "support/util.h"

static const size_t kHugePage = 2u << 20;

// Processor seconds per MB that small pages take to be provided and cleared (about 0.25 ms on the
// machines measured; huge pages 0.1 ms, or 1 ms where they come slowly): above this, huge pages
// do not pay.
static const double kSmallPageSecondsPerMB = 0.3e-3;

static double threadSeconds() {
    struct timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

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
    huge = madvise(base, mapped - (start - (uintptr_t)mapping), MADV_HUGEPAGE) == 0;  // refused where they are off
#endif
    slot = pixels;
    slots = count;
    return true;
}

uint16_t* ImageRoom::take(size_t pixels) {
    if (used == slots || pixels != slot) return nullptr;
    uint16_t* array = base + (size_t)used++ * slot;
    size_t bytes = slot * sizeof(uint16_t);
    double start = huge ? threadSeconds() : 0;
    populatePages(array, bytes);
    if (huge && threadSeconds() - start > kSmallPageSecondsPerMB * bytes / (1 << 20)) {
        // Slow huge pages: the room from the next whole huge page on takes small ones.
        uintptr_t next = ((uintptr_t)(array + slot) + kHugePage - 1) & ~(uintptr_t)(kHugePage - 1);
        uintptr_t end = (uintptr_t)mapping + mapped;
        if (next < end) madvise((void*)next, end - next, MADV_NOHUGEPAGE);
        huge = false;
    }
    return array;
}

void ImageRoom::giveBack(uint16_t* array) {
    const uintptr_t page = (uintptr_t)sysconf(_SC_PAGESIZE);
    uintptr_t first = ((uintptr_t)array + page - 1) & ~(page - 1);
    uintptr_t end = ((uintptr_t)(array + slot)) & ~(page - 1);
    if (end > first) madvise((void*)first, end - first, MADV_DONTNEED);
}
