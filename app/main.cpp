// view_slides: unpacks the slide archive appended to its own file (or named on the command line)
// and shows it, or exports it as PNG files.
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "show/program.h"
#include "show/unpack.h"
#include "support/exits.h"
#include "app/view.h"
#include "cmdline/cmdline.h"
#include "display/monitors.h"
#include "display/win.h"

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

static const char* help =
    "\n"
    "Usage: view_slides [SWITCHES] [ARCHIVE]   (a show made by pack_slides: ./SHOW [SWITCHES])\n"
    "\n"
    "    -png-screens      Unpack every screen to screen_000.png, screen_001.png, ...\n"
    "    -png-slides       Unpack the last screen of every slide to slide_01.png, ...\n"
    "    -debug            Unpack only 20 screens; print the transition speed probe\n"
    "    -present          Fill a whole monitor: the first that is not the primary one\n"
    "    -monitor=N|NAME   Present on monitor N (from 0) or NAME, as xrandr --listmonitors\n"
    "                      lists them\n"
    "    -start=N          Begin at slide N (from 1)\n"
    "    -help             This text\n"
    "\n"
    "Keys in the window:\n"
    "    Space, Return, left click  Next screen (new slides scroll in)\n"
    "    BackSpace, right click     Previous screen\n"
    "    Page Down, Page Up         Whole slides, with a scroll\n"
    "    Right, Left                Next, previous screen at once\n"
    "    Down, Up, mouse wheel      Whole slides at once\n"
    "    Home, End                  First, last slide\n"
    "    m, e, r, c                 The sub-sections of the carried talk\n"
    "    q, Escape                  Quit\n"
    "\n"
    "Keys while presenting (the others as in the window):\n"
    "    Page Down, Page Up         Next, previous screen, as Space and BackSpace\n"
    "    b, period, keypad .        Black screen\n"
    "    w, comma                   White screen; the next key or click shows the slide again\n"
    "    digits, then Return or g   Go to that slide (BackSpace takes a digit back)\n"
    "    Escape, F5                 End a blank or drop the digits; they never quit\n"
    "    q                          Quit";

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

static bool isAbsent(const CmdLine::Value& v) { return v.type == CmdLine::Null && v.num == -1.0; }

// The monitor that -monitor names (a number or a name), or the default one with -present;
// null when the show is not presented.
static bool chooseMonitor(bool present, CmdLine::Value named, Monitor& chosen) {
    if (isAbsent(named) && !present) return false;
    if (!isAbsent(named) && named.type != CmdLine::Num && named.type != CmdLine::Text)
        CmdLine::fail("ERROR! Expected a monitor number or name as argument to switch: monitor\n");
    Display* d = connectDisplay();
    vec<Monitor> monitors;
    listMonitors(d, monitors);
    XCloseDisplay(d);
    int found = isAbsent(named)                ? defaultMonitor(monitors)
                : named.type == CmdLine::Text  ? findMonitor(monitors, named.text)
                : named.num == (int)named.num ? findMonitor(monitors, (int)named.num)
                                               : -1;
    if (found < 0) {
        char list[1024];
        describeMonitors(monitors, list, sizeof list);
        if (named.type == CmdLine::Text) fail("There is no monitor %s; the monitors are: %s.", named.text, list);
        fail("There is no monitor %g; the monitors are: %s.", named.num, list);
    }
    chosen = monitors[found];
    return true;
}

static const char* const end_of_archive = "Unexpected end of the slide archive.";

static const char* readIndexOrEnd(File& archive, ArchiveLayout layout, ArchiveIndex& index) {
    try {
        return readIndex(archive, layout, index);
    } catch (Exception_EOF&) {
        return end_of_archive;
    }
}

// A program named where an archive belongs: a self-contained show, which is run, or a viewer.
static void failOnProgram(File& archive, const char* path) {
    unsigned char head[64];
    ssize_t n = pread(archive.fd, head, sizeof head, 0);
    if (n <= 0 || programProblem(head, (size_t)n)) return;
    ArchiveIndex index;
    if (!readIndexOrEnd(archive, ARCHIVE_APPENDED, index))
        fail("%s is a slide show to be run, not an archive: start it as a program.", path);
    fail("%s is a program, not a slide archive.", path);
}

// Reads the archive's index. In the program's own file an unreadable index means that no show
// is appended at all.
static void readShowIndex(File& archive, bool own_file, const char* path, ArchiveIndex& index) {
    const char* error = readIndexOrEnd(archive, own_file ? ARCHIVE_APPENDED : ARCHIVE_SEPARATE, index);
    if (error && own_file) fail("No slide show is appended to %s; give a slide archive file as the argument.", path);
    if (error) failOnProgram(archive, path);
    if (error) fail("%s", error);
}

int main(int argc, char** argv) {
    puts(banner);
    CmdLine::parseCommandline(argc, argv);
    char* path = CmdLine::getArg_Text(0, argv[0]);
    if (CmdLine::getSwitch_Null("help")) {
        puts(help);
        exit(0);
    }
    RunMode mode = runMode();
    if (CmdLine::getSwitch_Null("debug")) debug = true;
    bool present = CmdLine::getSwitch_Null("present");
    CmdLine::Value named_monitor = CmdLine::getSwitch("monitor", CmdLine::Value_ERR);
    int start_slide = CmdLine::getSwitch_Int("start", 1);
    if (start_slide < 1) CmdLine::fail("ERROR! Slides are counted from 1: start=%d\n", start_slide);
    CmdLine::assertCmdlineRead();
    Monitor monitor;
    bool presenting = mode == RUN_VIEW && chooseMonitor(present, named_monitor, monitor);

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
    if (mode != RUN_VIEW) ignoreWriteSignals();  // a file size limit fails an export with its reason
    if (const char* error = checkExports(index, mode, path)) fail("%s", error);
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
        ViewOptions options;
        options.first_screen = firstScreenOfSlide(show.flags, start_slide);
        options.monitor = presenting ? &monitor : nullptr;
        view(show.images, show.flags, options);
    }
    archive.close();
    return 0;
}
