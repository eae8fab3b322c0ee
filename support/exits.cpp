#include "support/exits.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

typedef void (*Fn0)();
typedef void (*Fn1)(void*);
typedef void (*Fn2)(void*, int);

// normalExit reads its list after the memory pool's chunks are freed, so the lists keep their
// entries in blocks above the pooled sizes: those come from malloc and stay valid to the end.
static const int MIN_ENTRIES = 128 / sizeof(ExitEntry) + 1;

static void append(vec<ExitEntry>& list, const ExitEntry& entry) {
    list.reserve(MIN_ENTRIES);
    list.push(entry);
}

void atExit(unsigned when, ExitFunction fn, void* data) {
    ExitEntry entry{fn.kind, fn.fn, data};
    if (when & EXIT_NORMAL) append(exitfuns_normal, entry);
    if (when & EXIT_INTERRUPT) append(exitfuns_interrupt, entry);
    if (when & EXIT_CRASH) append(exitfuns_crash, entry);
}

// Calls every entry in order; the size is re-read so that entries added meanwhile run too.
static void runList(vec<ExitEntry>& list, int n) {
    for (int i = 0; i < list.size; i++) {
        ExitEntry e = list[i];
        if (e.kind == 0)
            ((Fn0)e.fn)();
        else if (e.kind == 1)
            ((Fn1)e.fn)(e.data);
        else
            ((Fn2)e.fn)(e.data, n);
    }
}

static void emptyList(vec<ExitEntry>& list) {
    if (list.cap > 0) list.size = 0;
}

void ignoreWriteSignals() {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
}

static void setHandler(const int (&sigs)[3], void (*handler)(int)) {
    for (int sig : sigs) signal(sig, handler);
}

static const int interrupt_signals[3] = {SIGINT, SIGHUP, SIGTERM};
static const int crash_signals[3] = {SIGABRT, SIGSEGV, SIGBUS};

void normalExit(int status, void*) {
    emptyList(exitfuns_interrupt);
    emptyList(exitfuns_crash);
    runList(exitfuns_normal, status);
}

// Standard output is deliberately not flushed before _exit on this path.
void interruptHandler(int sig) {
    setHandler(interrupt_signals, SIG_DFL);
    printf("\n*** INTERRUPTED *** [signal %d]\n", sig);
    emptyList(exitfuns_normal);
    emptyList(exitfuns_crash);
    runList(exitfuns_interrupt, -sig);
    _exit(-1);
}

// With the default action back in place, re-raising ends the process by the signal itself.
void crashHandler(int sig) {
    setHandler(crash_signals, SIG_DFL);
    printf("\n*** CRASHED *** [signal %d]\n", sig);
    fflush(stderr);
    fflush(stdout);
    emptyList(exitfuns_normal);
    emptyList(exitfuns_interrupt);
    runList(exitfuns_crash, -sig);
    raise(sig);
}

Initializer_exiting::Initializer_exiting() {
    setHandler(interrupt_signals, interruptHandler);
    setHandler(crash_signals, crashHandler);
    on_exit(normalExit, nullptr);
}
