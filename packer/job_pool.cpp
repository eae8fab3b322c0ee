#include "packer/job_pool.h"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

#include "packer/deck.h"

namespace {

// What a worker sends back for each job: this header, then `size` bytes of result or error text.
struct Header {
    int job;
    int failed;
    unsigned size;
};

// Signals whose handlers a worker gives up: an interrupt ends it quietly (the packer reports and
// cleans up), and a crash ends it by the signal, which the packer then names.
const int kDefaultSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL};

bool sendAll(int fd, const void* data, size_t n) {
    const char* p = (const char*)data;
    while (n > 0) {
        ssize_t k = send(fd, p, n, MSG_NOSIGNAL);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) return false;
        p += k;
        n -= (size_t)k;
    }
    return true;
}

bool receiveAll(int fd, void* data, size_t n) {
    char* p = (char*)data;
    while (n > 0) {
        ssize_t k = recv(fd, p, n, 0);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) return false;
        p += k;
        n -= (size_t)k;
    }
    return true;
}

double now() {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

// Runs jobs as the packer sends their numbers, until it closes the socket.
[[noreturn]] void serve(int fd, const JobRun& run) {
    for (;;) {
        int job;
        if (!receiveAll(fd, &job, sizeof job)) _exit(0);
        vec<unsigned char> result;
        const char* error = nullptr;
        try {
            error = run.work(job, result);
        } catch (Exception_MemOut&) {
            error = errorf("%s ran out of memory", run.name(job).c_str());
        } catch (std::bad_alloc&) {
            error = errorf("%s ran out of memory", run.name(job).c_str());
        }
        Header h{job, error != nullptr, (unsigned)(error ? strlen(error) : (size_t)result.size)};
        const void* data = error ? (const void*)error : (const void*)result.data;
        if (!sendAll(fd, &h, sizeof h) || !sendAll(fd, data, h.size)) _exit(1);
    }
}

struct Worker {
    pid_t pid;
    int fd;
    int job;         // the job it runs, -1 when idle
    double started;  // when it was given the job
};

// The worker processes of one run. Whatever way the run ends, none outlives it.
class Workers {
public:
    vec<Worker> list;

    Workers() {}
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    ~Workers() { stop(true); }

    const char* start(const JobRun& run, int n) {
        pid_t packer = getpid();
        fflush(stdout);
        fflush(stderr);
        for (int k = 0; k < n; k++) {
            int pair[2];
            if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
                return errorf("Could not start a worker process: %s", strerror(errno));
            pid_t pid = fork();
            if (pid < 0) {
                close(pair[0]);
                close(pair[1]);
                return errorf("Could not start a worker process: %s", strerror(errno));
            }
            if (pid == 0) {
                for (const Worker& w : list) close(w.fd);
                close(pair[0]);
                becomeWorker(packer);
                serve(pair[1], run);
            }
            close(pair[1]);
            list.push(Worker{pid, pair[0], -1, 0});
        }
        return nullptr;
    }

    // Ends every worker: killed, or asked to end by closing its socket; then reaped.
    void stop(bool kill_them) {
        for (Worker& w : list) {
            if (kill_them && w.pid > 0) kill(w.pid, SIGKILL);
            close(w.fd);
        }
        for (Worker& w : list)
            if (w.pid > 0) waitpid(w.pid, nullptr, 0);
        list.release();
    }

    // Why worker w stopped answering: waits for it to end (it is reaped here).
    const char* death(Worker& w, const JobRun& run) {
        int status = 0;
        waitpid(w.pid, &status, 0);
        w.pid = -1;
        std::string what = w.job >= 0 ? run.name(w.job) : std::string("A worker process");
        if (WIFSIGNALED(status))
            return errorf("%s failed: its worker process was killed by signal %d (%s)", what.c_str(),
                          WTERMSIG(status), strsignal(WTERMSIG(status)));
        return errorf("%s failed: its worker process ended unexpectedly (status %d)", what.c_str(),
                      WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    }

private:
    // A worker dies with the packer, and a crash leaves no core file: the packer reports it.
    static void becomeWorker(pid_t packer) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != packer) _exit(1);
        for (int sig : kDefaultSignals) signal(sig, SIG_DFL);
        struct rlimit no_core = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
    }
};

