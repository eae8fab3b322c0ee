#include "packer/deck.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "png/png.h"

Deck::~Deck() {
    for (int i = 0; i < files.size; i++) free(files[i]);
}

const char* errorf(const char* fmt, ...) {
    static char message[1024];
    va_list args;
    va_start(args, fmt);
    vsnprintf(message, sizeof message, fmt, args);
    va_end(args);
    return message;
}

static char* joinPath(const char* folder, const char* name) {
    size_t n = strlen(folder) + strlen(name) + 2;
    char* path = (char*)malloc(n);
    snprintf(path, n, "%s/%s", folder, name);
    return path;
}

// Parses one list line into its file name and flag; false when the line is malformed.
static bool parseListLine(char* line, char** name, bool* flag) {
    char* rest = nullptr;
    *name = strtok_r(line, " \t\r\n", &rest);
    char* value = strtok_r(nullptr, " \t\r\n", &rest);
    if (!*name) return true;  // blank
    if (!value || strtok_r(nullptr, " \t\r\n", &rest)) return false;
    if (strcmp(value, "0") != 0 && strcmp(value, "1") != 0) return false;
    *flag = value[0] == '1';
    return true;
}

// Calls take(name, flag) for every entry of a slide list; returns null or an error.
template <class Take>
static const char* forEachListEntry(const char* list_path, Take take) {
    FILE* in = fopen(list_path, "r");
    if (!in) return errorf("Could not open: %s", list_path);
    char line[4096];
    const char* error = nullptr;
    for (int number = 1; !error && fgets(line, sizeof line, in); number++) {
        char* name;
        bool flag = false;
        if (!parseListLine(line, &name, &flag))
            error = errorf("%s:%d: expected '<file> <flag>' with flag 0 or 1", list_path, number);
        else if (name)
            error = take(name, flag, number);
    }
    fclose(in);
    return error;
}

const char* readSlideList(const char* folder, Deck& deck) {
    char* list = joinPath(folder, "slides.txt");
    const char* error = forEachListEntry(list, [&](const char* name, bool flag, int number) -> const char* {
        if (deck.files.size == 0 && flag) return errorf("%s:%d: the first page cannot continue a slide", list, number);
        deck.files.push(joinPath(folder, name));
        deck.flags.push(flag);
        return nullptr;
    });
    if (!error && deck.files.size == 0) error = errorf("%s lists no pages", list);
    free(list);
    return error;
}

static const char* baseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

const char* applySlideList(const char* list_path, Deck& deck) {
    return forEachListEntry(list_path, [&](const char* name, bool flag, int number) -> const char* {
        for (int i = 0; i < deck.files.size; i++)
            if (strcmp(baseName(deck.files[i]), baseName(name)) == 0) {
                if (i == 0 && flag) return errorf("%s:%d: the first page cannot continue a slide", list_path, number);
                deck.flags[i] = flag;
                return nullptr;
            }
        return nullptr;  // pages not given on the command line are ignored
    });
}

static bool isOpaque(const Bitmap& page) {
    size_t n = (size_t)page.width * page.height;
    for (size_t i = 0; i < n; i++)
        if (page.data[i].transparency != 0) return false;
    return true;
}

const char* readPage(const char* path, Bitmap& page) {
    if (!readPng(path, page)) return errorf("Could not read the PNG file: %s", path);
    if (page.width == 0 || page.height == 0) return errorf("Empty page: %s", path);
    if (!isOpaque(page)) return errorf("%s has transparent pixels; pages must be opaque", path);
    return nullptr;
}

const char* sizeMismatch(const Deck& deck, int i, const Bitmap& page, const Bitmap& first) {
    if (page.width == first.width && page.height == first.height) return nullptr;
    return errorf("%s is %d x %d but %s is %d x %d; all pages must have one size", deck.files[i], page.width,
                  page.height, deck.files[0], first.width, first.height);
}
