#include "io/file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "support/util.h"

// Writes the pending bytes; the first failure is kept for close to report.
void File::flush() {
    for (int done = 0; done < pos;) {
        ssize_t n = write(fd, buf + done, pos - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (!write_error) write_error = n < 0 ? errno : ENOSPC;
            break;
        }
        done += (int)n;
    }
    pos = 0;
}

void File::fillBuffer() {
    size = (int)read(fd, buf, FILE_BUF_SIZE);
    pos = 0;
}

// A failed read (-1) is not told apart here: the stale first byte is handed out and the next
// call reports end of file, since size is then below a full buffer.
int File::refill() {
    fillBuffer();
    if (size == 0) return -1;
    pos = 1;
    return buf[0];
}

void File::toRead() {
    flush();
    fillBuffer();
    mode = READ;
}

void File::toWrite() {
    lseek64(fd, (long long)(pos - size), SEEK_CUR);
    size = -1;
    mode = WRITE;
    pos = 0;
}

// Allocates the buffer and, in READ mode, reads the first block.
void File::startBuffer() {
    write_error = 0;
    buf = (unsigned char*)malloc(FILE_BUF_SIZE);
    if (!buf) throw Exception_MemOut();
    if (mode == READ)
        size = (int)read(fd, buf, FILE_BUF_SIZE);
    else
        size = -1;
}

void File::open(int new_fd, FileMode new_mode, bool new_own_fd) {
    if (fd != -1) ::close(fd);
    pos = 0;
    fd = new_fd;
    mode = new_mode;
    own_fd = new_own_fd;
    startBuffer();
}

void File::open(const char* path, const char* mode_text) {
    if (fd != -1) ::close(fd);
    fd = open64(path, openFlags(mode_text), 0666);
    if (fd == -1) return;
    own_fd = true;
    pos = 0;
    mode = strchr(mode_text, 'r') ? READ : WRITE;
    if (strchr(mode_text, 'a')) lseek64(fd, 0, SEEK_END);
    startBuffer();
}

void File::seek(long long offset, int whence) {
    if (mode == WRITE) {
        flush();
        lseek64(fd, offset, whence);
        return;
    }
    if (whence == SEEK_CUR) offset -= (long long)(size - pos);
    lseek64(fd, offset, whence);
    fillBuffer();
}

long long File::tell() {
    long long at = lseek64(fd, 0, SEEK_CUR);
    return mode == WRITE ? at + pos : at - (size - pos);
}

bool File::close() {
    if (fd == -1) return write_error == 0;
    if (mode == WRITE) flush();
    free(buf);
    buf = nullptr;
    if (own_fd && ::close(fd) != 0 && mode == WRITE && !write_error) write_error = errno;
    fd = -1;
    return write_error == 0;
}

static void readInto(File& f, vec<char>& out, bool stop_at_line_feed) {
    out.clear();
    for (int c; (c = f.getChar()) >= 0;) {
        if (stop_at_line_feed && c == '\n') break;
        out.push((char)c);
    }
    out.push(0);
}

void getFile(File& f, vec<char>& out) { readInto(f, out, false); }

void getLine(File& f, vec<char>& out) { readInto(f, out, true); }

void putf(File& f, const char* format, ...) {
    if (f.state().mode == READ) f.toWrite();
    va_list args;
    va_start(args, format);
    char* text = vnsprintf(format, args);
    va_end(args);
    for (const char* c = text; *c; c++) f.putChar((unsigned char)*c);
    free(text);
}

// Shifts n more bytes into value; a byte past the end (-1) ORs in all ones.
static unsigned shiftIn(File& f, unsigned value, int n) {
    for (int i = 0; i < n; i++) value = value << 8 | (unsigned)f.getChar();
    return value;
}

unsigned long long getUInt(File& f) {
    int first = f.getChar();
    if (first < 0) throw Exception_EOF();
    if (first < 0x80) return (unsigned)first;
    int length_class = (first & 0x60) >> 5;
    if (length_class < 3) return shiftIn(f, first & 0x1F, length_class + 1);
    unsigned long long high = shiftIn(f, 0, 4);
    return high << 32 | shiftIn(f, 0, 4);
}

// Writes the low n bytes of value, most significant first.
static void putBytes(File& f, unsigned long long value, int n) {
    for (int i = n - 1; i >= 0; i--) f.putChar((unsigned char)(value >> (8 * i)));
}

void putUInt(File& f, unsigned long long value) {
    static const unsigned char lead[4] = {0x00, 0x80, 0xA0, 0xC0};
    static const unsigned long long limit[4] = {0x80, 0x2000, 0x200000, 0x20000000};
    for (int n = 0; n < 4; n++) {
        if (value < limit[n]) {
            f.putChar((unsigned char)(lead[n] | (value >> (8 * n))));
            putBytes(f, value, n);
            return;
        }
    }
    f.putChar(0xE0);
    putBytes(f, value, 8);
}

size_t File::readBytes(unsigned char* out, size_t n) {
    size_t got = 0;
    while (got < n) {
        if (pos < size) {
            size_t take = (size_t)(size - pos);
            if (take > n - got) take = n - got;
            memcpy(out + got, buf + pos, take);
            pos += (int)take;
            got += take;
            continue;
        }
        int c = getChar();  // switches mode, refills after a full read, or reports the end
        if (c < 0) break;
        out[got++] = (unsigned char)c;
    }
    return got;
}
