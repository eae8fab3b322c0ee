// The viewer a show is built from: --viewer, or view_slides beside pack_slides's real file. It
// must be a regular, executable file holding a program of this machine with the viewer's banner,
// and a viewer that has the switch -help must answer it as view_slides does.
#pragma once
#include "support/vec.h"

// A viewer larger than this is no viewer (the real one is a few megabytes).
const long long kMaxViewerBytes = 256LL << 20;

// The viewer's path (malloc'ed): named, or view_slides beside this program; null with *error set
// when this program cannot find its own file.
char* viewerPath(const char* named, const char** error);

// Checks the viewer and reads it whole into bytes. Returns null or a one-line error.
const char* loadViewer(const char* path, vec<unsigned char>& bytes);