// Results that arrived before the jobs ahead of them were taken.
struct Pending {
    vec<vec<unsigned char> > results;
    vec<char> ready;   // 1: result, 2: error text in the result
    int window;

    explicit Pending(int n) : window(n) {
        results.resize(n);
        ready.resize(n);
    }
    int slot(int job) const { return job % window; }
};

}  // namespace

void putPart(vec<unsigned char>& out, const void* data, int size) {
    int at = out.size;
    out.resize(at + 4 + size);
    memcpy(out.data + at, &size, 4);
    if (size > 0) memcpy(out.data + at + 4, data, (size_t)size);
}

bool takePart(const vec<unsigned char>& in, int& at, const unsigned char*& data, int& size) {
    if (in.size - at < 4) return false;
    memcpy(&size, in.data + at, 4);
    if (size < 0 || size > in.size - at - 4) return false;
    data = in.data + at + 4;
    at += 4 + size;
    return true;
}

int workersWithin(int jobs, long long bytes_each, long long budget) {
    long long fit = bytes_each > 0 ? budget / bytes_each : jobs;
    if (fit < jobs) jobs = (int)fit;
    return jobs < 1 ? 1 : jobs;
}

const char* runJobs(const JobRun& run) {
    if (run.count <= 0) return nullptr;
    Workers workers;
    int n = run.workers < run.count ? run.workers : run.count;
    if (n < 1) n = 1;
    if (const char* error = workers.start(run, n)) return error;
    Pending pending(2 * n);  // jobs are handed out at most this far ahead of the next one taken
    int next_job = 0, next_take = 0;
    vec<struct pollfd> polls;
    vec<int> polled;  // worker of each poll entry
    if (run.waiting) run.waiting(0);
    while (next_take < run.count) {
        for (Worker& w : workers.list) {
            if (w.job >= 0 || next_job >= run.count || next_job >= next_take + pending.window) continue;
            w.job = next_job++;
            w.started = now();
            if (!sendAll(w.fd, &w.job, sizeof w.job)) return workers.death(w, run);
        }
        polls.clear();
        polled.clear();
        double deadline = 0;
        for (int k = 0; k < workers.list.size; k++) {
            const Worker& w = workers.list[k];
            if (w.job < 0) continue;
            polls.push(pollfd{w.fd, POLLIN, 0});
            polled.push(k);
            double due = w.started + run.time_limit;
            if (run.time_limit > 0 && (deadline == 0 || due < deadline)) deadline = due;
        }
        int wait_ms = -1;
        if (deadline > 0) wait_ms = (int)std::min(std::ceil(std::max(0.0, deadline - now()) * 1000), (double)INT_MAX);
        if (polls.size > 0 && poll(polls.data, (nfds_t)polls.size, wait_ms) < 0 && errno != EINTR)
            return errorf("Waiting for the worker processes failed: %s", strerror(errno));

        for (int p = 0; p < polls.size; p++) {
            if (!polls[p].revents) continue;
            Worker& w = workers.list[polled[p]];
            Header h;
            int s = pending.slot(w.job);
            vec<unsigned char>& result = pending.results[s];
            if (!receiveAll(w.fd, &h, sizeof h) || h.job != w.job || h.size > INT_MAX) return workers.death(w, run);
            result.resize((int)h.size);
            if (!receiveAll(w.fd, result.data, h.size)) return workers.death(w, run);
            pending.ready[s] = h.failed ? 2 : 1;
            w.job = -1;
        }
        for (Worker& w : workers.list)
            if (w.job >= 0 && run.time_limit > 0 && now() > w.started + run.time_limit)
                return errorf("%s took more than %g s%s", run.name(w.job).c_str(), run.time_limit,
                              run.time_limit_note);

        while (next_take < run.count && pending.ready[pending.slot(next_take)]) {
            int s = pending.slot(next_take++);
            vec<unsigned char>& result = pending.results[s];
            const char* error = nullptr;
            if (pending.ready[s] == 2) {
                result.push(0);
                error = errorf("%s", (const char*)result.data);
            } else {
                error = run.take(next_take - 1, result);
            }
            result.release();
            pending.ready[s] = 0;
            if (error) return error;
            if (run.waiting && next_take < run.count) run.waiting(next_take);
        }
    }
    workers.stop(false);
    return nullptr;
}
