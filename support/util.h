// Small text, file and memory utilities. Returned strings are malloc'ed; the caller frees them.
#pragma once
#include <cstdarg>
#include <cstdio>

#include "support/vec.h"

char* vnsprintf(const char* fmt, va_list args);
char* nsprintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
char* strnum(int n);
void splitString(const char* text, const char* delims, vec<char*>& out);
char* setExtension(const char* name, const char* ext);
bool checkExtension(const char* name, const char* ext);
void trim(char* s);
char* strtokr(char** state, const char* delims);
char* readFile(FILE* in, unsigned* size);
char* readFile(const char* path, unsigned* size);
void writeFile(const char* path, const char* data, unsigned n);
int fileSize(const char* path);
int openFd(const char* path, const char* mode);
int memReadStat(int field);
long long memUsed();
long long memResident();
long long memPhysical();
