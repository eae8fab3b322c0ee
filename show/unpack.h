// Unpacking a slide archive into the compact images the viewer shows, with optional PNG export.
#pragma once
#include <cstdio>
#include <functional>

#include "show/archive.h"
#include "show/image.h"

// What a run does with the screens: view them, export every screen, or export the last screen of
// every slide.
enum RunMode { RUN_VIEW = 0, RUN_PNG_SCREENS = 1, RUN_PNG_SLIDES = 2 };

extern bool debug;  // decode only the first 20 screens; print the transition speed probe

struct Show {
    vec<Image> images;
    vec<bool> flags;
    ImageRoom room;  // the images' index arrays, when they fitted in it
};

// Decodes every background and screen of the archive whose index has been read, composites each screen over its
// background or the previous screen, exports PNG files in the export modes and converts every
// screen into an Image. Progress lines go to `progress` (null: none). Returns null, or a
// one-line description of what is wrong with the archive or the export.
// `check`, when given, is called with every screen's image as soon as it is made; it may release
// the image, and an error it returns ends unpacking.
typedef std::function<const char*(int screen, Image& image)> ScreenCheck;
const char* unpackShow(File& archive, const ArchiveIndex& index, RunMode mode, Show& show, FILE* progress,
                       const ScreenCheck& check = nullptr);

// Before unpacking in an export mode: every file the run will write must be one that an output
// may replace (not a device, FIFO or folder, nor the archive itself), and the working folder must
// take new files. Returns null or a one-line error.
const char* checkExports(const ArchiveIndex& index, RunMode mode, const char* archive_path);
