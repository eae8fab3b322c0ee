#include "run.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

std::string readFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

RunResult runProgram(const std::vector<std::string>& argv, const std::string& cwd,
                     const std::vector<std::string>& env) {
    TempDir io;
    std::string out_path = io.file("out"), err_path = io.file("err");
    pid_t pid = fork();
    if (pid == 0) {
        int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int null_in = open("/dev/null", O_RDONLY);
        dup2(out, 1);
        dup2(err, 2);
        dup2(null_in, 0);
        if (!cwd.empty() && chdir(cwd.c_str()) != 0) _exit(126);
        for (const std::string& e : env) putenv(strdup(e.c_str()));
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(strdup(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    RunResult r;
    if (WIFEXITED(wstatus)) r.status = WEXITSTATUS(wstatus);
    if (WIFSIGNALED(wstatus)) r.signal = WTERMSIG(wstatus);
    r.out = readFileBytes(out_path);
    r.err = readFileBytes(err_path);
    return r;
}

void writeFileBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

TempDir::TempDir() {
    char name[] = "/tmp/slides-test-XXXXXX";
    path = mkdtemp(name);
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string buildProgram(const std::string& name) { return std::string(SLIDES_BUILD_DIR) + "/" + name; }

std::string corpusDir() {
    std::string dir = std::string(SLIDES_SOURCE_DIR) + "/../shared/corpus";
    struct stat st;
    return stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? dir : "";
}
