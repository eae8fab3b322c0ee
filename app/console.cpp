// The console draws straight into its window's frame buffer, remembers what each part shows and
// sends only the parts that changed. Pictures are fitted to their boxes with the projector's
// filter and kept in a small cache; notes are decoded only to make their picture.
#include "app/console.h"

#include <time.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "codec/codec.h"
#include "display/console_win.h"
#include "display/win.h"
#include "display/winstd.h"

namespace {

const char* const title = "view_slides console";
const Color background = {32, 32, 32, 0};
const Color label_grey = {150, 150, 150, 0};
const Color paper = {255, 255, 255, 0};  // what see-through pixels of a notes picture show

// Pictures of the screens before, at and after the current one in the current box and the
// next box, and their notes.
const int KEPT_PICTURES = 10;

double now() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec + t.tv_nsec * 1e-9;
}

Canvas canvas() { return Canvas{console_win.data, console_win.width, console_win.height}; }

bool sameView(const AudienceView& a, const AudienceView& b) {
    return a.screen == b.screen && a.blank == b.blank && (!a.blank || a.blank_color == b.blank_color);
}

bool inside(const Rect& in, const Rect& r) {
    return r.x >= in.x && r.y >= in.y && r.x + r.width <= in.x + in.width && r.y + r.height <= in.y + in.height;
}

// The pictures that a move from screen c would need, in the order they are made ahead.
enum Box { CURRENT, NEXT, NOTES };
struct Ahead {
    Box box;
    int offset;  // from c
};
const Ahead ahead[] = {{CURRENT, 1}, {NEXT, 2}, {NOTES, 1}, {NEXT, 1}, {CURRENT, -1}, {NEXT, 0}, {NOTES, -1}};

}  // namespace

Console::Console(vec<Image>& images, const vec<bool>& flags, const ConsoleOptions& options,
                 const AudienceView& first)
    : images_(images), flags_(flags), options_(options), pictures_(KEPT_PICTURES), first_(first) {
    openConsoleWin(*options.monitor, title);
    layout_ = consoleLayout(console_win.width, console_win.height, hasNotes());
    if (options.clock_running) started_ = now();
    follow(first);
}

Console::~Console() { closeConsoleWin(); }

double Console::elapsed() const { return started_ < 0 ? 0 : now() - started_; }

void Console::follow(const AudienceView& view) {
    if (started_ < 0 && !sameView(view, first_)) started_ = now();
    if (!shown_.drawn) {
        drawAll(view);
    } else {
        if (!sameView(view, shown_.view)) drawCurrent(view);
        if (nextScreen(view) != shown_.next) drawNext(nextScreen(view));
        if (hasNotes() && options_.notes->of(view.screen) != shown_.notes) drawNotes(view.screen);
    }
    shown_.view = view;
    prepared_ = 0;
    updateLines(view);
    updateClocks();
    send();
}

void Console::resetClock() {
    started_ = now();
    updateClocks();
    send();
}

int Console::msToTick() const {
    if (started_ >= 0) {
        double e = now() - started_;
        return (int)((floor(e) + 1 - e) * 1000) + 1;
    }
    timespec t;
    clock_gettime(CLOCK_REALTIME, &t);
    return 1000 - (int)(t.tv_nsec / 1000000);
}

void Console::tick() {
    updateClocks();
    send();
}

bool Console::prepare() {
    int c = shown_.view.screen;
    while (prepared_ < (int)(sizeof ahead / sizeof ahead[0])) {
        const Ahead& a = ahead[prepared_++];
        int screen = c + a.offset;
        if (screen < 0 || screen >= images_.size) continue;
        if (a.box == NOTES) {
            if (!hasNotes() || !options_.notes->of(screen) || notesPicture(screen, false)) continue;
            notesPicture(screen, true);
            return true;
        }
        const Rect& box = a.box == CURRENT ? layout_.current : layout_.next;
        if (pictures_.has(images_[screen], box.width, box.height)) continue;
        pictures_.get(images_[screen], box.width, box.height);
        return true;
    }
    return false;
}

void Console::resized() {
    layout_ = consoleLayout(console_win.width, console_win.height, hasNotes());
    shown_.drawn = false;
    AudienceView view = shown_.view;  // drawing everything starts from nothing shown
    follow(view);
}

void Console::drawAll(const AudienceView& view) {
    shown_ = Shown();
    shown_.drawn = true;
    fill(Rect{0, 0, console_win.width, console_win.height}, background);
    drawCurrent(view);
    drawNext(nextScreen(view));
    if (hasNotes()) drawNotes(view.screen);
}

// A blank shows as the picture's place in the blank's colour, marked.
void Console::drawCurrent(const AudienceView& view) {
    const Rect& box = layout_.current;
    const Image& image = images_[view.screen];
    if (!view.blank) return drawPicture(box, pictures_.get(image, box.width, box.height));
    int w = 1, h = 1;
    if (imagePixelCount(image)) fitInto(image.width, image.height, box.width, box.height, w, h);
    Rect at = placeIn(box, w, h);
    fill(box, background);
    fill(at, view.blank_color);
    drawLabel(at, "blank");
}

