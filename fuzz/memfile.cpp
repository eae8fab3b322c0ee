#include "fuzz/memfile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

static int descriptor() {
    static int fd = -1;
    if (fd == -1) {
        fd = memfd_create("fuzz-input", 0);
        if (fd == -1) {
            perror("memfd_create");
            abort();
        }
    }
    return fd;
}

int memFile(const uint8_t* data, size_t size) {
    int fd = descriptor();
    if (ftruncate(fd, 0) != 0 || (size && pwrite(fd, data, size, 0) != (ssize_t)size) ||
        lseek(fd, 0, SEEK_SET) != 0) {
        perror("memory file");
        abort();
    }
    return fd;
}

const char* memFilePath() {
    static char path[64];
    snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor());
    return path;
}
