// The command-line parser and every query over an argv made from the input: arguments are the
// input's NUL-separated pieces. In the fuzz build an error exit throws CmdLine::FailExit, so each
// query that rejects the command line ends only that query.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cmdline/cmdline.h"

using namespace CmdLine;

static const int kMaxArgs = 64;

template <class Query>
static void attempt(Query query) {
    try {
        query();
    } catch (FailExit& e) {
        if (e.status != 10) abort();
    }
}

static FILE* sink() {
    static FILE* null_file = fopen("/dev/null", "w");
    return null_file;
}

// The queries of the viewer, then the rest of the library, then the final check.
static void queryAll(char* program) {
    attempt([&] { getArg_Text(0, program); });
    attempt([] { getSwitch_Null("png-screens"); });
    attempt([] { getSwitch_Null("png-slides"); });
    attempt([] { getSwitch_Null("debug"); });
    attempt([] { getSwitch_Num("n", 1.5); });
    attempt([] { getSwitch_Int("i", 3); });
    attempt([] { getSwitch_Text("t", nullptr); });
    attempt([] { getSwitch_Enum("mode", "fast, slow", 0); });
    attempt([] { getSwitch("any", Value_ERR); });
    attempt([] { getCommand_Enum("view, edit", -1); });
    attempt([] { getArg_Num(1, 0.0); });
    attempt([] { getArg_Int(2, 0); });
    attempt([] { getArg(3); });
    attempt([] { getArg_Text(4); });
    for (int i = 0; i < RawData::args.size; i++) dump(RawData::args[i], sink());
    for (int i = 0; i < RawData::switches.size; i++) dump(RawData::switches[i].value, sink());
    attempt([] { assertCmdlineRead(); });
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // One writable copy of the input, NUL-terminated, cut into arguments at every NUL.
    char* text = (char*)malloc(size + 1);
    memcpy(text, data, size);
    text[size] = 0;
    char program[] = "view_slides";
    char* argv[kMaxArgs + 1] = {program};
    int argc = 1;
    for (char* p = text; p <= text + size && argc < kMaxArgs; p += strlen(p) + 1) argv[argc++] = p;
    argv[argc] = nullptr;

    attempt([&] { parseCommandline(argc, argv); });
    queryAll(program);
    reset();
    free(text);
    return 0;
}
