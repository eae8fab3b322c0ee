#include "app/console_layout.h"

static const int GLYPH_WIDTH = 15, GLYPH_HEIGHT = 24;

// Longest texts of the fields.
static const int SLIDE_CHARS = 17;    // "slide 1000 / 1000"
static const int STEP_CHARS = 15;     // "step 100 / 100"
static const int ELAPSED_CHARS = 9;   // "100:00:00"
static const int CLOCK_CHARS = 5;     // "14:05"
static const int LEFT_CHARS = 14;     // "100:00:00 over"
// On one line: the slide, a gap, the elapsed time, a gap, the clock.
static const int LINE_CHARS = SLIDE_CHARS + 1 + ELAPSED_CHARS + 1 + CLOCK_CHARS;

static const int TEXT_HEIGHT_PER_SCALE = 360;  // console rows for each whole factor of the font

static int atLeast(int v, int low) { return v < low ? low : v; }

static TextField field(int x, int y, int chars, int scale) {
    return TextField{Rect{x, y, chars * GLYPH_WIDTH * scale, GLYPH_HEIGHT * scale}, chars, scale};
}

ConsoleLayout consoleLayout(int width, int height, bool notes) {
    ConsoleLayout l = {};
    int m = atLeast(height / 48, 8);
    int by_height = height / TEXT_HEIGHT_PER_SCALE, by_width = (width - 2 * m) / (LINE_CHARS * GLYPH_WIDTH);
    int s = l.scale = atLeast(by_height < by_width ? by_height : by_width, 1);
    int ch = GLYPH_WIDTH * s, line = GLYPH_HEIGHT * s;

    int second = height - m - line, first = second - 6 * s - line;
    int right = width - m - (ELAPSED_CHARS + 1 + CLOCK_CHARS) * ch;
    l.slide = field(m, first, SLIDE_CHARS, s);
    l.step = field(m, second, STEP_CHARS, s);
    l.elapsed = field(right, first, ELAPSED_CHARS, s);
    l.clock = field(width - m - CLOCK_CHARS * ch, first, CLOCK_CHARS, s);
    l.left = field(right, second, LEFT_CHARS, s);

    int main_height = atLeast(first - 2 * m, 1);
    int split = notes ? width * 55 / 100 : width * 62 / 100;
    int right_x = split + m / 2, right_width = atLeast(width - m - right_x, 1);
    l.current = Rect{m, m, atLeast(split - m / 2 - m, 1), main_height};
    if (!notes) {
        l.next = Rect{right_x, m, right_width, atLeast(main_height * 3 / 5, 1)};
        return l;
    }
    l.next = Rect{right_x, m, right_width, atLeast(main_height * 3 / 10, 1)};
    int notes_y = l.next.y + l.next.height + m;
    l.notes = Rect{right_x, notes_y, right_width, atLeast(m + main_height - notes_y, 1)};
    return l;
}
