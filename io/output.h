// Output files written whole or not at all. Before any work an output is checked: what stands
// at its path must be a regular file or a symbolic link (which is replaced, never followed), and
// not one of the inputs; its folder must take a new file. The output is then written under a
// temporary name beside it ("NAME.tmp.XXXXXX") and renamed over it once complete. A temporary
// file that was not renamed is removed however the process ends: exit, interrupt or crash.
#pragma once
#include <limits.h>
#include <sys/types.h>

#include "support/vec.h"

// Permissions of a new output before the umask takes its share.
const mode_t OUTPUT_FILE = 0666;
const mode_t OUTPUT_PROGRAM = 0777;

struct Output {
    const char* path = nullptr;  // where the output goes
    char* temp = nullptr;        // the temporary file while it is written (malloc'ed), else null
    int fd = -1;                 // the temporary file open for writing; the writer closes it
};

// Checks path as an output beside the given inputs without creating anything. Returns null or a
// one-line error naming the path.
const char* checkOutput(const char* path, const vec<const char*>& inputs);

// Checks path and creates its temporary file with mode less the umask. Returns null or an error.
const char* beginOutput(Output& out, const char* path, const vec<const char*>& inputs, mode_t mode);

// Renames the complete temporary file over the output. Returns null, or an error after removing
// the temporary file.
const char* finishOutput(Output& out);

// Removes the temporary file, if there is one.
void dropOutput(Output& out);

// The folder part of path ("." when it has none), in room.
const char* folderOf(const char* path, char (&room)[PATH_MAX]);

// The error for a write to the output that failed, with its reason (such as strerror's text).
const char* outputError(const Output& out, const char* reason);
