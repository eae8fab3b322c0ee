#include "support/report.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "support/util.h"

// Reporter addresses with the line-mode flag in bit 0. Callers register at most 16.
static uintptr_t reporters[16];
static int reporters_sz = 0;

static Reporter* reporterAt(int i) { return (Reporter*)(reporters[i] & ~(uintptr_t)1); }
static bool wantsLines(int i) { return reporters[i] & 1; }

void addReporter(Reporter& r, bool lines) { reporters[reporters_sz++] = (uintptr_t)&r | (lines ? 1 : 0); }

void removeReporter(Reporter& r) {
    for (int i = reporters_sz - 1; i >= 0; i--) {
        if (reporterAt(i) != &r) continue;
        for (int j = i + 1; j < reporters_sz; j++) reporters[j - 1] = reporters[j];
        reporters_sz--;
        return;
    }
}

static void reportTo(bool lines, const char* text) {
    for (int i = 0; i < reporters_sz; i++)
        if (wantsLines(i) == lines) reporterAt(i)->report(text);
}

// Feeds the text to the line being assembled; a carriage return drops the partial line.
static void breakLines(const char* text) {
    for (const char* c = text; *c; c++) {
        if (*c == '\n') {
            broken.push(0);
            reportTo(true, broken.data);
            broken.clear();
        } else if (*c == '\r') {
            broken.clear();
        } else {
            broken.push(*c);
        }
    }
}

void reportf(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    char* text = vnsprintf(fmt, args);
    va_end(args);
    if (reporters_sz == 0) {
        printf("%s", text);
        fflush(stdout);
    } else {
        breakLines(text);
        reportTo(false, text);
    }
    free(text);
}

static int redirect(vec<Redirect>& stack, int std_fd, FILE* stream, const char* path, const char* mode) {
    int opened = openFd(path, mode);
    if (opened < 0) return 0;
    if (stream) fflush(stream);
    stack.push(Redirect{opened, dup(std_fd)});
    dup2(opened, std_fd);
    return 1;
}

static void restore(vec<Redirect>& stack, int std_fd, FILE* stream) {
    if (stream) fflush(stream);
    Redirect top = stack.last();
    stack.size--;
    dup2(top.saved, std_fd);
    close(top.saved);
    close(top.opened);
}

int tell(const char* path) { return redirect(telling, STDOUT_FILENO, stdout, path, "w"); }
int yell(const char* path) { return redirect(yelling, STDERR_FILENO, stderr, path, "w"); }
int see(const char* path) { return redirect(seeing, STDIN_FILENO, nullptr, path, "r"); }
void told() { restore(telling, STDOUT_FILENO, stdout); }
void yelled() { restore(yelling, STDERR_FILENO, stderr); }
void seen() { restore(seeing, STDIN_FILENO, nullptr); }

static void pushText(vec<char>& out, const char* text) {
    for (const char* c = text; *c; c++) out.push(*c);
}

void pushf(vec<char>& out, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    char* text = vnsprintf(fmt, args);
    va_end(args);
    pushText(out, text);
    free(text);
}

void pushNumber(vec<char>& out, int n) {
    char room[12];
    pushText(out, decimalText(n, room));
}
