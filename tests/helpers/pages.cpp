#include "pages.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "png/png.h"

void writePage(const std::string& path, int width, int height, unsigned seed) {
    std::mt19937 rng(seed);
    Color flat = {(unsigned char)rng(), (unsigned char)rng(), (unsigned char)rng(), 0};
    Bitmap page;
    page.data = allocPixels(width, height);
    page.width = width;
    page.height = height;
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++)
            page.at(x, y) = y % 8 < 4 ? flat : Color{(unsigned char)rng(), (unsigned char)rng(), 0, 0};
    writePng(path.c_str(), page);
}

std::vector<std::string> folderNames(const std::string& dir) {
    std::vector<std::string> names;
    for (auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

bool standsAt(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}
