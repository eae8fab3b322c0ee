// Synthetic pages and folder listings for the tests of the programs that write files.
#pragma once
#include <string>
#include <vector>

// Writes a PNG page of width x height: a flat colour with a band of noise, both drawn from seed.
void writePage(const std::string& path, int width, int height, unsigned seed);

// The names in a folder, sorted ("." and ".." left out).
std::vector<std::string> folderNames(const std::string& dir);

// True when something (a file, a link, a node) stands at path, without following a link.
bool standsAt(const std::string& path);
