#include "packer/slide_list.h"

#include <cstring>

#include "io/input.h"
#include "support/util.h"

static const char kByteOrderMark[] = "\xEF\xBB\xBF";
static const char kBlanks[] = " \t\r";

// Parses one line (NUL-terminated) into its file name and flag; false when it is malformed.
static bool parseLine(char* line, ListEntry& entry) {
    char* rest = nullptr;
    char* name = strtok_r(line, kBlanks, &rest);
    char* value = strtok_r(nullptr, kBlanks, &rest);
    entry.name = name;
    if (!name) return true;  // blank
    if (!value || strtok_r(nullptr, kBlanks, &rest)) return false;
    if (strcmp(value, "0") != 0 && strcmp(value, "1") != 0) return false;
    entry.flag = value[0] == '1';
    return true;
}

const char* parseSlideList(char* bytes, size_t n, const char* path, vec<ListEntry>& entries) {
    size_t at = 0;
    if (n >= 3 && memcmp(bytes, kByteOrderMark, 3) == 0) at = 3;
    for (int number = 1; at < n; number++) {
        char* line = bytes + at;
        char* feed = (char*)memchr(line, '\n', n - at);
        size_t length = feed ? (size_t)(feed - line) : n - at;
        at += length + 1;
        if (length > (size_t)kMaxListLine)
            return errorf("%s:%d: line longer than %d bytes", path, number, kMaxListLine);
        if (memchr(line, 0, length)) return errorf("%s:%d: NUL byte in the line", path, number);
        if (feed) *feed = 0;
        ListEntry entry{nullptr, false, number};
        if (!parseLine(line, entry)) return errorf("%s:%d: expected '<file> <flag>' with flag 0 or 1", path, number);
        if (entry.name) entries.push(entry);
    }
    return nullptr;
}

const char* readSlideListFile(const char* path, vec<unsigned char>& bytes, vec<ListEntry>& entries) {
    if (const char* reason = readWholeFile(path, kMaxListBytes, true, bytes))
        return errorf("Could not read the slide list: %s: %s", path, reason);
    bytes.push(0);  // the last line's end, when it has no line feed
    return parseSlideList((char*)bytes.data, (size_t)bytes.size - 1, path, entries);
}
