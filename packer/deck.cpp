#include "packer/deck.h"

#include <dirent.h>
#include <errno.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "packer/slide_list.h"
#include "png/png.h"

Deck::~Deck() {
    for (int i = 0; i < files.size; i++) free(files[i]);
    free(list);
}

// folder/name, without doubling the slash of a folder given as "pngs/".
static char* joinPath(const char* folder, const char* name) {
    int keep = (int)strlen(folder);
    while (keep > 1 && folder[keep - 1] == '/') keep--;
    bool root = keep == 1 && folder[0] == '/';
    return nsprintf(root ? "%.*s%s" : "%.*s/%s", keep, folder, name);
}

static bool isPngName(const char* name) {
    size_t n = strlen(name);
    return name[0] != '.' && n > 4 && strcmp(name + n - 4, ".png") == 0;
}

static bool isRegularFile(const char* path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

// A folder without slides.txt: its *.png files in name order, each a slide of its own.
static const char* readPngFolder(const char* folder, Deck& deck) {
    DIR* dir = opendir(folder);
    if (!dir) return errorf("Could not read the folder: %s: %s", folder, strerror(errno));
    while (dirent* entry = readdir(dir)) {
        if (!isPngName(entry->d_name)) continue;
        char* path = joinPath(folder, entry->d_name);
        if (isRegularFile(path))
            deck.files.push(path);
        else
            free(path);
    }
    closedir(dir);
    std::sort(deck.files.begin(), deck.files.end(), [](const char* a, const char* b) { return strcmp(a, b) < 0; });
    for (int i = 0; i < deck.files.size; i++) deck.flags.push(false);
    return deck.files.size ? nullptr : errorf("%s has neither a slides.txt nor PNG pages", folder);
}

const char* readSlideList(const char* folder, Deck& deck) {
    char* list = joinPath(folder, "slides.txt");
    struct stat st;
    if (lstat(list, &st) != 0 && errno == ENOENT) {
        free(list);
        return readPngFolder(folder, deck);
    }
    deck.list = list;
    vec<unsigned char> bytes;
    vec<ListEntry> entries;
    const char* error = readSlideListFile(list, bytes, entries);
    for (int i = 0; !error && i < entries.size; i++) {
        if (i == 0 && entries[i].flag) return errorf("%s:%d: the first page cannot continue a slide", list, entries[i].line);
        deck.files.push(joinPath(folder, entries[i].name));
        deck.flags.push(entries[i].flag);
    }
    if (!error && deck.files.size == 0) error = errorf("%s lists no pages", list);
    return error;
}

static const char* baseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

const char* applySlideList(const char* list_path, Deck& deck) {
    vec<unsigned char> bytes;
    vec<ListEntry> entries;
    if (const char* error = readSlideListFile(list_path, bytes, entries)) return error;
    for (const ListEntry& entry : entries)
        for (int i = 0; i < deck.files.size; i++)
            if (strcmp(baseName(deck.files[i]), baseName(entry.name)) == 0) {
                if (i == 0 && entry.flag)
                    return errorf("%s:%d: the first page cannot continue a slide", list_path, entry.line);
                deck.flags[i] = entry.flag;
                break;
            }
    return nullptr;  // pages not given on the command line are ignored
}

static bool isOpaque(const Bitmap& page) {
    size_t n = (size_t)page.width * page.height;
    for (size_t i = 0; i < n; i++)
        if (page.data[i].transparency != 0) return false;
    return true;
}

const char* readPage(const char* path, Bitmap& page) {
    if (!readPng(path, page)) return errorf("Could not read the PNG file: %s: %s", path, pngLastError());
    if (page.width == 0 || page.height == 0) return errorf("Empty page: %s", path);
    if (!isOpaque(page)) return errorf("%s has transparent pixels; pages must be opaque", path);
    return nullptr;
}

const char* sizeMismatch(const Deck& deck, int i, const Bitmap& page, const Bitmap& first) {
    if (page.width == first.width && page.height == first.height) return nullptr;
    return errorf("%s is %d x %d but %s is %d x %d; all pages must have one size", deck.files[i], page.width,
                  page.height, deck.files[0], first.width, first.height);
}