void Console::drawNext(int next) {
    shown_.next = next;
    const Rect& box = layout_.next;
    if (next < images_.size) return drawPicture(box, pictures_.get(images_[next], box.width, box.height));
    fill(box, background);
    drawLabel(box, "end of talk");
}

void Console::drawNotes(int screen) {
    shown_.notes = options_.notes->of(screen);
    const Picture* p = notesPicture(screen, true);
    if (p) return drawPicture(layout_.notes, *p);
    fill(layout_.notes, background);
    if (shown_.notes) drawLabel(layout_.notes, "notes unreadable");
}

// The notes picture of the screen for the notes box: the kept one, or (when `make`) one made
// from the decoded notes; null when the screen has no notes or they cannot be decoded. The
// decoded page's pixels are reused from one notes picture to the next of the same size.
const Picture* Console::notesPicture(int screen, bool make) {
    const vec<unsigned char>* stream = options_.notes->of(screen);
    if (!stream) return nullptr;
    const Rect& box = layout_.notes;
    const Picture* p = pictures_.find(stream, box.width, box.height);
    if (p || !make) return p;
    const unsigned char* in = stream->data;
    if (decompressOver(notes_page_, paper, in, in + stream->size)) return nullptr;
    return &pictures_.make(stream, sourceOf(notes_page_), box.width, box.height);
}

void Console::drawPicture(const Rect& box, const Picture& p) {
    Rect at = placeIn(box, p.width, p.height);
    fill(Rect{box.x, box.y, box.width, at.y - box.y}, background);
    fill(Rect{box.x, at.y + at.height, box.width, box.y + box.height - at.y - at.height}, background);
    fill(Rect{box.x, at.y, at.x - box.x, at.height}, background);
    fill(Rect{at.x + at.width, at.y, box.x + box.width - at.x - at.width, at.height}, background);
    for (int y = 0; y < p.height; y++)
        memcpy(console_win.data + (size_t)(at.y + y) * console_win.width + at.x, p.pixels.data + (size_t)y * p.width,
               (size_t)p.width * sizeof(Color));
    markDirty(box);
}

void Console::drawLabel(const Rect& box, const char* text) {
    putBigTextOn(canvas(), text, box.x + box.width / 2, box.y + box.height / 2, label_grey, 0, 0, layout_.scale);
    markDirty(box);
}

void Console::fill(const Rect& r, Color c) {
    for (int y = r.y; y < r.y + r.height; y++) {
        Color* row = console_win.data + (size_t)y * console_win.width;
        for (int x = r.x; x < r.x + r.width; x++) row[x] = c;
    }
    markDirty(r);
}

void Console::drawField(const TextField& f, const Line& text, Color colour) {
    char shown[sizeof text.text];
    snprintf(shown, sizeof shown, "%.*s", f.chars, text.text);
    fill(f.area, background);
    putBigTextOn(canvas(), shown, f.area.x, f.area.y, colour, 2, 2, f.scale);
}

void Console::updateLines(const AudienceView& view) {
    Position p = positionOf(flags_, view.screen);
    Line slide = slideLine(p), step = stepLine(p);
    if (slide != shown_.slide) drawField(layout_.slide, slide, text_white);
    if (step != shown_.step) drawField(layout_.step, step, text_white);
    shown_.slide = slide;
    shown_.step = step;
}

void Console::updateClocks() {
    double e = elapsed();
    Line passed = durationLine((long long)e), clock = clockLine(time(nullptr));
    if (passed != shown_.elapsed) drawField(layout_.elapsed, passed, text_white);
    if (clock != shown_.clock) drawField(layout_.clock, clock, text_white);
    shown_.elapsed = passed;
    shown_.clock = clock;
    if (options_.duration <= 0) return;
    Line left = leftLine(e, options_.duration);
    Color colour = leftColour(e, options_.duration);
    if (left != shown_.left || colour != shown_.left_colour) drawField(layout_.left, left, colour);
    shown_.left = left;
    shown_.left_colour = colour;
}

// A rectangle inside one already marked is not marked again, and those inside it are dropped;
// when too many are marked, the whole window is.
void Console::markDirty(const Rect& r) {
    if (r.width <= 0 || r.height <= 0) return;
    int kept = 0;
    for (int i = 0; i < dirty_count_; i++) {
        if (inside(dirty_[i], r)) return;
        if (!inside(r, dirty_[i])) dirty_[kept++] = dirty_[i];
    }
    dirty_count_ = kept;
    if (dirty_count_ == MOST_DIRTY) {
        dirty_[0] = Rect{0, 0, console_win.width, console_win.height};
        dirty_count_ = 1;
        return;
    }
    dirty_[dirty_count_++] = r;
}

void Console::send() {
    for (int i = 0; i < dirty_count_; i++) {
        const Rect& r = dirty_[i];
        sendRect(console_win, r.x, r.y, r.x + r.width, r.y + r.height);
    }
    dirty_count_ = 0;
    XFlush(display);
}
