// Test shows and a running view_slides on a private X server, driven with xdotool.
#pragma once
#include <gtest/gtest.h>  // before Xlib, whose None macro would break it
#include <sys/types.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "codec/bitmap.h"
#include "show/notes.h"
#include "run.h"
#include "xserver.h"

extern const char* const kTitle;  // the viewer's window title

// The colour of pixel (x, y) of test screen i: a per-screen colour with a stripe pattern, so
// that screens and their rows are told apart. Neighbouring screens differ by 53 in red, so
// that a resampled screen is never mistaken for its neighbour either.
Color screenPixel(int i, int x, int y);

struct TestShow {
    int width, height;
    std::vector<bool> flags;
    int count() const { return (int)flags.size(); }
};

// Writes the test show as a separate archive: one background, every screen coded whole; with
// the notes when they are given.
void writeShow(const std::string& path, const TestShow& show, const ShowNotes* notes = nullptr);

void sleepMs(int ms);

// Packs 5-6-5 as a 16-bit visual holds it.
uint32_t pack565(Color c);

// A running view_slides on a private X server.
class RunningViewer {
public:
    // env holds "NAME=value" entries for the program; it never sees the tester's session bus.
    // Once the window is there, the pointer goes to (20, 20) and, when focus is true, the window
    // is given the keyboard focus.
    RunningViewer(const XServer& x, const TestShow& show, const std::string& archive,
                  std::vector<std::string> args = {}, const std::vector<std::string>& env = {},
                  bool focus = true);
    ~RunningViewer();
    RunningViewer(const RunningViewer&) = delete;
    RunningViewer& operator=(const RunningViewer&) = delete;

    // The window is there; else why not: whether the program still runs, and what it said.
    ::testing::AssertionResult ok() const;
    Window window() const { return window_; }
    pid_t pid() const { return pid_; }

    // Keys go through the server (XTest) to the focused window. Sending them to the window
    // directly would fail on the release of a key that quits, leaving the key held down.
    void key(const std::string& name) { x_.xdotool({"key", name}); }
    void click(int button) { x_.xdotool({"click", std::to_string(button)}); }

    // Waits until the window shows screen i (clipped to w x h when given); fails after 5 s.
    ::testing::AssertionResult shows(int i, int w = -1, int h = -1);

    // Sends the key and waits for the program to end; returns its exit status.
    int quitWith(const std::string& name);
    // Waits up to 5 s for the program to end; returns its exit status, 128 + the signal that
    // ended it, or -1 while it still runs.
    int finish();
    // Whether the program is still running, without waiting.
    bool running() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

    std::string out() const { return readFileBytes(out_); }
    std::string err() const { return readFileBytes(err_); }

private:
    std::string compare(int i, int w, int h);

    const XServer& x_;
    TestShow show_;
    TempDir tmp_;
    std::string out_, err_;
    pid_t pid_ = -1;
    bool done_ = false;
    bool depth16_;
    Display* look_ = nullptr;
    Window window_ = 0;
};
