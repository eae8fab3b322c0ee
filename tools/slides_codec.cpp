// slides_codec: converts between PNG files and codec streams.
//   slides_codec encode IN.png OUT.bin [--raw]
//   slides_codec decode IN.bin OUT.png
// Failures print one "ERROR! " line and exit with 1; an output file is replaced only whole.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "codec/codec.h"
#include "png/png.h"

namespace {

const char* kUsage = "usage: slides_codec encode IN.png OUT.bin [--raw] | decode IN.bin OUT.png";

[[noreturn]] void die(const std::string& message) {
    fprintf(stderr, "ERROR! %s\n", message.c_str());
    exit(1);
}

bool readWhole(const char* path, vec<unsigned char>& out) {
    FILE* f = fopen(path, "rb");
    if (!f) return false;
    unsigned char chunk[65536];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, f)) > 0) {
        if (out.size > (1 << 30)) break;  // far beyond any stream within the size limits
        int old = out.size;
        out.resize(old + (int)n);
        memcpy(out.data + old, chunk, n);
    }
    bool ok = !ferror(f) && feof(f);
    fclose(f);
    return ok;
}

// A fresh file beside path, to be renamed over it once complete.
std::string makeTemporary(const std::string& path) {
    std::string name = path + ".tmp.XXXXXX";
    int fd = mkstemp(&name[0]);
    if (fd < 0) die("cannot create a file beside " + path);
    mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);  // the permissions a plain new file would get
    close(fd);
    return name;
}

void commitOrDie(bool written, const std::string& temporary, const char* path) {
    if (written && rename(temporary.c_str(), path) == 0) return;
    unlink(temporary.c_str());
    die(std::string("cannot write ") + path);
}

bool writeBytes(const std::string& path, const vec<unsigned char>& bytes) {
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = fwrite(bytes.data, 1, (size_t)bytes.size, f) == (size_t)bytes.size;
    return fclose(f) == 0 && ok;
}

std::string pngProblem(const char* path) {
    std::string why = pngLastError();
    return std::string("cannot read PNG ") + path + (why.empty() ? "" : ": " + why);
}

void encode(const char* in, const char* out, bool raw) {
    Bitmap bitmap;
    if (!readPng(in, bitmap)) die(pngProblem(in));
    vec<unsigned char> stream;
    compress(bitmap, stream, raw);
    std::string temporary = makeTemporary(out);
    commitOrDie(writeBytes(temporary, stream), temporary, out);
}

void decode(const char* in, const char* out) {
    vec<unsigned char> stream;
    if (!readWhole(in, stream)) die(std::string("cannot read ") + in);
    Bitmap bitmap;
    if (const char* error = decompress(bitmap, stream)) die(std::string(in) + ": " + error);
    if (bitmap.width == 0 || bitmap.height == 0) die(std::string(in) + ": empty bitmap, nothing to write as PNG");
    std::string temporary = makeTemporary(out);
    commitOrDie(writePng(temporary.c_str(), bitmap), temporary, out);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && strcmp(argv[1], "encode") == 0)
        encode(argv[2], argv[3], false);
    else if (argc == 5 && strcmp(argv[1], "encode") == 0 && strcmp(argv[4], "--raw") == 0)
        encode(argv[2], argv[3], true);
    else if (argc == 4 && strcmp(argv[1], "decode") == 0)
        decode(argv[2], argv[3]);
    else
        die(kUsage);
    return 0;
}
