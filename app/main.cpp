// view_slides: unpacks the slide archive appended to its own file (or named on the command line)
// and shows it, or exports it as PNG files.
#include <cmath>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "show/notes.h"
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
    "    -console          Present, with the presenter's console on another monitor: the\n"
    "                      current and next screens, slide and step, clocks, the notes\n"
    "    -console-monitor=N|NAME\n"
    "                      The console's monitor; by default the primary one, or the\n"
    "                      first other one when the show is on the primary\n"
    "    -duration=MIN     The talk's length in minutes: the console shows the time left\n"
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
    "    t                          Restart the talk's clock (with the console)\n"
    "    q                          Quit";

[[noreturn]] static void fail(const char* fmt, ...) {
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

// A talk lasts at most a day.
static const double MAX_DURATION_MINUTES = 1440;

// The talk's duration in whole seconds, at least one; 0 when none is given.
static double durationSeconds(double minutes) {
    if (std::isnan(minutes)) return 0;
    return round(minutes * 60) < 1 ? 1 : round(minutes * 60);
}

static void checkMonitorSwitch(const CmdLine::Value& named, const char* name) {
    if (!isAbsent(named) && named.type != CmdLine::Num && named.type != CmdLine::Text)
        CmdLine::fail("ERROR! Expected a monitor number or name as argument to switch: %s\n", name);
}

// The monitor a switch names (a number or a name), or `fallback` when it is absent; a monitor
// that is not there is an error that lists those that are.
static int monitorNamed(const vec<Monitor>& monitors, const CmdLine::Value& named, int fallback) {
    int found = isAbsent(named)                ? fallback
                : named.type == CmdLine::Text  ? findMonitor(monitors, named.text)
                : named.num == (int)named.num ? findMonitor(monitors, (int)named.num)
                                               : -1;
    if (found >= 0) return found;
    char list[1024];
    describeMonitors(monitors, list, sizeof list);
    if (named.type == CmdLine::Text) fail("There is no monitor %s; the monitors are: %s.", named.text, list);
    fail("There is no monitor %g; the monitors are: %s.", named.num, list);
}

// Where a presented show goes: its monitor and, with the console, the console's.
struct Monitors {
    Monitor show;
    bool console = false;
    Monitor console_monitor;
};

// The monitors that -monitor and -console-monitor name, or the default ones.
static Monitors chooseMonitors(const CmdLine::Value& named, bool console, const CmdLine::Value& console_named) {
    checkMonitorSwitch(named, "monitor");
    checkMonitorSwitch(console_named, "console-monitor");
    Display* d = connectDisplay();
    vec<Monitor> monitors;
    listMonitors(d, monitors);
    XCloseDisplay(d);
    Monitors chosen;
    int show = monitorNamed(monitors, named, defaultMonitor(monitors));
    chosen.show = monitors[show];
    if (!console) return chosen;
    char text[1024];
    describeMonitors(monitors, text, sizeof text);
    if (monitors.size < 2) fail("The console needs a second monitor; the only one is %s.", text);
    int at = monitorNamed(monitors, console_named, defaultConsoleMonitor(monitors, show));
    describeMonitor(monitors, show, text, sizeof text);
    if (at == show) fail("The show is presented on monitor %s; the console needs another one.", text);
    chosen.console = true;
    chosen.console_monitor = monitors[at];
    return chosen;
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
    bool console = CmdLine::getSwitch_Null("console");
    CmdLine::Value console_monitor = CmdLine::getSwitch("console-monitor", CmdLine::Value_ERR);
    double minutes = CmdLine::getSwitch_Num("duration", NAN);
    if (!std::isnan(minutes) && !(minutes > 0 && minutes <= MAX_DURATION_MINUTES))
        CmdLine::fail("ERROR! The talk's duration is a number of minutes above 0 and at most %g: duration=%g\n",
                      MAX_DURATION_MINUTES, minutes);
    bool start_given = !isAbsent(CmdLine::getSwitch("start", CmdLine::Value_ERR));
    int start_slide = CmdLine::getSwitch_Int("start", 1);
    if (start_slide < 1) CmdLine::fail("ERROR! Slides are counted from 1: start=%d\n", start_slide);
    CmdLine::assertCmdlineRead();
    // The console's switches imply the console, and the console and -monitor imply presenting.
    console = console || !isAbsent(console_monitor) || !std::isnan(minutes);
    present = present || !isAbsent(named_monitor) || console;
    bool presenting = mode == RUN_VIEW && present;
    Monitors monitors;
    if (presenting) monitors = chooseMonitors(named_monitor, console, console_monitor);

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
    ShowNotes notes;
    if (monitors.console && (error = readNotes(archive, index, notes))) fail("%s", error);

    if (mode == RUN_VIEW) {
        if (show.images.size == 0) fail("The slide archive holds no screens.");
        ViewOptions options;
        options.first_screen = firstScreenOfSlide(show.flags, start_slide);
        options.monitor = presenting ? &monitors.show : nullptr;
        if (monitors.console) {
            options.console.monitor = &monitors.console_monitor;
            options.console.notes = &notes;
            options.console.duration = durationSeconds(minutes);
            options.console.clock_running = start_given;
        }
        view(show.images, show.flags, options);
    }
    archive.close();
    return 0;
}
