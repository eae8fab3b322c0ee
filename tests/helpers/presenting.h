// Checking what presenting windows show: captures compared with Pillow's bilinear resample,
// where windows are placed, and waiting until something holds.
#pragma once
#include <gtest/gtest.h>  // before Xlib, whose None macro would break it

#include <unistd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/scale.h"
#include "codec/bitmap.h"
#include "viewer.h"
#include "xserver.h"
#include "xsuite.h"

// Whether Debian's /usr/bin/python3 has Pillow (python3-pil), which makes the references.
bool havePillow();

// The window's rectangle on the root window.
Rect placeOf(Display* d, Window w);
bool sameRect(const Rect& a, const Rect& b);
std::string describe(const Rect& r);  // "1920x1080+1366+0"

// Every pixel of the capture has this colour (as the visual holds it).
bool allOneColour(const Pixels& p, unsigned char v);

// Whether the window manager has given the window the EWMH full-screen state.
bool hasFullscreenState(Display* d, Window w);

// Screen i of a test show as a bitmap.
void screenBitmap(const TestShow& show, int i, Bitmap& out);

// Pillow's resamples of sets of pictures, each set made once for each size.
class References {
public:
    // The reference of picture i of `pictures` at width x height, or null when Pillow made
    // none; `name` names the set.
    const Bitmap* get(const std::string& name, const std::vector<const Bitmap*>& pictures, int i, int width,
                      int height);
    // The same for the screens of a test show.
    const Bitmap* get(const TestShow& show, int i, int width, int height);

private:
    std::map<std::string, std::vector<std::unique_ptr<Bitmap>>> made_;
};

struct Difference {
    double mean = 1e9;      // mean absolute difference a channel inside the picture
    long long stray = 0;    // pixels around the picture that are not black (when they are checked)
    std::string problem;    // why nothing could be compared
};

// Compares a capture with the reference placed at `picture`, at the visual's depth (16: 5-6-5);
// with `black_around`, every pixel outside the picture must be black.
Difference compareWithReference(const Pixels& p, const Bitmap& ref, const Rect& picture, int depth,
                                bool black_around);

// How long the presenting tests wait for a window to show what they expect: generous, since a
// loaded machine running sanitized programs can take seconds to place and draw a window.
const int kSettleMs = 15000;

// Polls ready() every 20 ms for up to ms milliseconds; whether it came true.
template <class F>
bool within(int ms, F ready) {
    for (int waited = 0; waited < ms; waited += 20) {
        if (ready()) return true;
        sleepMs(20);
    }
    return ready();
}

// The two monitors of TwoMonitors.
const Rect kLaptop = {0, 0, 1366, 768};
const Rect kProjector = {1366, 0, 1920, 1080};

// Ten screens of 160 x 120 in six slides: [0] [1 2 3] [4 5] [6] [7 8] [9]. On the projector
// they fill 1440 x 1080 in the middle.
inline TestShow tenScreens() { return {160, 120, {false, false, true, true, false, true, false, false, true, false}}; }
const Rect kTenOnProjector = {240, 0, 1440, 1080};

// The references of every presenting test of a program.
References& references();

using Bare24 = TwoMonitors<24, false>;
using Bare16 = TwoMonitors<16, false>;
using Openbox24 = TwoMonitors<24, true>;
using Openbox16 = TwoMonitors<16, true>;

// Presenting tests on one two-monitor server (the fixture's type parameter); they skip without
// Pillow. look_ is a connection of the test's own.
template <class Server>
class Presenting : public Server {
protected:
    TempDir tmp_;
    Display* look_ = nullptr;

    void SetUp() override {
        Server::SetUp();
        if (testing::Test::IsSkipped()) return;
        if (!havePillow()) GTEST_SKIP() << "no Pillow for /usr/bin/python3 (python3-pil); presenting tests skipped";
        look_ = this->server->connect();
        ASSERT_NE(look_, nullptr);
    }
    void TearDown() override {
        if (look_) XCloseDisplay(look_);
    }

    std::string archive(const TestShow& show) {
        std::string path = tmp_.file(std::to_string(show.width) + "x" + std::to_string(show.height) + ".slides");
        if (access(path.c_str(), R_OK) != 0) writeShow(path, show);
        return path;
    }

    // Waits until the window shows screen i of the show scaled into `picture` as Pillow does it.
    testing::AssertionResult presents(RunningViewer& v, const TestShow& show, int i, const Rect& picture) {
        const Bitmap* ref = references().get(show, i, picture.width, picture.height);
        if (!ref) return testing::AssertionFailure() << "Pillow made no reference";
        Difference d;
        bool same = within(kSettleMs, [&] {
            d = compareWithReference(captureWindow(look_, v.window()), *ref, picture, Server::depth, true);
            return d.problem.empty() && d.mean <= 0.75 && d.stray == 0;
        });
        if (same) return testing::AssertionSuccess() << "mean difference " << d.mean;
        return testing::AssertionFailure() << "screen " << i << " not shown: mean difference " << d.mean << ", "
                                           << d.stray << " band pixels not black " << d.problem;
    }

    testing::AssertionResult blank(RunningViewer& v, unsigned char level) {
        if (within(kSettleMs, [&] { return allOneColour(captureWindow(look_, v.window()), level); }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the window is not all " << (int)level;
    }

    testing::AssertionResult placed(Window w, const Rect& want) {
        Rect got;
        if (within(kSettleMs, [&] { return sameRect(got = placeOf(look_, w), want); })) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "the window is at " << describe(got) << ", not " << describe(want);
    }
};
