// The presenter's console: view_slides -console on Xorg's dummy driver with a laptop monitor and
// a projector monitor, with and without a window manager, at depths 24 and 16. The console's
// pictures are compared with Pillow's bilinear resample, its lines of text are read back glyph
// by glyph, keys and clicks go through xdotool.
#include <gtest/gtest.h>  // before Xlib, whose None macro would break it
#include <X11/Xutil.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "app/console_layout.h"
#include "codec/codec.h"
#include "png/png.h"
#include "helpers/archives.h"
#include "helpers/presenting.h"
#include "helpers/run.h"
#include "helpers/screen_text.h"
#include "helpers/viewer.h"
#include "helpers/xsuite.h"
#include "show/notes.h"

namespace {

const char* const kConsoleTitle = "view_slides console";

// Notes pictures of 200 x 150, light, each with colours of its own.
const int kNotesPictures = 4;
void notesBitmap(int k, Bitmap& out) {
    out.clear();
    out.data = allocPixels(200, 150);
    out.width = 200;
    out.height = 150;
    for (int y = 0; y < 150; y++)
        for (int x = 0; x < 200; x++)
            out.at(x, y) = Color{(unsigned char)(120 + 40 * k), (unsigned char)(255 - x), (unsigned char)(100 + y), 0};
}

// The notes of tenScreens: one picture for the three steps of slide [1 2 3], one for [4 5], one
// for each step of [7 8]; none for [0], [6] and [9].
const int kNotesOf[] = {-1, 0, 0, 0, 1, 1, -1, 2, 3, -1};
void tenNotes(ShowNotes& notes) {
    for (int k = 0; k < kNotesPictures; k++) {
        Bitmap b;
        notesBitmap(k, b);
        compress(b, notes.pictures.push(), false);
    }
    for (int n : kNotesOf) notes.of_screen.push(n);
}

// Where a picture of width x height goes in a console box.
Rect fitted(const Rect& box, int width, int height) {
    int w, h;
    fitInto(width, height, box.width, box.height, w, h);
    return placeIn(box, w, h);
}

std::string hhmm(time_t t) {
    char text[8];
    tm local;
    localtime_r(&t, &local);
    snprintf(text, sizeof text, "%02d:%02d", local.tm_hour, local.tm_min);
    return text;
}

bool darkInk(const unsigned char* rgb) { return rgb[0] < 200 && rgb[1] < 200 && rgb[2] < 200; }

// The seconds of a time the console shows ("m:ss" or "h:mm:ss", perhaps followed by a word), or
// -1 when the text is no time.
long secondsOf(const std::string& text) {
    long total = 0;
    int parts = 0;
    size_t i = 0;
    for (; i < text.size() && text[i] != ' '; parts++) {
        size_t end = i;
        while (end < text.size() && isdigit((unsigned char)text[end])) end++;
        if (end == i) return -1;
        total = total * 60 + std::stol(text.substr(i, end - i));
        i = end;
        if (i < text.size() && text[i] == ':') i++;
    }
    return parts >= 2 ? total : -1;
}

// Console tests on one two-monitor server (the fixture's type parameter).
template <class Server>
class ConsoleTest : public Presenting<Server> {
protected:
    ConsoleLayout layout_ = consoleLayout(kLaptop.width, kLaptop.height, false);
    Window console_ = 0;

    std::string notesArchive(const TestShow& show) {
        std::string path = this->tmp_.file("notes.slides");
        ShowNotes notes;
        tenNotes(notes);
        if (access(path.c_str(), R_OK) != 0) writeShow(path, show, &notes);
        layout_ = consoleLayout(kLaptop.width, kLaptop.height, true);
        return path;
    }

    // Finds the console window of the running viewer.
    bool findConsole() {
        console_ = waitForWindow(this->look_, kConsoleTitle, kSettleMs);
        return console_ != 0;
    }

