// File: a buffered stream over a POSIX descriptor with one 1024-byte buffer that serves reading
// or writing, switched on demand; plus whole-file and line readers, formatted output and the
// packed integer encoding.
#pragma once
#include <cstddef>

#include "support/vec.h"

enum FileMode { READ = 0, WRITE = 1 };

static const int FILE_BUF_SIZE = 1024;

// The stream's state, for tests and diagnostics.
struct FileState {
    int fd;
    FileMode mode;
    const unsigned char* buf;
    int size;
    int pos;
    bool own_fd;
};

// In READ mode the descriptor's position is size - pos bytes ahead of the logical one; in WRITE
// mode it is pos bytes behind it.
class File {
public:
    int fd = -1;  // -1: not open

    File() {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { close(); }

    // Adopts a descriptor. A previously open descriptor is closed (its buffer is not freed).
    void open(int fd, FileMode mode, bool own_fd);
    // Opens by name with a stdio-like mode ("rb", "w", "a", "r+", ...). On failure fd is -1
    // and nothing else changes.
    void open(const char* path, const char* mode);
    // whence is SEEK_SET, SEEK_CUR or SEEK_END; in READ mode the buffer is refilled at once.
    void seek(long long offset, int whence);
    long long tell();
    // Flushes pending output, frees the buffer and, if owned, closes the descriptor. Returns
    // false when a write since the stream was opened failed (writeError tells why).
    bool close();
    // The errno of the first write that failed since the stream was opened; 0 when none did.
    int writeError() const { return write_error; }
    FileState state() const { return FileState{fd, mode, buf, size, pos, own_fd}; }

    // The next byte (0..255), or -1 at end of file. A refill is tried only after a full read.
    int getChar() {
        if (mode == WRITE) toRead();
        if (pos < size) return buf[pos++];
        if (size < FILE_BUF_SIZE) return -1;
        return refill();
    }

    // Appends one byte; it reaches the descriptor when the buffer is full, on seek, on a switch
    // to reading, or on close. The stream must be open.
    void putChar(unsigned char c) {
        if (mode == READ)
            toWrite();
        else if (pos == FILE_BUF_SIZE)
            flush();
        buf[pos++] = c;
    }

    // Takes up to n bytes exactly as n getChar calls would, but a buffer's worth at a time
    // (refilling with one read() of 1024 bytes only after a full read). Returns the count, fewer
    // than n only at end of file.
    size_t readBytes(unsigned char* out, size_t n);

    // Mode switches: toRead flushes and reads at the descriptor's position; toWrite moves the
    // descriptor back over the unread read-ahead.
    void toRead();
    void toWrite();

private:
    FileMode mode = READ;
    unsigned char* buf = nullptr;  // FILE_BUF_SIZE bytes while open
    int size = -1;                 // READ: result of the last read() into buf; WRITE: -1
    int pos = 0;                   // READ: next byte to hand out; WRITE: bytes waiting in buf
    bool own_fd = true;            // close() closes the descriptor
    int write_error = 0;           // errno of the first failed write since open

    void startBuffer();
    void flush();
    void fillBuffer();
    int refill();
};

// Reads everything from the current position into out (emptied first) and appends a NUL that is
// counted in out.size.
void getFile(File& f, vec<char>& out);
// As getFile, but stops after a line feed, which is consumed and not stored.
void getLine(File& f, vec<char>& out);
void putf(File& f, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Packed integer: big-endian, length class in the first byte's top bits:
// 0xxxxxxx (7 bits), 100xxxxx +1 byte, 101xxxxx +2, 110xxxxx +3, 0xE0 + 8 bytes (2^29 and up).
// getUInt throws Exception_EOF when the first byte lies past the end; a value cut short later
// reads its missing bytes as all ones.
unsigned long long getUInt(File& f);
void putUInt(File& f, unsigned long long value);
