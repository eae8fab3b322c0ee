// An in-memory file for fuzz targets: the input is written into one anonymous memory file per
// process, which the readers under test open by descriptor or by its /proc path.
#pragma once
#include <cstddef>
#include <cstdint>

// Replaces the memory file's contents with data and rewinds it. Returns its descriptor.
int memFile(const uint8_t* data, size_t size);

// A path under which the memory file can be opened by name.
const char* memFilePath();
