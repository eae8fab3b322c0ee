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
