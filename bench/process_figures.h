// Figures of whole program runs, as a user starts them: pack_slides and view_slides timed, with
// their peak memory, run by a small spawner process; synthetic decks; heavy file I/O.
#pragma once
#include <string>
#include <vector>

struct RunFigures {
    int status = -1;          // exit status, -1 when the program could not run or died
    double elapsed_s = 0;     // wall clock
    double cpu_s = 0;         // user and system time of the program and the workers it waited for
    long long maxrss = -1;    // the program's own peak resident memory
    long long peak_tree = -1; // the largest sum of the resident memory of the program and its
                              // worker processes, sampled every 10 ms
};

// Starts the spawner: a process forked while the benchmark is still small (a child's peak
// memory counts that of the process it was forked from), which runs programs for it.
void startSpawner();

// Runs argv with DISPLAY unset and its output discarded, and measures it.
RunFigures runMeasured(const std::vector<std::string>& argv);

// Makes folder a deck of `pages` pages cycling through the pages of the given deck folders
// (symbolic links and a slides.txt that keeps their flags). Returns null or an error.
const char* makeCycledDeck(const std::string& folder, int pages, const std::vector<std::string>& decks);

// Writes a file of `bytes` in folder and reads it back, filling the page cache, as heavy file
// I/O before a show starts does; the file stays until removeHeavyFile. Returns the seconds taken.
double heavyFileIo(const std::string& folder, long long bytes);
void removeHeavyFile(const std::string& folder);
