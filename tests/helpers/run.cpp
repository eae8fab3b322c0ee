#include "run.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
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
                     const std::vector<std::string>& env, const std::function<void()>& in_child) {
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
        if (in_child) in_child();
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

int signalAfter(const std::vector<std::string>& argv, const std::string& cwd, int sig, int delay_ms,
                const std::function<void()>& in_child) {
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(cwd.c_str()) != 0) _exit(126);
        int null_fd = open("/dev/null", O_WRONLY);
        dup2(null_fd, 1);
        dup2(null_fd, 2);
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back((char*)a.c_str());
        args.push_back(nullptr);
        if (in_child) in_child();
        execv(args[0], args.data());
        _exit(127);
    }
    usleep(delay_ms * 1000);
    kill(pid, sig);
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

static std::function<void()> resourceLimit(int resource, long long value) {
    return [resource, value] {
        struct rlimit limit = {(rlim_t)value, (rlim_t)value};
        setrlimit(resource, &limit);
    };
}

std::function<void()> fileSizeLimit(long long bytes) { return resourceLimit(RLIMIT_FSIZE, bytes); }
std::function<void()> memoryLimit(long long bytes) { return resourceLimit(RLIMIT_AS, bytes); }
std::function<void()> noCoreFile() { return resourceLimit(RLIMIT_CORE, 0); }
std::function<void()> timeLimit(unsigned seconds) {
    return [seconds] { alarm(seconds); };
}
std::function<void()> withUmask(unsigned mask) {
    return [mask] { umask((mode_t)mask); };
}
std::function<void()> allOf(std::vector<std::function<void()> > steps) {
    return [steps] {
        for (const auto& step : steps)
            if (step) step();
    };
}

// In a new mount namespace of this process, dir becomes read-only; false when that is not allowed.
static bool mountReadOnly(const std::string& dir) {
    const char* d = dir.c_str();
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount(d, d, nullptr, MS_BIND, nullptr) == 0 &&
           mount(nullptr, d, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

bool makeUnwritable(const std::string& dir, std::function<void()>* in_child) {
    if (geteuid() != 0) {
        *in_child = {};
        return chmod(dir.c_str(), 0555) == 0;
    }
    pid_t pid = fork();
    if (pid == 0) {
        std::string probe = dir + "/probe";
        _exit(mountReadOnly(dir) && open(probe.c_str(), O_WRONLY | O_CREAT, 0644) < 0 && errno == EROFS ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
    *in_child = [dir] {
        char cwd[4096];
        // The working folder is named again, so that it is seen through the new mount.
        if (!mountReadOnly(dir) || !getcwd(cwd, sizeof cwd) || chdir(cwd) != 0) _exit(125);
    };
    return true;
}
