// Reading a deck's PNG pages in worker processes: the packer's first pass for PNG input.
#pragma once
#include "packer/deck.h"
#include "packer/survey.h"

// Reads every page of the deck with up to `jobs` worker processes and surveys them in order.
// Calls progress(i, n) before page i. Returns null or a one-line error.
const char* surveyDeck(const Deck& deck, int jobs, PageStore& store, Survey& survey, void (*progress)(int i, int n));
