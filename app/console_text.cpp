#include "app/console_text.h"

#include <cmath>
#include <cstdio>
#include <cstring>

bool operator==(const Line& a, const Line& b) { return strcmp(a.text, b.text) == 0; }

Position positionOf(const vec<bool>& flags, int screen) {
    Position p = {0, 0, 0, 0};
    for (int i = 0; i < flags.size; i++) {
        bool starts = i == 0 || !flags[i];
        if (starts) p.slides++;
        if (i <= screen && starts) p.slide = p.slides, p.step = 0, p.steps = 0;
        if (p.slide == p.slides) p.steps++;
        if (i <= screen) p.step++;
    }
    return p;
}

static Line format(const char* fmt, long long a, long long b, long long c = 0) {
    Line l;
    snprintf(l.text, sizeof l.text, fmt, a, b, c);
    return l;
}

Line slideLine(const Position& p) { return format("slide %lld / %lld", p.slide, p.slides); }

Line stepLine(const Position& p) {
    if (p.steps < 2) return Line();
    return format("step %lld / %lld", p.step, p.steps);
}

Line durationLine(long long seconds) {
    if (seconds < 0) seconds = 0;
    if (seconds >= 3600) return format("%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return format("%lld:%02lld", seconds / 60, seconds % 60);
}

Line clockLine(time_t t) {
    tm local;
    localtime_r(&t, &local);
    return format("%02lld:%02lld", local.tm_hour, local.tm_min);
}

Line leftLine(double elapsed, double duration) {
    bool over = elapsed >= duration;
    Line l = durationLine(over ? (long long)floor(elapsed - duration) : (long long)ceil(duration - elapsed));
    strncat(l.text, over ? " over" : " left", sizeof l.text - strlen(l.text) - 1);
    return l;
}

Color leftColour(double elapsed, double duration) {
    if (elapsed >= duration) return text_red;
    if (duration - elapsed <= LAST_MINUTES * 60) return text_amber;
    return text_white;
}
