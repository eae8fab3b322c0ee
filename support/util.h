// Small text, file and memory utilities. Returned strings are malloc'ed; the caller frees them.
#pragma once
#include <cstdarg>
#include <cstdio>

#include "support/vec.h"

// Formats a one-line message into a buffer that lives until the next call (no allocation, so it
// serves out-of-memory paths too). Arguments must not point into that buffer.
const char* errorf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
char* vnsprintf(const char* fmt, va_list args);
char* nsprintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
char* strnum(int n);
// Writes n in decimal (with '-' when negative, the most negative int included) into the end of
// room and returns where the text starts.
const char* decimalText(int n, char (&room)[12]);
void splitString(const char* text, const char* delims, vec<char*>& out);
char* setExtension(const char* name, const char* ext);
bool checkExtension(const char* name, const char* ext);
void trim(char* s);
char* strtokr(char** state, const char* delims);
char* readFile(FILE* in, unsigned* size);
char* readFile(const char* path, unsigned* size);
void writeFile(const char* path, const char* data, unsigned n);
int fileSize(const char* path);
// open64 flags for a stdio-like mode: '+' read-write, else 'r' read-only, else write-only;
// O_CREAT without 'r', O_TRUNC with 'w', O_EXCL with 'x'. The letters combine independently.
int openFlags(const char* mode);
int openFd(const char* path, const char* mode);
int memReadStat(int field);
long long memUsed();
long long memResident();
long long memPhysical();
// Makes the whole pages within [p, p + bytes) resident and writable in one system call, which
// costs less than faulting them in page by page on first write. Contents are kept. A hint:
// false when the kernel could not do it, which changes nothing for the caller.
bool populatePages(void* p, size_t bytes);
