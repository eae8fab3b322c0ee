// Work spread over forked worker processes. A worker is a copy of the packer at the moment the
// jobs start, so a job may read anything the packer holds then. Each job's result comes back as
// bytes through a socket and reaches the packer in job order, whatever order the workers finish
// in. A job that runs past its time limit, or a worker that dies (a crash inside a library it
// calls), ends the whole run with one error naming the job; every worker is then killed and
// reaped.
#pragma once
#include <functional>
#include <string>

#include "support/vec.h"

struct JobRun {
    int count = 0;           // jobs 0 .. count-1
    int workers = 1;         // processes at most
    double time_limit = 0;   // seconds a job may take in its worker; 0: no limit
    const char* time_limit_note = "";  // added to the error when a job passes it
    // Runs in a worker: fills result; returns null or a one-line error.
    std::function<const char*(int job, vec<unsigned char>& result)> work;
    // Runs in the packer, in job order: takes the result; returns null or a one-line error.
    std::function<const char*(int job, vec<unsigned char>& result)> take;
    // Runs in the packer as it starts waiting for a job's result (for progress lines); optional.
    std::function<void(int job)> waiting;
    // What a job does, for errors: "Rendering page 3 of talk.pdf".
    std::function<std::string(int job)> name;
};

// Runs every job; returns null, or the first error.
const char* runJobs(const JobRun& run);

// The worker processes that a packer may run at once: its --jobs, but no more than fit in
// `budget` bytes when each needs `bytes_each`, and at least one.
int workersWithin(int jobs, long long bytes_each, long long budget);

// Results made of several byte strings: each part is its length (4 bytes) and its bytes.
void putPart(vec<unsigned char>& out, const void* data, int size);
// Takes the next part from `at` on; false when the result holds no further whole part.
bool takePart(const vec<unsigned char>& in, int& at, const unsigned char*& data, int& size);
