// Progress of the packing stages on standard output. On a terminal one line is rewritten in
// place as pages are taken; anywhere else (a log file, a pipe) each stage gets one line.
#pragma once

// Page i of n taken in a stage ("Reading", "Rendering", "Encoding").
void showProgress(const char* stage, int i, int n);

// Whether a progress line is open on the terminal, waiting for a line feed.
bool progressLineOpen();

// Moves to the start of an open progress line, so that the next line printed replaces it.
void overProgress();
