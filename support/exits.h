// Clean-up functions for the three ways a process ends, and the signal handlers.
#pragma once
#include "support/vec.h"

// kind 0: fn(); kind 1: fn(data); other: fn(data, n) with n the exit status or minus the signal.
struct ExitFunction {
    int kind;
    void* fn;
};

struct ExitEntry {
    int kind;
    void* fn;
    void* data;
};

enum { EXIT_NORMAL = 1, EXIT_INTERRUPT = 2, EXIT_CRASH = 4 };

extern vec<ExitEntry> exitfuns_normal;
extern vec<ExitEntry> exitfuns_interrupt;
extern vec<ExitEntry> exitfuns_crash;

void atExit(unsigned when, ExitFunction fn, void* data);
// Ignores SIGPIPE and SIGXFSZ: a write into a closed pipe or past the file size limit then fails
// with an error that the program reports, instead of ending it with nothing cleaned up.
void ignoreWriteSignals();
void normalExit(int status, void* arg);
void interruptHandler(int sig);
void crashHandler(int sig);

class Initializer_exiting {
public:
    Initializer_exiting();
};
