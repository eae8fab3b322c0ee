// slides_codec: converts between PNG files and codec streams.
//   slides_codec encode IN.png OUT.bin [--raw]
//   slides_codec decode IN.bin OUT.png
// Failures print one "ERROR! " line and exit with 1. The output is checked before any work and
// replaced only whole.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "codec/codec.h"
#include "io/input.h"
#include "io/output.h"
#include "png/png.h"
#include "support/exits.h"

namespace {

const char* kUsage = "usage: slides_codec encode IN.png OUT.bin [--raw] | decode IN.bin OUT.png";

// Far beyond any stream of a bitmap within the size limits.
const long long kMaxStreamBytes = 1LL << 30;

// The exit removes an unfinished output's temporary file.
[[noreturn]] void die(const std::string& message) {
    fprintf(stderr, "ERROR! %s\n", message.c_str());
    exit(1);
}

// Checks the output and creates its temporary file, before any work.
void beginOrDie(Output& out, const char* path, const char* input) {
    vec<const char*> inputs;
    inputs.push(input);
    if (const char* error = beginOutput(out, path, inputs, OUTPUT_FILE)) die(error);
    close(out.fd);  // written by name
}

void finishOrDie(Output& out, bool written, const char* why_not) {
    if (!written) {
        dropOutput(out);
        die(outputError(out, why_not));
    }
    if (const char* error = finishOutput(out)) die(error);
}

// Writes the bytes to the file at path (the output's temporary file); false with errno set.
bool writeBytes(const char* path, const vec<unsigned char>& bytes) {
    FILE* f = fopen(path, "wb");
    if (!f) return false;
    bool ok = fwrite(bytes.data, 1, (size_t)bytes.size, f) == (size_t)bytes.size;
    return fclose(f) == 0 && ok;
}

// The stream keeps opaque colours and the one see-through pixel: a fully transparent pixel of any
// colour becomes that pixel; a partly transparent one cannot be kept.
void keepOnlyWhatTheStreamHolds(Bitmap& bitmap, const char* path) {
    for (int y = 0; y < bitmap.height; y++)
        for (int x = 0; x < bitmap.width; x++) {
            Color& c = bitmap.at(x, y);
            if (c.transparency == 255) c = color_SeeThrough;
            if (c.transparency != 0 && c.transparency != 255)
                die(std::string(path) + " has partly transparent pixels (the first at " + std::to_string(x) + ", " +
                    std::to_string(y) + "); a stream holds opaque and fully transparent pixels only");
        }
}

void encode(const char* in, const char* out_path, bool raw) {
    Output out;
    beginOrDie(out, out_path, in);
    Bitmap bitmap;
    if (!readPng(in, bitmap)) die(std::string("cannot read PNG ") + in + ": " + pngLastError());
    keepOnlyWhatTheStreamHolds(bitmap, in);
    vec<unsigned char> stream;
    compress(bitmap, stream, raw);
    bool written = writeBytes(out.temp, stream);
    finishOrDie(out, written, strerror(errno));
}

void decode(const char* in, const char* out_path) {
    Output out;
    beginOrDie(out, out_path, in);
    vec<unsigned char> stream;
    if (const char* reason = readWholeFile(in, kMaxStreamBytes, false, stream))
        die(std::string("cannot read ") + in + ": " + reason);
    Bitmap bitmap;
    if (const char* error = decompress(bitmap, stream)) die(std::string(in) + ": " + error);
    if (bitmap.width == 0 || bitmap.height == 0) die(std::string(in) + ": empty bitmap, nothing to write as PNG");
    bool written = writePng(out.temp, bitmap);
    finishOrDie(out, written, pngLastError());
}

void run(int argc, char** argv) {
    if (argc == 4 && strcmp(argv[1], "encode") == 0)
        encode(argv[2], argv[3], false);
    else if (argc == 5 && strcmp(argv[1], "encode") == 0 && strcmp(argv[4], "--raw") == 0)
        encode(argv[2], argv[3], true);
    else if (argc == 4 && strcmp(argv[1], "decode") == 0)
        decode(argv[2], argv[3]);
    else
        die(kUsage);
}

}  // namespace

int main(int argc, char** argv) {
    ignoreWriteSignals();
    try {
        run(argc, argv);
        return 0;
    } catch (Exception_MemOut&) {
    } catch (std::bad_alloc&) {
    }
    die("out of memory");
}
