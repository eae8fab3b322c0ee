#include "packer/progress.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

static const char* last_stage = nullptr;
static bool line_open = false;

static bool onTerminal() {
    static const bool terminal = isatty(STDOUT_FILENO);
    return terminal;
}

void showProgress(const char* stage, int i, int n) {
    if (onTerminal()) {
        printf("\r%s page %d/%d ", stage, i + 1, n);
        line_open = true;
    } else if (!last_stage || strcmp(stage, last_stage) != 0) {
        printf("%s %d pages\n", stage, n);
    }
    last_stage = stage;
    fflush(stdout);
}

bool progressLineOpen() { return line_open; }

void overProgress() {
    if (line_open) putchar('\r');
    line_open = false;
}
