#include "packer/viewer.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "io/input.h"
#include "show/program.h"
#include "support/util.h"

// The first line of the viewer's banner, which every viewer program carries.
static const char kViewerBanner[] = "Now unpacking the slide show to memory.";
// A viewer whose help carries this line has the switch -help.
static const char kViewerUsage[] = "Usage: view_slides";
// How long the viewer may take to answer -help, and how much it may say.
static const int kHelpMilliseconds = 10000;
static const int kMaxHelpBytes = 1 << 20;

char* viewerPath(const char* named, const char** error) {
    if (named) return strdup(named);
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) {
        *error = "Could not find this program's own path; name the viewer with --viewer";
        return nullptr;
    }
    self[n] = 0;
    *strrchr(self, '/') = 0;
    return strdup(errorf("%s/view_slides", self));
}

static bool contains(const vec<unsigned char>& bytes, const char* text) {
    return memmem(bytes.data, (size_t)bytes.size, text, strlen(text)) != nullptr;
}

// Runs `path -help` with no input and collects what it prints. True when it ended in time with
// status 0 and printed the viewer's usage line.
static bool answersHelp(const char* path) {
    int out[2];
    if (pipe(out) != 0) return false;
    pid_t pid = fork();
    if (pid == 0) {
        int null_fd = open("/dev/null", O_RDWR);
        dup2(null_fd, 0);
        dup2(out[1], 1);
        dup2(null_fd, 2);
        close(out[0]);
        execl(path, path, "-help", (char*)nullptr);
        _exit(127);  // no exit functions in the child
    }
    close(out[1]);
    vec<unsigned char> said;
    unsigned char block[4096];
    bool ended = false;  // the viewer closed its output
    while (!ended && said.size <= kMaxHelpBytes) {
        pollfd p{out[0], POLLIN, 0};
        if (poll(&p, 1, kHelpMilliseconds) <= 0) break;
        ssize_t n = read(out[0], block, sizeof block);
        ended = n <= 0;
        for (ssize_t i = 0; i < n; i++) said.push(block[i]);
    }
    close(out[0]);
    if (pid < 0) return false;
    if (!ended) kill(pid, SIGKILL);  // too slow, or too talkative
    int status = 0;
    waitpid(pid, &status, 0);
    return ended && WIFEXITED(status) && WEXITSTATUS(status) == 0 && contains(said, kViewerUsage);
}

const char* loadViewer(const char* path, vec<unsigned char>& bytes) {
    struct stat st;
    if (stat(path, &st) != 0)
        return errorf("No viewer at %s (%s); name one with --viewer PATH", path, strerror(errno));
    if (S_ISREG(st.st_mode) && access(path, X_OK) != 0)
        return errorf("The viewer %s is not executable: %s", path, strerror(errno));
    if (const char* reason = readWholeFile(path, kMaxViewerBytes, true, bytes))
        return errorf("Could not read the viewer: %s: %s", path, reason);
    if (const char* problem = programProblem(bytes.data, (size_t)bytes.size))
        return errorf("The viewer %s is %s; name one with --viewer PATH", path, problem);
    if (!contains(bytes, kViewerBanner)) return errorf("The viewer %s is a program but not view_slides", path);
    if (contains(bytes, kViewerUsage) && !answersHelp(path))
        return errorf("The viewer %s does not answer -help as view_slides does", path);
    return nullptr;
}
