// The packer's worker processes: results in job order, errors, time limits and crashes reported
// with the job's name, and no worker left behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "packer/job_pool.h"

namespace {

// True when this process has no child left, reaped or not.
bool noChildren() {
    errno = 0;
    return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

// The run ends with exactly this error, and no worker is left.
void expectError(const JobRun& run, const char* message) {
    const char* error = runJobs(run);
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error, message);
    EXPECT_TRUE(noChildren());
}

JobRun numbered(int count, int workers, std::vector<int>& taken) {
    JobRun run;
    run.count = count;
    run.workers = workers;
    run.work = [](int job, vec<unsigned char>& result) -> const char* {
        usleep((job % 3 == 0 ? 3000 : 100) * (job % 5));  // later jobs often finish first
        putPart(result, &job, sizeof job);
        return nullptr;
    };
    run.take = [&taken](int job, vec<unsigned char>& result) -> const char* {
        int at = 0, size, value;
        const unsigned char* data;
        if (!takePart(result, at, data, size) || size != sizeof value) return "damaged";
        memcpy(&value, data, sizeof value);
        if (value != job) return "another job's result";
        taken.push_back(job);
        return nullptr;
    };
    run.name = [](int job) { return "Job " + std::to_string(job + 1); };
    return run;
}

}  // namespace

TEST(JobPool, ResultsArriveInJobOrder) {
    for (int workers : {1, 3, 8}) {
        std::vector<int> taken, waited;
        JobRun run = numbered(40, workers, taken);
        run.waiting = [&](int job) { waited.push_back(job); };
        EXPECT_EQ(runJobs(run), nullptr);
        std::vector<int> all;
        for (int i = 0; i < 40; i++) all.push_back(i);
        EXPECT_EQ(taken, all) << workers << " workers";
        EXPECT_EQ(waited, all) << workers << " workers";
        EXPECT_TRUE(noChildren());
    }
}

TEST(JobPool, NoJobsStartNoWorkers) {
    std::vector<int> taken;
    EXPECT_EQ(runJobs(numbered(0, 4, taken)), nullptr);
    EXPECT_TRUE(taken.empty());
}

TEST(JobPool, JobsSeeWhatThePackerHeldWhenTheyStarted) {
    std::vector<int> taken;
    JobRun run = numbered(5, 2, taken);
    std::string held = "set before the run";
    run.work = [&](int, vec<unsigned char>& result) -> const char* {
        putPart(result, held.data(), (int)held.size());
        return nullptr;
    };
    run.take = [&](int, vec<unsigned char>& result) -> const char* {
        int at = 0, size;
        const unsigned char* data;
        EXPECT_TRUE(takePart(result, at, data, size));
        EXPECT_EQ(std::string((const char*)data, size), held);
        EXPECT_FALSE(takePart(result, at, data, size));  // nothing more
        return nullptr;
    };
    EXPECT_EQ(runJobs(run), nullptr);
}

TEST(JobPool, AJobsErrorEndsTheRunInJobOrder) {
    std::vector<int> taken;
    JobRun run = numbered(30, 4, taken);
    run.work = [](int job, vec<unsigned char>&) -> const char* {
        if (job == 7 || job == 20) return job == 7 ? "seven went wrong" : "twenty went wrong";
        return nullptr;
    };
    run.take = [&](int job, vec<unsigned char>&) -> const char* {
        taken.push_back(job);
        return nullptr;
    };
    expectError(run, "seven went wrong");
    EXPECT_EQ(taken.size(), 7u);
}

TEST(JobPool, APackerSideErrorStopsTheWorkers) {
    std::vector<int> taken;
    JobRun run = numbered(30, 3, taken);
    run.take = [](int job, vec<unsigned char>&) -> const char* { return job == 4 ? "no room" : nullptr; };
    expectError(run, "no room");
}

TEST(JobPool, AJobPastItsTimeLimitIsNamed) {
    std::vector<int> taken;
    JobRun run = numbered(6, 2, taken);
    run.time_limit = 0.3;
    run.time_limit_note = " (a note)";
    run.work = [](int job, vec<unsigned char>&) -> const char* {
        if (job == 3) pause();  // never ends on its own
        return nullptr;
    };
    run.take = [](int, vec<unsigned char>&) -> const char* { return nullptr; };
    auto start = std::chrono::steady_clock::now();
    expectError(run, "Job 4 took more than 0.3 s (a note)");
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 30) << "the limit did not end the job";
}

TEST(JobPool, AWorkerThatCrashesIsNamedAndThePackerLives) {
    std::vector<int> taken;
    JobRun run = numbered(10, 3, taken);
    run.work = [](int job, vec<unsigned char>&) -> const char* {
        if (job == 5) raise(SIGSEGV);
        return nullptr;
    };
    run.take = [](int, vec<unsigned char>&) -> const char* { return nullptr; };
    expectError(run, "Job 6 failed: its worker process was killed by signal 11 (Segmentation fault)");
}

TEST(JobPool, AWorkerThatExitsIsNamed) {
    std::vector<int> taken;
    JobRun run = numbered(4, 1, taken);
    run.work = [](int job, vec<unsigned char>&) -> const char* {
        if (job == 2) _exit(3);
        return nullptr;
    };
    run.take = [](int, vec<unsigned char>&) -> const char* { return nullptr; };
    expectError(run, "Job 3 failed: its worker process ended unexpectedly (status 3)");
}

TEST(JobPool, AWorkerOutOfMemorySaysSo) {
    std::vector<int> taken;
    JobRun run = numbered(2, 1, taken);
    run.work = [](int job, vec<unsigned char>&) -> const char* {
        if (job == 1) throw Exception_MemOut();
        return nullptr;
    };
    run.take = [](int, vec<unsigned char>&) -> const char* { return nullptr; };
    expectError(run, "Job 2 ran out of memory");
}

TEST(JobPool, WorkersFitTheMemoryBudget) {
    EXPECT_EQ(workersWithin(8, 10, 1000), 8);
    EXPECT_EQ(workersWithin(8, 300, 1000), 3);
    EXPECT_EQ(workersWithin(8, 5000, 1000), 1);  // one always runs
    EXPECT_EQ(workersWithin(1, 1, 1000), 1);
}

TEST(JobPool, PartsRoundTripAndDamageIsSeen) {
    vec<unsigned char> out;
    putPart(out, "abc", 3);
    putPart(out, nullptr, 0);
    int at = 0, size;
    const unsigned char* data;
    ASSERT_TRUE(takePart(out, at, data, size));
    EXPECT_EQ(std::string((const char*)data, size), "abc");
    ASSERT_TRUE(takePart(out, at, data, size));
    EXPECT_EQ(size, 0);
    EXPECT_FALSE(takePart(out, at, data, size));

    vec<unsigned char> cut;  // a part that claims more bytes than follow
    putPart(cut, "abcdef", 6);
    cut.resize(cut.size - 1);
    at = 0;
    EXPECT_FALSE(takePart(cut, at, data, size));
    EXPECT_EQ(at, 0);
}
