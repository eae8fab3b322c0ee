// GoogleTest suites that share one private X server (see xserver.h).
#pragma once
#include <gtest/gtest.h>  // before Xlib, whose None macro would break it

#include "xserver.h"

// A test suite that shares one private X server of the given depth and screen size; every test
// skips when no server could be started.
template <int Depth, int Width = 1280, int Height = 1024>
class SharedXServer : public testing::Test {
protected:
    static XServer* server;
    static void SetUpTestSuite() { server = new XServer(Depth, Width, Height); }
    static void TearDownTestSuite() {
        delete server;
        server = nullptr;
    }
    void SetUp() override {
        if (!server->ok()) GTEST_SKIP() << "no private X server: " << server->error();
    }
};
template <int Depth, int Width, int Height>
XServer* SharedXServer<Depth, Width, Height>::server = nullptr;

// The same, with the display layer's window of WinWidth x WinHeight opened in this process for
// every test; `look` is the second connection of openTestWindow.
template <int Depth, int WinWidth, int WinHeight, int Width = 1280, int Height = 1024>
class SharedXWindow : public SharedXServer<Depth, Width, Height> {
protected:
    Display* look = nullptr;
    void SetUp() override {
        SharedXServer<Depth, Width, Height>::SetUp();
        if (testing::Test::IsSkipped()) return;
        look = openTestWindow(*this->server, WinWidth, WinHeight);
        ASSERT_NE(look, nullptr) << "the window did not appear";
    }
    void TearDown() override {
        if (look) closeTestWindow(look);
    }
};

// A laptop and a projector beside it: Xorg's dummy driver with a 3286 x 1080 screen of the
// given depth, split into a 1366 x 768 primary monitor "laptop" at (0, 0) and a 1920 x 1080
// monitor "projector" at (1366, 0); with the openbox window manager when WithWm is true. One
// server a suite; every test skips when it cannot be had.
template <int Depth, bool WithWm>
class TwoMonitors : public testing::Test {
public:
    static const int depth = Depth;
    static const bool with_wm = WithWm;

protected:
    static XServer* server;
    static WindowManager* wm;
    static std::string why_not;

    static void SetUpTestSuite() {
        server = new XServer(DummyXorg{Depth, 3286, 1080});
        if (!server->ok()) {
            why_not = "no Xorg with the dummy driver: " + server->error();
        } else if (!server->setMonitors({{"laptop", 0, 0, 1366, 768}, {"projector", 1366, 0, 1920, 1080}})) {
            why_not = "xrandr --setmonitor failed";
        } else if (WithWm) {
            wm = new WindowManager(*server);
            if (!wm->ok()) why_not = wm->error();
        }
    }
    static void TearDownTestSuite() {
        delete wm;
        delete server;
        wm = nullptr;
        server = nullptr;
        why_not.clear();
    }
    void SetUp() override {
        if (!why_not.empty()) GTEST_SKIP() << why_not;
    }
};
template <int Depth, bool WithWm>
XServer* TwoMonitors<Depth, WithWm>::server = nullptr;
template <int Depth, bool WithWm>
WindowManager* TwoMonitors<Depth, WithWm>::wm = nullptr;
template <int Depth, bool WithWm>
std::string TwoMonitors<Depth, WithWm>::why_not;
