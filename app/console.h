// The presenter's console, in a window of its own on another monitor: the screen the audience
// sees, the one Space shows next, where the talk stands, its clocks and the current screen's
// notes. It redraws only what changed, and makes the pictures the next move needs while idle.
#pragma once
#include "app/console_layout.h"
#include "app/console_text.h"
#include "app/pictures.h"
#include "show/image.h"
#include "show/notes.h"
#include "support/vec.h"

struct Monitor;

struct ConsoleOptions {
    const Monitor* monitor = nullptr;   // the console's monitor; null: no console
    const ShowNotes* notes = nullptr;   // the show's notes, or null
    double duration = 0;                // seconds the talk may last; 0: no time left is shown
    bool clock_running = false;         // the talk's clock runs from the start, not from the first move
};

// What the audience sees: a screen, or a blank of one colour covering it.
struct AudienceView {
    int screen = 0;
    bool blank = false;
    Color blank_color = {0, 0, 0, 0};
};

class Console {
public:
    // Opens the console window (the projector's window must be open) showing `first`.
    Console(vec<Image>& images, const vec<bool>& flags, const ConsoleOptions& options, const AudienceView& first);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Shows what the audience sees now; the talk's clock starts at the first change.
    void follow(const AudienceView& view);
    // The talk's clock starts again from 0.
    void resetClock();
    // Milliseconds until the clocks next change; tick redraws them.
    int msToTick() const;
    void tick();
    // Makes one picture that moving forward or back would need, if one is missing; false when
    // there was none to make.
    bool prepare();
    // Lays everything out and draws it again for the window's new size.
    void resized();

private:
    vec<Image>& images_;
    const vec<bool>& flags_;
    ConsoleOptions options_;
    ConsoleLayout layout_;
    Pictures pictures_;
    AudienceView first_;   // what the audience saw first: the talk starts with the first change
    double started_ = -1;  // when the talk's clock started; negative while it has not
    int prepared_ = 0;     // the pictures looked at ahead since the last change
    Bitmap notes_page_;    // the notes picture decoded last

    // What the window shows; `drawn` false makes the next follow draw everything.
    struct Shown {
        bool drawn = false;
        AudienceView view;
        int next = 0;                   // the screen in the next box; the count of screens: none
        const void* notes = nullptr;
        Line slide, step, elapsed, clock, left;  // empty: nothing drawn
        Color left_colour = {0, 0, 0, 0};
    } shown_;

    static const int MOST_DIRTY = 16;
    Rect dirty_[MOST_DIRTY];
    int dirty_count_ = 0;

    bool hasNotes() const { return options_.notes && !options_.notes->empty(); }
    int nextScreen(const AudienceView& view) const { return view.blank ? view.screen : view.screen + 1; }
    double elapsed() const;

    void drawAll(const AudienceView& view);
    void drawCurrent(const AudienceView& view);
    void drawNext(int next);
    void drawNotes(int screen);
    void drawPicture(const Rect& box, const Picture& p);
    void drawLabel(const Rect& box, const char* text);
    void fill(const Rect& r, Color c);
    void drawField(const TextField& f, const Line& text, Color colour);
    void updateLines(const AudienceView& view);
    void updateClocks();
    const Picture* notesPicture(int screen, bool make);
    void markDirty(const Rect& r);
    void send();
};
