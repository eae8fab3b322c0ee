// A program that passes for a viewer that has the switch -help: it carries the first line of the
// viewer's banner and answers -help with the viewer's usage line. For the packer's viewer checks.
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    puts("Now unpacking the slide show to memory.");
    if (argc == 2 && strcmp(argv[1], "-help") == 0) {
        puts("Usage: view_slides [SWITCHES] [ARCHIVE]");
        return 0;
    }
    return 10;
}