    // The console's pixels in the rectangle.
    Pixels capture(const Rect& r) { return captureArea(this->look_, console_, r.x, r.y, r.width, r.height); }

    // Waits until the box shows `ref` (Pillow's resample) at `at`.
    testing::AssertionResult pictured(const Rect& at, const Bitmap* ref, const std::string& what) {
        if (!ref) return testing::AssertionFailure() << "Pillow made no reference";
        Difference d;
        bool same = within(kSettleMs, [&] {
            d = compareWithReference(capture(at), *ref, Rect{0, 0, at.width, at.height}, Server::depth, false);
            return d.problem.empty() && d.mean <= 0.75;
        });
        if (same) return testing::AssertionSuccess();
        return testing::AssertionFailure() << what << " not shown: mean difference " << d.mean << " " << d.problem;
    }

    // Waits until the box shows screen i of the show.
    testing::AssertionResult showsScreen(const Rect& box, const TestShow& show, int i) {
        Rect at = fitted(box, show.width, show.height);
        return pictured(at, references().get(show, i, at.width, at.height), "screen " + std::to_string(i));
    }

    testing::AssertionResult showsNotes(int k) {
        std::vector<std::unique_ptr<Bitmap>> bitmaps;
        std::vector<const Bitmap*> pictures;
        for (int n = 0; n < kNotesPictures; n++) {
            bitmaps.emplace_back(new Bitmap);
            notesBitmap(n, *bitmaps.back());
            pictures.push_back(bitmaps.back().get());
        }
        Rect at = fitted(layout_.notes, 200, 150);
        return pictured(at, references().get("notes", pictures, k, at.width, at.height),
                        "notes picture " + std::to_string(k));
    }

    // Waits until the notes box shows nothing (the console's dark background only).
    testing::AssertionResult showsNoNotes() {
        const Rect& box = layout_.notes;
        bool empty = within(kSettleMs, [&] {
            Pixels p = capture(box);
            if (p.width == 0) return false;
            for (int y = 0; y < box.height; y++)
                for (int x = 0; x < box.width; x++)
                    if ((p.rgbAt(x, y) & 0xC0C0C0) != 0) return false;
            return true;
        });
        if (empty) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the notes box is not empty";
    }

    std::string read(const TextField& f) { return readText(capture(f.area), 0, 0, f.scale, f.chars); }

    // The colour of the line's text, 0xRRGGBB.
    long colourOf(const TextField& f) { return inkColour(capture(f.area), 0, 0, f.scale, f.chars); }

    // Waits until the line reads `want`.
    testing::AssertionResult reads(const TextField& f, const std::string& want) {
        std::string got;
        if (within(kSettleMs, [&] { return (got = read(f)) == want; })) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the line reads \"" << got << "\", not \"" << want << "\"";
    }

