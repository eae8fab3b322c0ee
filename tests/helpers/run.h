// Running the project's programs from tests.
#pragma once
#include <string>
#include <vector>

struct RunResult {
    int status = -1;   // exit status, or -1 when the program died of a signal
    int signal = 0;    // the signal that ended it, or 0
    std::string out;   // standard output
    std::string err;   // standard error
};

// Runs argv[0] with the arguments in the folder cwd (empty: the current one), with the extra
// environment entries "NAME=value" added, and collects its output and exit status.
RunResult runProgram(const std::vector<std::string>& argv, const std::string& cwd = "",
                     const std::vector<std::string>& env = {});

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
