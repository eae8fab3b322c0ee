// This machine's programs, recognised by their ELF header: the viewer a show is built from, and
// a show or viewer named where a slide archive belongs.
#pragma once
#include <cstddef>

// Null when the file's first n bytes begin the header of a program that this machine runs (an
// executable of this process's class, byte order and machine), else what the file is instead.
const char* programProblem(const unsigned char* head, size_t n);
