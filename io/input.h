// Input files read whole, with the reason of any failure.
#pragma once
#include "support/vec.h"

// Reads the file at path whole into bytes (emptied first). A file of more than max_bytes is
// refused: a regular one by its size before reading, any other kind once it gives more. With
// regular_only, anything but a regular file (a folder, a device, a FIFO) is refused before it is
// opened, so that nothing blocks. Returns null or the reason, without the path.
const char* readWholeFile(const char* path, long long max_bytes, bool regular_only, vec<unsigned char>& bytes);
