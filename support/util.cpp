#include "support/util.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

static char* allocText(size_t bytes) {
    char* s = (char*)malloc(bytes);
    if (!s) throw Exception_MemOut();
    return s;
}

static char* copyText(const char* text, size_t len) {
    char* s = allocText(len + 1);
    memcpy(s, text, len);
    s[len] = 0;
    return s;
}

// Measures a formatted text by printing it into /dev/null, kept open for the process's life.
static int formattedLength(const char* fmt, va_list args) {
    static FILE* null_out = fopen("/dev/null", "wb");
    if (null_out) return vfprintf(null_out, fmt, args);
    return vsnprintf(nullptr, 0, fmt, args);
}

const char* errorf(const char* fmt, ...) {
    static char message[1024];
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof message, fmt, args);
    va_end(args);
    return message;
}

char* vnsprintf(const char* fmt, va_list args) {
    va_list again;
    va_copy(again, args);
    int len = formattedLength(fmt, args);
    if (len < 0) len = 0;
    char* s = allocText((size_t)len + 1);
    s[0] = 0;
    vsnprintf(s, (size_t)len + 1, fmt, again);
    va_end(again);
    return s;
}

char* nsprintf(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    char* s = vnsprintf(fmt, args);
    va_end(args);
    return s;
}

const char* decimalText(int n, char (&room)[12]) {
    int at = sizeof(room);
    room[--at] = 0;
    unsigned mag = n < 0 ? 0u - (unsigned)n : (unsigned)n;
    do {
        room[--at] = (char)('0' + mag % 10);
        mag /= 10;
    } while (mag);
    if (n < 0) room[--at] = '-';
    return room + at;
}

char* strnum(int n) {
    char room[12];
    const char* text = decimalText(n, room);
    return copyText(text, strlen(text));
}

void splitString(const char* text, const char* delims, vec<char*>& out) {
    for (;;) {
        text += strspn(text, delims);
        if (!*text) return;
        size_t len = strcspn(text, delims);
        out.push(copyText(text, len));
        text += len;
    }
}

char* setExtension(const char* name, const char* ext) {
    const char* dot = strrchr(name, '.');
    size_t base = dot ? (size_t)(dot - name) : strlen(name);
    size_t ext_len = strlen(ext);
    char* s = allocText(base + 1 + ext_len + 1);
    memcpy(s, name, base);
    s[base] = '.';
    memcpy(s + base + 1, ext, ext_len + 1);
    return s;
}

bool checkExtension(const char* name, const char* ext) {
    const char* dot = strrchr(name, '.');
    if (!dot) return ext[0] == 0;
    return strcmp(dot + 1, ext) == 0;
}

static bool isBlank(char c) { return c == ' ' || c == '\t'; }

void trim(char* s) {
    if (!s) return;
    char* start = s;
    while (isBlank(*start)) start++;
    size_t len = strlen(start);
    while (len > 0 && isBlank(start[len - 1])) len--;
    memmove(s, start, len);
    s[len] = 0;
}

char* strtokr(char** state, const char* delims) {
    if (!state || !*state) return nullptr;
    char* s = *state + strspn(*state, delims);
    if (!*s) {
        *state = nullptr;
        return nullptr;
    }
    char* end = s + strcspn(s, delims);
    if (*end) {
        *end = 0;
        *state = end + 1;
    } else {
        *state = nullptr;
    }
    return s;
}

static char* resize(char* buf, size_t bytes) {
    char* grown = (char*)realloc(buf, bytes);
    if (!grown) {
        free(buf);
        throw Exception_MemOut();
    }
    return grown;
}

char* readFile(FILE* in, unsigned* size) {
    const size_t piece = 65536;
    size_t cap = piece;
    size_t count = 0;
    char* buf = allocText(cap);
    for (;;) {
        // Room for a whole piece before every read, even after a short one.
        while (cap - count < piece) {
            if (cap >= 0x80000000u) {
                free(buf);
                throw Exception_MemOut();
            }
            cap *= 2;
            buf = resize(buf, cap);
        }
        size_t got = fread(buf + count, 1, piece, in);
        if (got == 0) break;
        count += got;
    }
    buf = resize(buf, count + 1);
    buf[count] = 0;
    if (size) *size = (unsigned)count;
    return buf;
}

char* readFile(const char* path, unsigned* size) {
    int bytes = fileSize(path);
    if (size) *size = (unsigned)bytes;
    if (bytes < 0) return nullptr;
    FILE* in = fopen(path, "rb");
    if (!in) return nullptr;
    char* buf = (char*)calloc((size_t)bytes + 1, 1);
    if (!buf) {
        fclose(in);
        throw Exception_MemOut();
    }
    size_t got = fread(buf, 1, (size_t)bytes, in);
    buf[got] = 0;
    fclose(in);
    return buf;
}

void writeFile(const char* path, const char* data, unsigned n) {
    if (n == 0xFFFFFFFFu) n = (unsigned)strlen(data);
    FILE* out = fopen(path, "wb");
    if (!out) return;
    fwrite(data, 1, n, out);
    fclose(out);
}

int fileSize(const char* path) {
    FILE* in = fopen(path, "rb");
    if (!in) return -1;
    fseeko(in, 0, SEEK_END);
    long long bytes = ftello(in);
    fclose(in);
    return (int)bytes;
}

int openFlags(const char* mode) {
    bool read = strchr(mode, 'r'), write = strchr(mode, 'w');
    bool plus = strchr(mode, '+'), excl = strchr(mode, 'x');
    int flags = plus ? O_RDWR : read ? O_RDONLY : O_WRONLY;
    if (!read) flags |= O_CREAT;
    if (write) flags |= O_TRUNC;
    if (excl) flags |= O_EXCL;
    return flags;
}

int openFd(const char* path, const char* mode) { return open64(path, openFlags(mode), 0666); }

static const char* const NO_PROC = "Linux like '/proc' file system not supported.";

int memReadStat(int field) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/statm", (int)getpid());
    FILE* in = fopen(path, "r");
    if (!in) throw NO_PROC;
    int value = -1;
    for (int i = 0; i <= field; i++) {
        if (fscanf(in, "%d", &value) != 1) {
            value = -1;
            break;
        }
    }
    fclose(in);
    return value;
}

long long memUsed() { return (long long)memReadStat(0) * getpagesize(); }

long long memResident() { return (long long)memReadStat(1) * getpagesize(); }

long long memPhysical() {
    FILE* in = fopen("/proc/meminfo", "r");
    if (!in) throw NO_PROC;
    char line[1024];
    while (fgets(line, sizeof(line), in)) {
        if (strncmp(line, "MemTotal:", 9) == 0) {
            fclose(in);
            return strtol(line + 9, nullptr, 10) * 1024LL;
        }
    }
    fclose(in);
    throw "Unexpected format of '/proc/meminfo'.";
}

bool populatePages(void* p, size_t bytes) {
#ifdef MADV_POPULATE_WRITE
    const uintptr_t page = (uintptr_t)sysconf(_SC_PAGESIZE);
    uintptr_t first = ((uintptr_t)p + page - 1) & ~(page - 1);
    uintptr_t end = ((uintptr_t)p + bytes) & ~(page - 1);
    return end > first && madvise((void*)first, end - first, MADV_POPULATE_WRITE) == 0;
#else
    (void)p, (void)bytes;
    return false;
#endif
}
