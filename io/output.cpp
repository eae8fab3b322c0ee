#include "io/output.h"

#include <errno.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "support/exits.h"
#include "support/util.h"

namespace {

const char TEMP_SUFFIX[] = ".tmp.XXXXXX";

// Temporary files not renamed yet, with the process that made each: a forked child that ends (a
// worker process) must not remove its parent's files. The table is plain static data, so the
// exit, interrupt and crash paths can read it whatever else has been torn down.
const int MAX_PENDING = 4;
char* pending[MAX_PENDING];
pid_t pending_owner[MAX_PENDING];

void removePending() {
    pid_t self = getpid();
    for (int i = 0; i < MAX_PENDING; i++)
        if (pending[i] && pending_owner[i] == self) unlink(pending[i]);
}

bool addPending(char* temp) {
    static bool registered = false;
    if (!registered) {
        atExit(EXIT_NORMAL | EXIT_INTERRUPT | EXIT_CRASH, ExitFunction{0, (void*)removePending}, nullptr);
        registered = true;
    }
    for (int i = 0; i < MAX_PENDING; i++)
        if (!pending[i]) {
            pending_owner[i] = getpid();
            pending[i] = temp;
            return true;
        }
    return false;
}

void forgetPending(const char* temp) {
    for (int i = 0; i < MAX_PENDING; i++)
        if (pending[i] == temp) pending[i] = nullptr;
}

const char* baseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}


// A name the system takes whose temporary name it would not: say so rather than "File name too long".
const char* nameProblem(const char* path) {
    char room[PATH_MAX];
    long name_max = pathconf(folderOf(path, room), _PC_NAME_MAX);
    if (name_max <= 0) name_max = NAME_MAX;
    size_t suffix = sizeof TEMP_SUFFIX - 1, base = strlen(baseName(path)), whole = strlen(path);
    bool fits = base <= (size_t)name_max && whole < PATH_MAX;
    if (fits && (base + suffix > (size_t)name_max || whole + suffix >= PATH_MAX))
        return errorf("Could not write: %s: the name is too long to add the temporary suffix %s beside it", path,
                      TEMP_SUFFIX);
    return nullptr;
}

// What stands at path, when it is something an output must not replace.
const char* standingProblem(const char* path, struct stat& at) {
    if (S_ISREG(at.st_mode) || S_ISLNK(at.st_mode)) return nullptr;
    return errorf("Could not write: %s: it exists and is not a regular file", path);
}

// The input named by its path, or by a link there to the file itself.
bool sameFile(const struct stat& at, const char* input) {
    struct stat in;
    auto same = [&] { return in.st_dev == at.st_dev && in.st_ino == at.st_ino; };
    return (lstat(input, &in) == 0 && same()) || (stat(input, &in) == 0 && same());
}

mode_t currentUmask() {
    mode_t mask = umask(0);
    umask(mask);
    return mask;
}

}  // namespace

// The folder part of path ("." when it has none), in room.
const char* folderOf(const char* path, char (&room)[PATH_MAX]) {
    const char* slash = strrchr(path, '/');
    if (!slash) return ".";
    if (slash == path) return "/";
    snprintf(room, sizeof room, "%.*s", (int)(slash - path), path);
    return room;
}

const char* checkOutput(const char* path, const vec<const char*>& inputs) {
    if (const char* error = nameProblem(path)) return error;
    struct stat at;
    if (lstat(path, &at) != 0) return nullptr;  // nothing there yet; creating the file tells the rest
    if (const char* error = standingProblem(path, at)) return error;
    for (const char* input : inputs)
        if (sameFile(at, input)) return errorf("Could not write: %s: it would replace the input %s", path, input);
    return nullptr;
}

const char* beginOutput(Output& out, const char* path, const vec<const char*>& inputs, mode_t mode) {
    out.path = path;
    if (const char* error = checkOutput(path, inputs)) return error;
    size_t n = strlen(path) + sizeof TEMP_SUFFIX;
    char* temp = (char*)malloc(n);
    if (!temp) throw Exception_MemOut();
    snprintf(temp, n, "%s%s", path, TEMP_SUFFIX);
    int fd = mkstemp(temp);
    if (fd < 0) {
        int error = errno;
        free(temp);
        char room[PATH_MAX];
        return errorf("Could not write: %s: cannot create a file in %s: %s", path, folderOf(path, room),
                      strerror(error));
    }
    if (!addPending(temp)) {
        close(fd);
        unlink(temp);
        free(temp);
        return errorf("Could not write: %s: more than %d outputs at once", path, MAX_PENDING);
    }
    fchmod(fd, mode & ~currentUmask());  // mkstemp makes 0600
    out.temp = temp;
    out.fd = fd;
    return nullptr;
}

const char* finishOutput(Output& out) {
    struct stat at;
    const char* error = nullptr;
    if (lstat(out.path, &at) == 0) error = standingProblem(out.path, at);  // it may have appeared meanwhile
    if (!error && rename(out.temp, out.path) != 0) error = outputError(out, strerror(errno));
    if (error) {
        dropOutput(out);
        return error;
    }
    forgetPending(out.temp);
    free(out.temp);
    out.temp = nullptr;
    return nullptr;
}

void dropOutput(Output& out) {
    if (!out.temp) return;
    unlink(out.temp);
    forgetPending(out.temp);
    free(out.temp);
    out.temp = nullptr;
}

const char* outputError(const Output& out, const char* reason) {
    return errorf("Could not write: %s: %s", out.path, reason);
}
