// The slide-list parser over arbitrary bytes. Every entry it gives must be a name of the list's
// own bytes without blanks, on a line of its own in increasing order; an error must be one line.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "packer/slide_list.h"

static void check(bool ok) {
    if (!ok) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vec<char> bytes;
    bytes.resize((int)size + 1);  // and the NUL byte after the list
    if (size) memcpy(bytes.data, data, size);
    vec<ListEntry> entries;
    const char* error = parseSlideList(bytes.data, size, "slides.txt", entries);
    if (error) check(strchr(error, '\n') == nullptr && strncmp(error, "slides.txt:", 11) == 0);
    int last_line = 0;
    for (const ListEntry& e : entries) {
        size_t length = strlen(e.name);
        check(e.name >= bytes.data && e.name + length <= bytes.data + size && length > 0);
        check(strcspn(e.name, " \t\r\n") == length);
        check(e.line > last_line);
        last_line = e.line;
    }
    return 0;
}