    // Waits until the text centred in the box (as the console centres its labels) reads `want`.
    testing::AssertionResult labelled(const Rect& box, const std::string& want, const Ink& ink = lightInk) {
        int s = layout_.scale, n = (int)want.size();
        Rect text = {box.x + box.width / 2 - 15 * s * n / 2, box.y + box.height / 2 - 12 * s, 15 * s * n, 24 * s};
        std::string got;
        if (within(kSettleMs, [&] { return (got = readText(capture(text), 0, 0, s, n, ink)) == want; }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the label reads \"" << got << "\", not \"" << want << "\"";
    }
};

// ---- without a window manager, at depths 24 and 16 -----------------------------------------------

template <class Server>
class ConsoleBare : public ConsoleTest<Server> {};
using BareServers = testing::Types<Bare24, Bare16>;
TYPED_TEST_SUITE(ConsoleBare, BareServers);

TYPED_TEST(ConsoleBare, FillsTheOtherMonitorAndFollowsEveryMove) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(this->findConsole());
    EXPECT_TRUE(this->placed(this->console_, kLaptop));
    EXPECT_TRUE(this->placed(v.window(), kProjector));
    XClassHint hint = {};
    ASSERT_TRUE(XGetClassHint(this->look_, this->console_, &hint));
    EXPECT_STREQ(hint.res_name, "view_slides");
    XFree(hint.res_name);
    XFree(hint.res_class);

    const ConsoleLayout& l = this->layout_;
    EXPECT_TRUE(this->presents(v, show, 0, kTenOnProjector));
    EXPECT_TRUE(this->showsScreen(l.current, show, 0));
    EXPECT_TRUE(this->showsScreen(l.next, show, 1));
    // Each key and the screen it leads to.
    const std::vector<std::pair<std::string, int>> moves = {
        {"space", 1}, {"space", 2}, {"BackSpace", 1}, {"Down", 3}, {"Next", 4}, {"Home", 0}, {"4", -1}, {"Return", 6}};
    for (const auto& move : moves) {
        v.key(move.first);
        if (move.second < 0) continue;
        EXPECT_TRUE(this->showsScreen(l.current, show, move.second)) << move.first;
        EXPECT_TRUE(this->showsScreen(l.next, show, move.second + 1)) << move.first;
    }
    EXPECT_TRUE(this->presents(v, show, 6, kTenOnProjector));
    v.key("End");
    EXPECT_TRUE(this->showsScreen(l.current, show, 9));
    EXPECT_TRUE(this->labelled(l.next, "end of talk"));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(ConsoleBare, CountsSlidesAndSteps) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(this->findConsole());
    const ConsoleLayout& l = this->layout_;
    EXPECT_TRUE(this->reads(l.slide, "slide 1 / 6"));
    EXPECT_TRUE(this->reads(l.step, ""));  // a slide of one screen has no steps
    v.key("space");
    EXPECT_TRUE(this->reads(l.slide, "slide 2 / 6"));
    EXPECT_TRUE(this->reads(l.step, "step 1 / 3"));
    v.key("space");
    EXPECT_TRUE(this->reads(l.step, "step 2 / 3"));
    v.key("Next");
    EXPECT_TRUE(this->reads(l.step, "step 3 / 3"));
    v.key("space");
    EXPECT_TRUE(this->reads(l.slide, "slide 3 / 6"));
    EXPECT_TRUE(this->reads(l.step, "step 1 / 2"));
    v.key("End");
    EXPECT_TRUE(this->reads(l.slide, "slide 6 / 6"));
    EXPECT_TRUE(this->reads(l.step, ""));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(ConsoleBare, BlankIsShownMarkedAndNextIsTheScreenItCovers) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(this->findConsole());
    const ConsoleLayout& l = this->layout_;
    Rect at = fitted(l.current, show.width, show.height);
    v.key("space");
    EXPECT_TRUE(this->showsScreen(l.current, show, 1));
    v.key("b");
    EXPECT_TRUE(this->blank(v, 0));
    EXPECT_TRUE(this->labelled(at, "blank"));
    EXPECT_TRUE(this->showsScreen(l.next, show, 1));  // Space only ends the blank
    Pixels p = this->capture(at);
    ASSERT_EQ(p.width, at.width);
    EXPECT_EQ(p.rgbAt(2, 2), 0u);  // black where the audience sees black
    EXPECT_EQ(p.rgbAt(at.width - 3, at.height - 3), 0u);
    v.key("space");
    EXPECT_TRUE(this->showsScreen(l.current, show, 1));
    EXPECT_TRUE(this->showsScreen(l.next, show, 2));
    v.key("w");
    EXPECT_TRUE(this->blank(v, 255));
    EXPECT_TRUE(this->labelled(at, "blank", darkInk));
    EXPECT_EQ(this->capture(Rect{at.x, at.y, 4, 4}).rgbAt(2, 2), 0xFFFFFFu);
    EXPECT_EQ(v.quitWith("q"), 0);
}

TYPED_TEST(ConsoleBare, NotesShowForTheScreensThatHaveThem) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->notesArchive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(this->findConsole());
    EXPECT_TRUE(this->showsScreen(this->layout_.current, show, 0));
    for (int screen = 0; screen < show.count(); screen++) {
        if (screen > 0) v.key("space");
        if (screen + 1 < show.count()) {
            EXPECT_TRUE(this->showsScreen(this->layout_.next, show, screen + 1));
        }
        if (kNotesOf[screen] < 0)
            EXPECT_TRUE(this->showsNoNotes()) << "screen " << screen;
        else
            EXPECT_TRUE(this->showsNotes(kNotesOf[screen])) << "screen " << screen;
    }
    EXPECT_TRUE(this->showsScreen(this->layout_.current, show, 9));
    v.key("Up");  // back to slide [7 8], its last step
    EXPECT_TRUE(this->showsNotes(3));
    EXPECT_EQ(v.quitWith("q"), 0);
}

// ---- without a window manager, at depth 24 -------------------------------------------------------

using ConsoleBare24 = ConsoleTest<Bare24>;

TEST_F(ConsoleBare24, TimerStartsAtTheFirstMoveAndTRestartsIt) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    EXPECT_TRUE(reads(layout_.elapsed, "0:00"));
    sleepMs(1500);
    EXPECT_EQ(read(layout_.elapsed), "0:00") << "the clock ran before the talk started";
    v.key("space");
    std::string elapsed;
    EXPECT_TRUE(within(kSettleMs, [&] { return secondsOf(elapsed = read(layout_.elapsed)) >= 2; })) << elapsed;
    v.key("t");
    EXPECT_TRUE(within(2000, [&] { return secondsOf(elapsed = read(layout_.elapsed)) == 0; })) << elapsed;
    EXPECT_TRUE(within(3000, [&] { return secondsOf(elapsed = read(layout_.elapsed)) >= 1; })) << elapsed;
    EXPECT_TRUE(showsScreen(layout_.current, show, 1)) << "t moved the show";
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ConsoleBare24, StartRunsTheClockAndTheTimeLeftTurnsAmberThenRed) {
    TestShow show = tenScreens();
    // Three seconds: the last five minutes from the start.
    RunningViewer v(*this->server, show, this->archive(show), {"-console", "-start=2", "-duration=0.05"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    EXPECT_TRUE(showsScreen(layout_.current, show, 1));
    const TextField& left = layout_.left;
    std::string text = read(left);
    EXPECT_TRUE(text == "0:03 left" || text == "0:02 left" || text == "0:01 left") << text;
    EXPECT_EQ(colourOf(left), 0xFFB000);
    std::string elapsed;
    EXPECT_TRUE(within(4000, [&] { return secondsOf(elapsed = read(layout_.elapsed)) >= 2; }))
        << "the clock does not run: " << elapsed;
    EXPECT_TRUE(within(4000, [&] { return (text = read(left)) == "0:01 over" || text == "0:02 over"; })) << text;
    EXPECT_EQ(colourOf(left), 0xFF4040);
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ConsoleBare24, LongTalkLeftIsWhiteAndTheWallClockShowsTheTime) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-duration=45"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    EXPECT_TRUE(reads(layout_.left, "45:00 left"));  // the talk has not started
    EXPECT_EQ(colourOf(layout_.left), 0xFFFFFF);
    time_t before = time(nullptr);
    std::string clock = read(layout_.clock);
    time_t after = time(nullptr);
    EXPECT_TRUE(clock == hhmm(before) || clock == hhmm(after) || clock == hhmm(before - 1)) << clock;
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ConsoleBare24, KeysAndClicksInTheConsoleWindowDriveTheShow) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    XSetInputFocus(look_, console_, RevertToParent, CurrentTime);
    XSync(look_, False);
    v.key("space");
    EXPECT_TRUE(presents(v, show, 1, kTenOnProjector));
    EXPECT_TRUE(showsScreen(layout_.current, show, 1));
    server->xdotool({"mousemove", "600", "300"});  // over the console
    v.click(1);
    EXPECT_TRUE(presents(v, show, 2, kTenOnProjector));
    v.click(3);
    EXPECT_TRUE(presents(v, show, 1, kTenOnProjector));
    v.key("period");
    EXPECT_TRUE(blank(v, 0));
    v.key("Escape");
    EXPECT_TRUE(presents(v, show, 1, kTenOnProjector));
    v.key("3");
    v.key("g");
    EXPECT_TRUE(presents(v, show, 4, kTenOnProjector));
    EXPECT_TRUE(showsScreen(layout_.current, show, 4));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ConsoleBare24, ExposureRepaintsTheConsole) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    EXPECT_TRUE(showsScreen(layout_.current, show, 0));
    XSetWindowAttributes attr = {};
    attr.override_redirect = True;
    attr.background_pixel = WhitePixel(look_, DefaultScreen(look_));
    Window cover = XCreateWindow(look_, DefaultRootWindow(look_), 0, 0, kLaptop.width, kLaptop.height, 0,
                                 CopyFromParent, InputOutput, CopyFromParent, CWOverrideRedirect | CWBackPixel, &attr);
    XMapRaised(look_, cover);
    XSync(look_, False);
    EXPECT_TRUE(within(kSettleMs, [&] {
        Pixels p = captureWindow(look_, DefaultRootWindow(look_));
        return p.width && p.rgbAt(100, 100) == 0xFFFFFFu;
    }));
    XDestroyWindow(look_, cover);
    XSync(look_, False);
    EXPECT_TRUE(showsScreen(layout_.current, show, 0));
    EXPECT_TRUE(reads(layout_.slide, "slide 1 / 6"));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ConsoleBare24, NewSizeIsLaidOutAnew) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    v.key("space");
    EXPECT_TRUE(showsScreen(layout_.current, show, 1));
    XResizeWindow(look_, console_, 1000, 700);
    XSync(look_, False);
    layout_ = consoleLayout(1000, 700, false);
    EXPECT_TRUE(showsScreen(layout_.current, show, 1));
    EXPECT_TRUE(showsScreen(layout_.next, show, 2));
    EXPECT_TRUE(reads(layout_.step, "step 1 / 3"));
    EXPECT_EQ(v.quitWith("q"), 0);
}

