// Writing slide archive files in tests and benchmarks.
#pragma once
#include <string>

#include "show/archive.h"
#include "show/notes.h"

// Writes prefix (the program bytes in front of an appended archive; empty for a separate one)
// and then the archive to path. Returns the whole file's bytes.
std::string writeArchiveFile(const std::string& path, ArchiveLayout layout, const std::string& prefix,
                             const vec<vec<unsigned char> >& backgrounds, const vec<ScreenRecord>& screens,
                             const vec<bool>& flags, const ShowNotes* notes = nullptr);

// Reads the index and the notes of the separate archive at path. Returns null or what is wrong.
const char* readArchiveNotes(const std::string& path, ArchiveIndex& index, ShowNotes& notes);
