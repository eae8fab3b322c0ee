// The parts of the presenter's console that need no X: its layout and what its lines say.
#include <gtest/gtest.h>

#include <cstring>

#include "app/console_layout.h"
#include "app/console_text.h"
#include "display/monitors.h"

namespace {

bool overlap(const Rect& a, const Rect& b) {
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
}

bool within(const Rect& r, int width, int height) {
    return r.x >= 0 && r.y >= 0 && r.width > 0 && r.height > 0 && r.x + r.width <= width && r.y + r.height <= height;
}

int pictureArea(const Rect& box, int width, int height) {
    int w, h;
    fitInto(width, height, box.width, box.height, w, h);
    return w * h;
}

struct Size {
    int width, height;
};

TEST(ConsoleLayout, EverythingIsOnTheMonitorAndNothingOverlaps) {
    for (Size s : {Size{1366, 768}, Size{1920, 1080}, Size{1024, 768}, Size{1280, 1024}, Size{3840, 2160},
                   Size{800, 600}}) {
        for (bool notes : {false, true}) {
            ConsoleLayout l = consoleLayout(s.width, s.height, notes);
            std::vector<Rect> parts = {l.current, l.next, l.slide.area, l.step.area, l.elapsed.area, l.clock.area,
                                       l.left.area};
            if (notes) parts.push_back(l.notes);
            for (size_t i = 0; i < parts.size(); i++) {
                EXPECT_TRUE(within(parts[i], s.width, s.height)) << s.width << "x" << s.height << " part " << i;
                for (size_t j = i + 1; j < parts.size(); j++)
                    EXPECT_FALSE(overlap(parts[i], parts[j])) << s.width << "x" << s.height << " parts " << i << ", " << j;
            }
            EXPECT_EQ(l.notes.width > 0, notes);
            // The current screen is the largest picture, for 4:3 and 16:9 screens alike.
            for (Size screen : {Size{1024, 768}, Size{1920, 1080}}) {
                int current = pictureArea(l.current, screen.width, screen.height);
                EXPECT_GT(current, pictureArea(l.next, screen.width, screen.height));
                if (notes) {
                    EXPECT_GT(current, pictureArea(l.notes, screen.width, screen.height));
                }
            }
        }
    }
}

TEST(ConsoleLayout, TextGrowsWithTheMonitorByWholeFactors) {
    EXPECT_EQ(consoleLayout(1366, 768, false).scale, 2);
    EXPECT_EQ(consoleLayout(1920, 1080, false).scale, 3);
    EXPECT_EQ(consoleLayout(3840, 2160, false).scale, 6);
    EXPECT_EQ(consoleLayout(800, 600, false).scale, 1);
    ConsoleLayout l = consoleLayout(1366, 768, true);
    EXPECT_EQ(l.slide.area.height, 24 * l.scale);
    EXPECT_EQ(l.slide.area.width, l.slide.chars * 15 * l.scale);
    EXPECT_GE(l.slide.chars, (int)strlen("slide 1000 / 1000"));
    EXPECT_GE(l.left.chars, (int)strlen("100:00:00 over"));
}

TEST(ConsoleText, PositionCountsSlidesAndSteps) {
    vec<bool> flags;
    for (bool f : {false, false, true, true, false, true, false}) flags.push(f);  // [0] [1 2 3] [4 5] [6]
    Position p = positionOf(flags, 0);
    EXPECT_EQ(p.slide, 1);
    EXPECT_EQ(p.slides, 4);
    EXPECT_EQ(p.steps, 1);
    p = positionOf(flags, 2);
    EXPECT_EQ(p.slide, 2);
    EXPECT_EQ(p.step, 2);
    EXPECT_EQ(p.steps, 3);
    p = positionOf(flags, 5);
    EXPECT_EQ(p.slide, 3);
    EXPECT_EQ(p.step, 2);
    EXPECT_EQ(p.steps, 2);
    p = positionOf(flags, 6);
    EXPECT_EQ(p.slide, 4);
    EXPECT_STREQ(slideLine(positionOf(flags, 2)).text, "slide 2 / 4");
    EXPECT_STREQ(stepLine(positionOf(flags, 2)).text, "step 2 / 3");
    EXPECT_STREQ(stepLine(positionOf(flags, 6)).text, "");
}

TEST(ConsoleText, Durations) {
    EXPECT_STREQ(durationLine(0).text, "0:00");
    EXPECT_STREQ(durationLine(59).text, "0:59");
    EXPECT_STREQ(durationLine(754).text, "12:34");
    EXPECT_STREQ(durationLine(3599).text, "59:59");
    EXPECT_STREQ(durationLine(3600).text, "1:00:00");
    EXPECT_STREQ(durationLine(3723).text, "1:02:03");
    EXPECT_STREQ(durationLine(-5).text, "0:00");
}

TEST(ConsoleText, TimeLeftCountsWholeSecondsUpThenOver) {
    EXPECT_STREQ(leftLine(0, 1800).text, "30:00 left");
    EXPECT_STREQ(leftLine(0.4, 1800).text, "30:00 left");
    EXPECT_STREQ(leftLine(1.0, 1800).text, "29:59 left");
    EXPECT_STREQ(leftLine(1799.5, 1800).text, "0:01 left");
    EXPECT_STREQ(leftLine(1800, 1800).text, "0:00 over");
    EXPECT_STREQ(leftLine(1861.9, 1800).text, "1:01 over");
}

TEST(ConsoleText, TimeLeftTurnsAmberInTheLastFiveMinutesAndRedWhenOver) {
    EXPECT_EQ(leftColour(0, 1800), text_white);
    EXPECT_EQ(leftColour(1499.9, 1800), text_white);
    EXPECT_EQ(leftColour(1500, 1800), text_amber);
    EXPECT_EQ(leftColour(1799.9, 1800), text_amber);
    EXPECT_EQ(leftColour(1800, 1800), text_red);
    EXPECT_EQ(leftColour(0, 120), text_amber);  // a talk of two minutes is in its last five at once
}

TEST(ConsoleText, ClockIsLocalHoursAndMinutes) {
    time_t t = 1700000000;
    tm local;
    localtime_r(&t, &local);
    char want[8];
    snprintf(want, sizeof want, "%02d:%02d", local.tm_hour, local.tm_min);
    EXPECT_STREQ(clockLine(t).text, want);
}

vec<Monitor>& monitors(vec<Monitor>& list, std::initializer_list<bool> primary) {
    list.clear();
    for (bool p : primary) list.push(monitorAt(0, 0, 100, 100, p));
    return list;
}

TEST(ConsoleMonitor, ThePrimaryWhenTheShowIsElsewhereElseTheFirstOther) {
    vec<Monitor> list;
    EXPECT_EQ(defaultConsoleMonitor(monitors(list, {true, false}), 1), 0);   // laptop, projector
    EXPECT_EQ(defaultConsoleMonitor(monitors(list, {true, false}), 0), 1);   // the show on the laptop
    EXPECT_EQ(defaultConsoleMonitor(monitors(list, {false, false, true}), 0), 2);
    EXPECT_EQ(defaultConsoleMonitor(monitors(list, {false, false, true}), 2), 0);
    EXPECT_EQ(defaultConsoleMonitor(monitors(list, {false, false}), 0), 1);  // no primary
    EXPECT_EQ(defaultConsoleMonitor(monitors(list, {true}), 0), -1);         // no second monitor
}

}  // namespace
