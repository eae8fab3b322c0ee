#include "io/input.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

static const int kPiece = 65536;

// Its own buffer: callers put the reason into an errorf message.
static const char* tooLarge(long long max_bytes) {
    static char message[48];
    snprintf(message, sizeof message, "larger than %lld bytes", max_bytes);
    return message;
}

const char* readWholeFile(const char* path, long long max_bytes, bool regular_only, vec<unsigned char>& bytes) {
    bytes.clear();
    struct stat st;
    if (regular_only && stat(path, &st) == 0 && !S_ISREG(st.st_mode)) return "not a regular file";
    int fd = open(path, O_RDONLY);
    if (fd < 0) return strerror(errno);
    const char* error = nullptr;
    if (fstat(fd, &st) != 0)
        error = strerror(errno);
    else if (regular_only && !S_ISREG(st.st_mode))
        error = "not a regular file";  // it changed since the check above
    else if (S_ISREG(st.st_mode) && st.st_size > max_bytes)
        error = tooLarge(max_bytes);
    while (!error) {
        if (bytes.size > max_bytes) {
            error = tooLarge(max_bytes);
            break;
        }
        bytes.reserve(bytes.size + (long long)kPiece);
        ssize_t n = read(fd, bytes.data + bytes.size, kPiece);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) error = strerror(errno);
        if (n <= 0) break;
        bytes.size += (int)n;
    }
    close(fd);
    return error;
}
