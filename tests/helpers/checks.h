// Checks on what the programs did, shared by their tests.
#pragma once
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "png/png.h"
#include "run.h"

// Exactly one line on standard error, beginning "ERROR! " and holding words, and an exit by status.
inline ::testing::AssertionResult oneErrorLine(const RunResult& r, const std::string& words = "") {
    if (r.signal) return ::testing::AssertionFailure() << "died of signal " << r.signal;
    if (r.err.rfind("ERROR! ", 0) != 0 || r.err.find('\n') != r.err.size() - 1 ||
        r.err.find(words) == std::string::npos)
        return ::testing::AssertionFailure() << "stderr: [" << r.err << "], wanted [" << words << "]";
    return ::testing::AssertionSuccess();
}

// Both PNG files hold the same pixels.
inline ::testing::AssertionResult samePng(const std::string& a, const std::string& b) {
    Bitmap x, y;
    if (!readPng(a.c_str(), x)) return ::testing::AssertionFailure() << "cannot read " << a;
    if (!readPng(b.c_str(), y)) return ::testing::AssertionFailure() << "cannot read " << b;
    if (x.width != y.width || x.height != y.height) return ::testing::AssertionFailure() << a << ": size differs";
    for (int i = 0; i < x.width * x.height; i++)
        if (x.data[i] != y.data[i])
            return ::testing::AssertionFailure() << a << " differs from " << b << " at pixel " << i;
    return ::testing::AssertionSuccess();
}
