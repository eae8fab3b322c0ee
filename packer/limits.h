// The packer's limits, in one place.
#pragma once

// --jobs: worker processes at most.
const int kMaxJobs = 256;

// --page-timeout: seconds a PDF page may take to render, by default and at most.
const double kDefaultPageTimeout = 60;
const double kMaxPageTimeout = 86400;

// --size: the largest show side; the show's pixels stay within the codec's kMaxPixels too.
const int kMaxShowSide = 16384;

// PDF pages are grouped into slides on renderings fitted into this size, whatever the show's
// size, so that the same talk gives the same slides at every size.
const int kGroupingWidth = 1005;
const int kGroupingHeight = 754;

// Worker processes run at once no more than fit in this much memory, estimated per pixel of a
// page: a worker that renders a PDF page holds the library's rendering and the page; one that
// encodes a page holds it, the page before, its colour numbers and the encoder's plans.
const long long kWorkerMemoryBudget = 320LL << 20;
const long long kRenderBytesPerPixel = 24;
const long long kEncodeBytesPerPixel = 40;