// Notes that cannot be read: a damaged notes block stops the show before it starts; a notes
// picture that does not decode is said to be unreadable in the notes box.
TEST_F(ConsoleBare24, DamagedNotes) {
    TestShow show = tenScreens();
    ShowNotes notes;
    tenNotes(notes);
    notes.pictures[1].clear();
    for (int b : {1, 2, 3}) notes.pictures[1].push((unsigned char)b);
    std::string path = tmp_.file("broken.slides");
    writeShow(path, show, &notes);
    {
        layout_ = consoleLayout(kLaptop.width, kLaptop.height, true);
        RunningViewer v(*this->server, show, path, {"-console", "-start=3"});  // screen 4: picture 1
        ASSERT_TRUE(v.ok());
        ASSERT_TRUE(findConsole());
        EXPECT_TRUE(showsScreen(layout_.current, show, 4));
        EXPECT_TRUE(labelled(layout_.notes, "notes unreadable"));
        v.key("BackSpace");
        EXPECT_TRUE(showsNotes(0));
        EXPECT_EQ(v.quitWith("q"), 0);
    }
    std::string bytes = readFileBytes(path);
    size_t magic = bytes.find("SLNOTES1");
    ASSERT_NE(magic, std::string::npos);
    size_t block = 0;
    for (int k = 7; k >= 0; k--) block = block << 8 | (unsigned char)bytes[magic - 8 + k];
    bytes[block] = 0x7F;  // far more pictures than the block holds
    writeFileBytes(path, bytes);
    RunResult r = server->run({buildProgram("view_slides"), path, "-console"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "ERROR! The show's notes are damaged.\n");
    RunResult plain = server->run({buildProgram("view_slides"), path, "-png-slides"}, tmp_.path);
    EXPECT_EQ(plain.status, 0) << "without the console the notes are not read: " << plain.err;
}

// A talk made for a second screen, packed with its notes, shows them: a deck of four pages
// (slides [1] [2 2+step] [3]) written as a PDF with a notes page beside every slide by
// make_notes_pdf, which leaves slide 3's notes blank, and packed with --notes right.
TEST_F(ConsoleBare24, PackedNotesPdfShowsItsNotes) {
    const char* pages[] = {"p1.png 0", "p2.png 0", "p3.png 1", "p4.png 0"};
    std::string list;
    for (int i = 0; i < 4; i++) {
        Bitmap page;
        page.data = allocPixels(400, 300);
        page.width = 400;
        page.height = 300;
        for (int k = 0; k < 400 * 300; k++)
            page.data[k] = Color{(unsigned char)(40 * i), (unsigned char)(k % 400 / 2), (unsigned char)(k / 400), 0};
        std::string name = std::string(pages[i]).substr(0, 6);
        ASSERT_TRUE(writePng(tmp_.file(name).c_str(), page));
        list += std::string(pages[i]) + "\n";
    }
    writeFileBytes(tmp_.file("slides.txt"), list);
    RunResult made = runProgram({buildProgram("make_notes_pdf"), tmp_.path, tmp_.file("talk.pdf"), "right"});
    ASSERT_EQ(made.status, 0) << made.err;
    std::string archive = tmp_.file("talk.slides");
    RunResult packed = runProgram({buildProgram("pack_slides"), tmp_.file("talk.pdf"), "--notes", "right", "--size",
                                   "400x300", "--archive", archive, "--verify"});
    ASSERT_EQ(packed.status, 0) << packed.err;

    // The notes as the archive holds them, decoded: the console must show these.
    ArchiveIndex index;
    ShowNotes notes;
    ASSERT_EQ(readArchiveNotes(archive, index, notes), nullptr);
    ASSERT_EQ(notes.pictures.size, 2);
    const int notes_of[] = {0, 1, 1, -1};
    std::vector<std::unique_ptr<Bitmap>> bitmaps;
    std::vector<const Bitmap*> pictures;
    for (int k = 0; k < 2; k++) {
        bitmaps.emplace_back(new Bitmap);
        const unsigned char* bytes = notes.pictures[k].data;
        ASSERT_EQ(decompress(*bitmaps.back(), bytes, notes.pictures[k].data + notes.pictures[k].size), nullptr);
        pictures.push_back(bitmaps.back().get());
    }

    layout_ = consoleLayout(kLaptop.width, kLaptop.height, true);
    TestShow show = {400, 300, {false, false, true, false}};
    RunningViewer v(*this->server, show, archive, {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    for (int screen = 0; screen < 4; screen++) {
        if (screen > 0) v.key("space");
        int k = notes_of[screen];
        if (k < 0) {
            EXPECT_TRUE(showsNoNotes()) << "screen " << screen;
            continue;
        }
        Rect at = fitted(layout_.notes, pictures[k]->width, pictures[k]->height);
        EXPECT_TRUE(pictured(at, references().get("packed notes", pictures, k, at.width, at.height),
                             "packed notes " + std::to_string(k)))
            << "screen " << screen;
    }
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ConsoleBare24, ClosingTheConsoleEndsTheShow) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    sendCloseRequest(look_, console_);
    EXPECT_EQ(v.finish(), 0);
}

TEST_F(ConsoleBare24, ShowOnTheLaptopPutsTheConsoleOnTheProjector) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->archive(show), {"-monitor=laptop", "--console"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(findConsole());
    EXPECT_TRUE(placed(v.window(), kLaptop));
    EXPECT_TRUE(placed(console_, kProjector));
    layout_ = consoleLayout(kProjector.width, kProjector.height, false);
    EXPECT_TRUE(showsScreen(layout_.current, show, 0));
    EXPECT_TRUE(reads(layout_.slide, "slide 1 / 6"));
    EXPECT_EQ(v.quitWith("q"), 0);
}

TEST_F(ConsoleBare24, ConsoleMonitorMustBeAnotherOne) {
    TestShow show = tenScreens();
    std::string view = buildProgram("view_slides");
    const char* projector = "ERROR! The show is presented on monitor 1 projector 1920x1080+1366+0; the console needs "
                            "another one.\n";
    for (const char* same : {"-console-monitor=projector", "-console-monitor=1"}) {
        RunResult r = server->run({view, archive(show), same});
        EXPECT_EQ(r.status, 1) << same;
        EXPECT_EQ(r.err, projector) << same;
    }
    RunResult laptop = server->run({view, archive(show), "-monitor=0", "-console-monitor=laptop"});
    EXPECT_EQ(laptop.status, 1);
    EXPECT_EQ(laptop.err, "ERROR! The show is presented on monitor 0 laptop 1366x768+0+0 primary; the console needs "
                          "another one.\n");
    RunResult unknown = server->run({view, archive(show), "-console-monitor=beamer"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, "ERROR! There is no monitor beamer; the monitors are: 0 laptop 1366x768+0+0 primary, 1 "
                           "projector 1920x1080+1366+0.\n");
    RunResult list = server->run({view, archive(show), "-console-monitor=[1;2]"});
    EXPECT_EQ(list.status, 10);
    EXPECT_EQ(list.err, "ERROR! Expected a monitor number or name as argument to switch: console-monitor\n");
}

// ---- with openbox, at depths 24 and 16 ----------------------------------------------------------------

template <class Server>
class ConsoleOpenbox : public ConsoleTest<Server> {};
using OpenboxServers = testing::Types<Openbox24, Openbox16>;
TYPED_TEST_SUITE(ConsoleOpenbox, OpenboxServers);

TYPED_TEST(ConsoleOpenbox, BothWindowsFullScreenOnTheirMonitors) {
    TestShow show = tenScreens();
    RunningViewer v(*this->server, show, this->notesArchive(show), {"-console", "-duration=30"});
    ASSERT_TRUE(v.ok());
    ASSERT_TRUE(this->findConsole());
    EXPECT_TRUE(this->placed(this->console_, kLaptop));
    EXPECT_TRUE(this->placed(v.window(), kProjector));
    EXPECT_TRUE(within(kSettleMs, [&] { return hasFullscreenState(this->look_, this->console_); }));
    EXPECT_TRUE(within(kSettleMs, [&] { return hasFullscreenState(this->look_, v.window()); }));
    v.key("space");
    EXPECT_TRUE(this->presents(v, show, 1, kTenOnProjector));
    EXPECT_TRUE(this->showsScreen(this->layout_.current, show, 1));
    EXPECT_TRUE(this->showsScreen(this->layout_.next, show, 2));
    EXPECT_TRUE(this->showsNotes(0));
    EXPECT_TRUE(this->reads(this->layout_.step, "step 1 / 3"));
    std::string left = this->read(this->layout_.left);  // how much depends on how long the test took
    EXPECT_TRUE(secondsOf(left) > 0 && left.find(" left") != std::string::npos) << left;
    EXPECT_EQ(v.quitWith("q"), 0);
}

// ---- bad input and exports ------------------------------------------------------------------------

TEST(ConsoleErrors, OneMonitorIsNotEnough) {
    XServer x(24, 1280, 1024);
    if (!x.ok()) GTEST_SKIP() << x.error();
    TempDir tmp;
    writeShow(tmp.file("show.slides"), tenScreens());
    RunResult r = x.run({buildProgram("view_slides"), tmp.file("show.slides"), "-console"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.rfind("ERROR! The console needs a second monitor; the only one is 0 ", 0), 0u) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
}

TEST(ConsoleErrors, DurationIsAPositiveNumberOfMinutes) {
    TempDir tmp;
    writeShow(tmp.file("show.slides"), tenScreens());
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"-duration=0", "ERROR! The talk's duration is a number of minutes above 0 and at most 1440: duration=0\n"},
        {"-duration=-5", "ERROR! The talk's duration is a number of minutes above 0 and at most 1440: duration=-5\n"},
        {"-duration=2000",
         "ERROR! The talk's duration is a number of minutes above 0 and at most 1440: duration=2000\n"},
        {"-duration=abc", "ERROR! Expected number as argument to switch: duration\n"},
        {"-duration", "ERROR! Expected number as argument to switch: duration\n"},
    };
    for (const auto& b : bad) {
        RunResult r = runProgram({buildProgram("view_slides"), tmp.file("show.slides"), b.first}, "", {"DISPLAY=:1999"});
        EXPECT_EQ(r.status, 10) << b.first;
        EXPECT_EQ(r.err, b.second) << b.first;
    }
}

TEST(ConsoleErrors, ConsoleWithoutADisplayIsTheDisplayError) {
    TempDir tmp;
    writeShow(tmp.file("show.slides"), tenScreens());
    RunResult r = runProgram({buildProgram("view_slides"), tmp.file("show.slides"), "-console"}, "", {"DISPLAY=:1999"});
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.out.find("Error: Could not open display.\n"), std::string::npos) << r.out;
}

TEST(ConsoleErrors, HelpListsTheConsole) {
    RunResult r = runProgram({buildProgram("view_slides"), "-help"}, "", {"DISPLAY=:1999"});
    EXPECT_EQ(r.status, 0);
    for (const char* text : {"-console ", "-console-monitor=N|NAME", "-duration=MIN", "Restart the talk's clock"})
        EXPECT_NE(r.out.find(text), std::string::npos) << text;
}

std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = opendir(folder.c_str());
    if (!dir) return names;
    while (dirent* e = readdir(dir))
        if (e->d_name[0] != '.') names.push_back(e->d_name);
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

// The notes are invisible to the exports: the same files, byte for byte, with or without them
// (and -console changes nothing when exporting).
TEST(ConsoleExports, ShowWithNotesExportsTheFilesOfTheShowWithout) {
    TempDir tmp;
    TestShow show = tenScreens();
    ShowNotes notes;
    tenNotes(notes);
    writeShow(tmp.file("plain.slides"), show);
    writeShow(tmp.file("notes.slides"), show, &notes);
    EXPECT_NE(readFileBytes(tmp.file("plain.slides")), readFileBytes(tmp.file("notes.slides")));
    for (const char* mode : {"-png-screens", "-png-slides"}) {
        std::vector<std::vector<std::string>> runs = {
            {"plain.slides", mode}, {"notes.slides", mode}, {"notes.slides", mode, "-console"}};
        std::vector<std::string> folders;
        for (size_t k = 0; k < runs.size(); k++) {
            std::string folder = tmp.file(std::string(mode + 1) + std::to_string(k));
            mkdir(folder.c_str(), 0755);
            std::vector<std::string> argv = {buildProgram("view_slides"), tmp.file(runs[k][0])};
            argv.insert(argv.end(), runs[k].begin() + 1, runs[k].end());
            RunResult r = runProgram(argv, folder, {"DISPLAY=:1999"});
            EXPECT_EQ(r.status, 0) << mode << " " << r.err;
            folders.push_back(folder);
        }
        std::vector<std::string> names = filesIn(folders[0]);
        EXPECT_EQ(names.size(), std::string(mode) == "-png-screens" ? 10u : 6u) << mode;
        for (size_t k = 1; k < folders.size(); k++) {
            EXPECT_EQ(filesIn(folders[k]), names) << mode;
            for (const std::string& name : names)
                EXPECT_EQ(readFileBytes(folders[k] + "/" + name), readFileBytes(folders[0] + "/" + name))
                    << mode << " " << name;
        }
    }
}

}  // namespace
