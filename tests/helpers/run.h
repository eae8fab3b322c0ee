// Running the project's programs from tests.
#pragma once
#include <functional>
#include <string>
#include <vector>

struct RunResult {
    int status = -1;   // exit status, or -1 when the program died of a signal
    int signal = 0;    // the signal that ended it, or 0
    std::string out;   // standard output
    std::string err;   // standard error
};

// Runs argv[0] with the arguments in the folder cwd (empty: the current one), with the extra
// environment entries "NAME=value" added, and collects its output and exit status. in_child, when
// given, runs in the child just before the program starts (limits, umask, ...).
RunResult runProgram(const std::vector<std::string>& argv, const std::string& cwd = "",
                     const std::vector<std::string>& env = {}, const std::function<void()>& in_child = {});

// Starts the program with its output discarded, sends it sig after delay_ms and returns its wait
// status. in_child as for runProgram.
int signalAfter(const std::vector<std::string>& argv, const std::string& cwd, int sig, int delay_ms,
                const std::function<void()>& in_child = {});

// For in_child: limits of the program's process (as `ulimit -f`, `ulimit -v`, `ulimit -c 0` and a
// time limit that ends a hanging program with SIGALRM), its umask, or several of them in turn (empty ones
// skipped).
std::function<void()> fileSizeLimit(long long bytes);
std::function<void()> memoryLimit(long long bytes);
std::function<void()> noCoreFile();
std::function<void()> timeLimit(unsigned seconds);
std::function<void()> withUmask(unsigned mask);
std::function<void()> allOf(std::vector<std::function<void()> > steps);

// Makes the folder refuse new files to the programs that tests run: by its permissions for an
// ordinary user, and for root (whom permissions do not stop) by a read-only bind mount in the
// program's own mount namespace, set up by *in_child. False when neither can be done here.
bool makeUnwritable(const std::string& dir, std::function<void()>* in_child);

// A fresh empty folder under /tmp, removed with everything in it by the destructor.
struct TempDir {
    std::string path;
    TempDir();
    ~TempDir();
    std::string file(const std::string& name) const { return path + "/" + name; }
};

// A whole file's bytes ("" when it cannot be read), and writing bytes as a whole file.
std::string readFileBytes(const std::string& path);
void writeFileBytes(const std::string& path, const std::string& bytes);

// The program's path in the build folder.
std::string buildProgram(const std::string& name);

// The corpus folder, or "" when it is absent.
std::string corpusDir();
