// view_slides: unpacks the slide archive appended to its own file (or named on the command line)
// and shows it, or exports it as PNG files.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "show/unpack.h"
#include "app/view.h"
#include "cmdline/cmdline.h"

static const char* banner =
    "===============================================================================\n"
    "Now unpacking the slide show to memory. If you have less than 512 MB of RAM,\n"
    "you might want to try:\n"
    "\n"
    "    -png-screens    -- Unpack all slides (including animations) to PNG files\n"
    "    -png-slides     -- Unpack all slides (without animations) to PNG files\n"
    "\n"
    "You can then view the slides using your favorite image viewer.\n"
    "\n"
    "Keys to use within the viewer:\n"
    "\n"
    "    Space, BackSpace -- Move through slides with animations and transitions\n"
    "    PgUp, PgDn       -- Move complete slides (no animations) with transitions\n"
    "    Cursor Keys      -- Move through slides quickly without transitions\n"
    "    Home, End        -- Go to first or last slide\n"
    "    M, E, R, C       -- Go directly to the different sub-sections of the slides\n"
    "    Mouse            -- Yeah, that works to. Just click on the buttons...\n"
    "===============================================================================";

static void fail(const char* fmt, ...) {
    fflush(stdout);
    va_list args;
    va_start(args, fmt);
    fputs("ERROR! ", stderr);
    vfprintf(stderr, fmt, args);
    va_end(args);
    fputc('\n', stderr);
    exit(1);
}

static RunMode runMode() {
    bool screens = CmdLine::getSwitch_Null("png-screens");
    bool slides = CmdLine::getSwitch_Null("png-slides");
    return slides ? RUN_PNG_SLIDES : screens ? RUN_PNG_SCREENS : RUN_VIEW;
}

static const char* const end_of_archive = "Unexpected end of the slide archive.";

// Reads the archive's index. In the program's own file an unreadable index means that no show
// is appended at all.
static void readShowIndex(File& archive, bool own_file, const char* path, ArchiveIndex& index) {
    const char* error;
    try {
        error = readIndex(archive, own_file ? ARCHIVE_APPENDED : ARCHIVE_SEPARATE, index);
    } catch (Exception_EOF&) {
        error = end_of_archive;
    }
    if (error && own_file) fail("No slide show is appended to %s; give a slide archive file as the argument.", path);
    if (error) fail("%s", error);
}

int main(int argc, char** argv) {
    puts(banner);
    CmdLine::parseCommandline(argc, argv);
    char* path = CmdLine::getArg_Text(0, argv[0]);
    RunMode mode = runMode();
    if (CmdLine::getSwitch_Null("debug")) debug = true;
    CmdLine::assertCmdlineRead();

    File archive;
    archive.open(path, "rb");
    if (archive.fd == -1) {
        fprintf(stderr, "ERROR! Could not open: %s\n", path);
        exit(1);
    }
    // Only the program's own file (no argument given) carries the two-word trailer.
    bool own_file = path == argv[0];
    ArchiveIndex index;
    readShowIndex(archive, own_file, path, index);
    Show show;
    const char* error;
    try {
        error = unpackShow(archive, index, mode, show, stdout);
    } catch (Exception_EOF&) {
        error = end_of_archive;
    } catch (Exception_MemOut&) {
        error = "Out of memory while unpacking the slide show.";
    }
    if (error) fail("%s", error);

    if (mode == RUN_VIEW) {
        if (show.images.size == 0) fail("The slide archive holds no screens.");
        view(show.images, show.flags);
    }
    archive.close();
    return 0;
}
