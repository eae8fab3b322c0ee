// Rendering a PDF talk's pages in worker processes: the packer's first pass for a PDF. Each
// worker opens the talk itself, so that a page that takes too long to render or crashes the
// PDF library ends the pack with one error naming the page instead of hanging or killing the
// packer.
#pragma once
#include "packer/pdf.h"
#include "packer/survey.h"
#include "show/notes.h"

struct PdfRun {
    PdfOptions options;
    double page_timeout = 0;  // seconds a page may take; 0: no limit
    int jobs = 1;
};

// Renders every page of the talk, surveys the pages in order and groups them into slides
// (flags: true when a page continues the slide before). With notes in the run's options, the
// notes of every page go into notes: a notes half of one colour counts as none, and a page
// whose notes are those of the page before shares their picture. Calls progress(i, n) before
// page i. Returns null or a one-line error.
const char* surveyPdf(const char* path, const PdfRun& run, PageStore& store, Survey& survey, vec<bool>& flags,
                      Grouping& grouping, ShowNotes& notes, void (*progress)(int i, int n));
