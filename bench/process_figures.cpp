#include "process_figures.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

namespace {

FILE* ask = nullptr;     // requests to the spawner: the arguments, tab-separated, one run a line
FILE* answer = nullptr;  // its answers: status elapsed cpu maxrss peak_tree

double now() {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

long long residentBytes(pid_t pid) {
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/statm", (int)pid);
    FILE* in = fopen(path, "r");
    if (!in) return 0;
    long long size = 0, resident = 0;
    if (fscanf(in, "%lld %lld", &size, &resident) != 2) resident = 0;
    fclose(in);
    return resident * sysconf(_SC_PAGESIZE);
}

pid_t parentOf(const char* pid) {
    char path[300], stat[1024];
    snprintf(path, sizeof path, "/proc/%s/stat", pid);
    FILE* in = fopen(path, "r");
    if (!in) return 0;
    size_t n = fread(stat, 1, sizeof stat - 1, in);
    fclose(in);
    stat[n] = 0;
    const char* close = strrchr(stat, ')');
    int ppid = 0;
    if (!close || sscanf(close + 1, " %*c %d", &ppid) != 1) return 0;
    return ppid;
}

// The program and its descendants, found by a walk over /proc.
std::set<pid_t> processTree(pid_t root) {
    std::set<pid_t> tree = {root};
    DIR* proc = opendir("/proc");
    if (!proc) return tree;
    std::vector<std::pair<pid_t, pid_t> > links;
    while (struct dirent* e = readdir(proc))
        if (e->d_name[0] >= '0' && e->d_name[0] <= '9') links.push_back({(pid_t)atoi(e->d_name), parentOf(e->d_name)});
    closedir(proc);
    for (bool grown = true; grown;) {
        grown = false;
        for (auto& link : links)
            if (tree.count(link.second) && !tree.count(link.first)) grown = tree.insert(link.first).second;
    }
    return tree;
}

RunFigures runOne(std::vector<std::string> args) {
    RunFigures f;
    double start = now();
    pid_t pid = fork();
    if (pid == 0) {
        unsetenv("DISPLAY");
        if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr)) _exit(127);
        std::vector<char*> argv;
        for (std::string& a : args) argv.push_back(&a[0]);
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (pid < 0) return f;
    // Resident memory of the known processes every 10 ms; the tree itself every 100 ms.
    std::set<pid_t> tree = {pid};
    int status = 0;
    struct rusage usage;
    long long peak = 0;
    for (int tick = 0;; tick++) {
        pid_t done = wait4(pid, &status, WNOHANG, &usage);
        if (done == pid) break;
        if (tick % 10 == 0) tree = processTree(pid);
        long long sum = 0;
        for (pid_t p : tree) sum += residentBytes(p);
        if (sum > peak) peak = sum;
        usleep(10000);
    }
    f.elapsed_s = now() - start;
    f.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    f.cpu_s = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec * 1e-6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec * 1e-6;
    f.maxrss = (long long)usage.ru_maxrss * 1024;
    f.peak_tree = peak > f.maxrss ? peak : f.maxrss;
    return f;
}

[[noreturn]] void serveRuns(FILE* requests, FILE* answers) {
    char line[65536];
    while (fgets(line, sizeof line, requests)) {
        line[strcspn(line, "\n")] = 0;
        std::vector<std::string> args;
        std::stringstream split(line);
        for (std::string a; std::getline(split, a, '\t');) args.push_back(a);
        RunFigures f = runOne(args);
        fprintf(answers, "%d %.6f %.6f %lld %lld\n", f.status, f.elapsed_s, f.cpu_s, f.maxrss, f.peak_tree);
        fflush(answers);
    }
    _exit(0);
}

}  // namespace

void startSpawner() {
    int to[2], from[2];
    if (pipe(to) != 0 || pipe(from) != 0) return;
    pid_t pid = fork();
    if (pid == 0) {
        close(to[1]);
        close(from[0]);
        serveRuns(fdopen(to[0], "r"), fdopen(from[1], "w"));
    }
    close(to[0]);
    close(from[1]);
    if (pid < 0) return;
    ask = fdopen(to[1], "w");
    answer = fdopen(from[0], "r");
}

RunFigures runMeasured(const std::vector<std::string>& argv) {
    RunFigures f;
    if (!ask) return f;
    for (size_t i = 0; i < argv.size(); i++) fprintf(ask, "%s%s", i ? "\t" : "", argv[i].c_str());
    fprintf(ask, "\n");
    fflush(ask);
    if (fscanf(answer, "%d %lf %lf %lld %lld", &f.status, &f.elapsed_s, &f.cpu_s, &f.maxrss, &f.peak_tree) != 5)
        f.status = -1;
    return f;
}

const char* makeCycledDeck(const std::string& folder, int pages, const std::vector<std::string>& decks) {
    std::vector<std::pair<std::string, int> > all;  // page path, flag
    for (const std::string& deck : decks) {
        std::ifstream list(deck + "/slides.txt");
        std::string name;
        int flag;
        while (list >> name >> flag) all.push_back({deck + "/" + name, flag});
    }
    if (all.empty()) return "no pages to cycle through";
    mkdir(folder.c_str(), 0755);
    std::ofstream list(folder + "/slides.txt");
    for (int i = 0; i < pages; i++) {
        char name[32];
        snprintf(name, sizeof name, "page_%04d.png", i + 1);
        std::string link = folder + "/" + name;
        unlink(link.c_str());
        if (symlink(all[i % all.size()].first.c_str(), link.c_str()) != 0) return "cannot make a link";
        list << name << " " << (i == 0 ? 0 : all[i % all.size()].second) << "\n";
    }
    return list ? nullptr : "cannot write slides.txt";
}

static std::string heavyFile(const std::string& folder) { return folder + "/bench-heavy-io.bin"; }

double heavyFileIo(const std::string& folder, long long bytes) {
    double start = now();
    std::string path = heavyFile(folder);
    int fd = open(path.c_str(), O_CREAT | O_TRUNC | O_RDWR, 0644);
    if (fd < 0) return -1;
    std::vector<char> block(16 << 20);
    for (size_t i = 0; i < block.size(); i++) block[i] = (char)(i * 131);
    for (long long done = 0; done < bytes; done += (long long)block.size())
        if (write(fd, block.data(), block.size()) != (ssize_t)block.size()) break;
    lseek(fd, 0, SEEK_SET);
    while (read(fd, block.data(), block.size()) > 0) {
    }
    close(fd);
    return now() - start;
}

void removeHeavyFile(const std::string& folder) { unlink(heavyFile(folder).c_str()); }
