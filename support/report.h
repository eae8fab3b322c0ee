// Reporting: reportf to standard output or to registered reporters, and stacked redirection
// of the standard descriptors to files.
#pragma once
#include "support/vec.h"

class Reporter {
public:
    virtual void report(const char* text) = 0;
    virtual ~Reporter() {}
};

// An active redirection: the opened file and the saved duplicate of the standard descriptor.
struct Redirect {
    int opened;
    int saved;
};

extern vec<Redirect> telling;
extern vec<Redirect> yelling;
extern vec<Redirect> seeing;
extern vec<char> broken;

void addReporter(Reporter& r, bool lines);
void removeReporter(Reporter& r);
void reportf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

int tell(const char* path);
int yell(const char* path);
int see(const char* path);
void told();
void yelled();
void seen();

void pushf(vec<char>& out, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void pushNumber(vec<char>& out, int n);
