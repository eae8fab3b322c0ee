// fuzz_seeds OUT [CORPUS]: writes the seed inputs of every fuzz target into OUT/<target>/.
// Bitmaps are small synthetic ones plus crops of the first pages of each deck in CORPUS (when
// given and present), turned into codec streams, PNG files and tiny two-screen archives in both
// layouts; packed integers, command lines, PDF page boxes with show sizes and slide lists are
// hand-made edge cases, with the corpus decks' own slide lists.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "show/archive.h"
#include "codec/codec.h"
#include "png/png.h"

namespace {

std::string out_dir;
int written = 0;

void writeFile(const std::string& target, const std::string& name, const void* bytes, size_t size) {
    std::string dir = out_dir + "/" + target;
    mkdir(dir.c_str(), 0777);
    std::string path = dir + "/" + name;
    FILE* f = fopen(path.c_str(), "wb");
    if (!f || fwrite(bytes, 1, size, f) != size || fclose(f) != 0) {
        fprintf(stderr, "ERROR! Could not write: %s\n", path.c_str());
        exit(1);
    }
    written++;
}

// Fills bitmap with width x height pixels from pick(x, y).
template <class Pick>
void makeBitmap(Bitmap& bitmap, int width, int height, Pick pick) {
    bitmap.clear();
    bitmap.data = allocPixels(width, height);
    bitmap.width = width;
    bitmap.height = height;
    for (int y = 0; y < height; y++)
        for (int x = 0; x < width; x++) bitmap.at(x, y) = pick(x, y);
}

// A crop of page; dark pixels become see-through when see_through is set, so that screens
// composite over their backgrounds.
void crop(const Bitmap& page, int x0, int y0, int width, int height, bool see_through, Bitmap& out) {
    makeBitmap(out, width, height, [&](int x, int y) {
        Color c = page.at((x0 + x) % page.width, (y0 + y) % page.height);
        return see_through && c.r < 64 && c.g < 64 ? color_SeeThrough : c;
    });
}

void addStream(const std::string& name, Bitmap& bitmap) {
    for (int raw = 0; raw < 2; raw++) {
        vec<unsigned char> stream;
        compress(bitmap, stream, raw != 0);
        writeFile("fuzz_decompress", name + (raw ? "_raw" : ""), stream.data, (size_t)stream.size);
    }
}

void addPng(const std::string& name, const Bitmap& bitmap) {
    std::string tmp = out_dir + "/tmp.png";
    if (!writePng(tmp.c_str(), bitmap)) {
        fprintf(stderr, "ERROR! Could not write: %s\n", tmp.c_str());
        exit(1);
    }
    std::string target = out_dir + "/fuzz_png/" + name + ".png";
    mkdir((out_dir + "/fuzz_png").c_str(), 0777);
    rename(tmp.c_str(), target.c_str());
    written++;
}

// An archive of one background and two screens (the second over the first), in one layout,
// preceded by the layout byte the archive target reads first.
void addArchive(const std::string& name, ArchiveLayout layout, Bitmap& background, Bitmap& screen0,
                Bitmap& screen1) {
    std::string path = out_dir + "/fuzz_archive/" + name + (layout == ARCHIVE_APPENDED ? "_appended" : "_separate");
    mkdir((out_dir + "/fuzz_archive").c_str(), 0777);
    vec<vec<unsigned char> > backgrounds;
    compress(background, backgrounds.push(), false);
    vec<ScreenRecord> screens;
    ScreenRecord& first = screens.push();
    first.selector = 0;
    compress(screen0, first.payload, false);
    ScreenRecord& second = screens.push();
    second.selector = 1;
    compress(screen1, second.payload, false);
    vec<bool> flags;
    flags.push(false);
    flags.push(true);

    File out;
    out.open(path.c_str(), "wb");
    if (out.fd == -1) {
        fprintf(stderr, "ERROR! Could not write: %s\n", path.c_str());
        exit(1);
    }
    out.putChar(layout == ARCHIVE_APPENDED ? 1 : 0);
    unsigned long long base = layout == ARCHIVE_APPENDED ? 5 : 0;
    for (unsigned long long i = 0; i < base; i++) out.putChar("prog!"[i]);
    writeArchive(out, layout, base, backgrounds, screens, flags);
    out.close();
    written++;
}

// Streams, PNG files and archives from the crops of one page.
void addPage(const std::string& label, const Bitmap& page) {
    struct Cut {
        int x, y, w, h;
    };
    const Cut cuts[] = {{0, 0, 32, 24}, {480, 360, 64, 48}, {100, 300, 17, 9}, {700, 100, 1, 40}};
    for (const Cut& c : cuts) {
        Bitmap bitmap;
        crop(page, c.x, c.y, c.w, c.h, false, bitmap);
        std::string name = label + "_" + std::to_string(c.w) + "x" + std::to_string(c.h);
        addStream(name, bitmap);
        addPng(name, bitmap);
    }
    Bitmap background, screen0, screen1;
    crop(page, 0, 0, 24, 18, false, background);
    crop(page, 400, 300, 24, 18, true, screen0);
    crop(page, 600, 500, 24, 18, true, screen1);
    for (ArchiveLayout layout : {ARCHIVE_SEPARATE, ARCHIVE_APPENDED})
        addArchive(label, layout, background, screen0, screen1);
}

void addSynthetic() {
    const Color red = {255, 0, 0, 0}, blue = {0, 0, 255, 0};
    Bitmap b;
    makeBitmap(b, 1, 1, [&](int, int) { return red; });
    addStream("one_pixel", b);
    makeBitmap(b, 1, 2, [&](int, int y) { return y ? red : blue; });
    addStream("one_by_two", b);
    addPng("one_by_two", b);
    makeBitmap(b, 9, 7, [&](int x, int y) { return (x * y) % 3 == 0 ? color_SeeThrough : x > y ? red : blue; });
    addStream("three_colours", b);
    addPng("three_colours", b);
    makeBitmap(b, 5, 0, [&](int, int) { return red; });
    addStream("no_rows", b);
    makeBitmap(b, 8, 8, [&](int, int) { return color_SeeThrough; });
    addStream("see_through", b);
    Bitmap screen0, screen1;
    makeBitmap(screen0, 9, 7, [&](int x, int) { return x < 4 ? color_SeeThrough : blue; });
    makeBitmap(screen1, 9, 7, [&](int, int y) { return y < 3 ? color_SeeThrough : red; });
    makeBitmap(b, 9, 7, [&](int x, int y) { return (x + y) % 2 ? red : blue; });
    for (ArchiveLayout layout : {ARCHIVE_SEPARATE, ARCHIVE_APPENDED}) addArchive("synthetic", layout, b, screen0, screen1);
}

void addPackedIntegers() {
    const unsigned long long values[] = {0, 0x7F, 0x80, 0x1FFF, 0x2000, 0x1FFFFF, 0x200000, 0x1FFFFFFF,
                                         0x20000000, 536551, ~0ULL};
    std::string path = out_dir + "/fuzz_uint/boundaries";
    mkdir((out_dir + "/fuzz_uint").c_str(), 0777);
    File out;
    out.open(path.c_str(), "wb");
    for (unsigned long long v : values) putUInt(out, v);
    out.close();
    const unsigned char cut[] = {0x81};
    writeFile("fuzz_uint", "cut_short", cut, sizeof cut);
    const unsigned char long_form[] = {0xFF, 1, 2, 3, 4, 5, 6, 7};
    writeFile("fuzz_uint", "long_form_cut", long_form, sizeof long_form);
    written++;
}

void addCommandLines() {
    const std::string lines[] = {
        std::string("-png-screens\0archive.bin", 24), "-debug=1", std::string("-debug\0-debug", 13),
        std::string("--\0-5", 5), std::string("a\0[1;abc]", 9), std::string(",view\0,edit", 11),
        "-mode=slow", "-mode=medium", "[1;2", "[[1] [2]];x", std::string("-n=2.5\0-i=3\0-t=x\0a\0b\0c\0d", 24),
        std::string("-\0--png-slides\0-foo=3", 21), "-i=1e10", std::string("x\0 0.1", 6)};
    int i = 0;
    for (const std::string& line : lines) writeFile("fuzz_cmdline", "line_" + std::to_string(i++), line.data(), line.size());
}

// Page boxes in points (two doubles, a turned flag) and --size texts.
void addPageGeometry() {
    struct Case {
        double width, height;
        bool turned;
        const char* size;
    } cases[] = {{362.83, 272.13, false, "1005x754"}, {640, 360, false, "1920x1080"}, {595, 842, true, "800x600"},
                 {300, 400, true, "3840x2160"},     {1e-300, 5, false, "16384x4096"}, {1e300, 1, false, "1x1"},
                 {400, 300, false, "16385x10"},     {-5, 10, false, "9000x9000"},   {0, 0, true, "x"}};
    int i = 0;
    for (const Case& c : cases) {
        std::string bytes(17, '\0');
        memcpy(&bytes[0], &c.width, 8);
        memcpy(&bytes[8], &c.height, 8);
        bytes[16] = c.turned;
        bytes += c.size;
        writeFile("fuzz_page_geometry", "page_" + std::to_string(i++), bytes.data(), bytes.size());
    }
}

// Slide lists: the usual shape, a byte-order mark, CR LF endings, blank lines, a line at the
// length limit and one past it, a NUL byte, malformed flags.
void addSlideLists() {
    const std::string lists[] = {
        "page_001.png 0\npage_002.png 0\npage_003.png 1\n",
        "\xEF\xBB\xBFpage_001.png 0\r\npage_002.png 1\r\n",
        "\n\n  a.png\t0  \n\n\tb.png 1",
        std::string(4089, 'x') + ".png 0\n",
        std::string(4090, 'x') + ".png 0\n",
        std::string("a.png 0\nb.png\0 1\n", 18),
        "a.png 2\nb.png\nc.png 0 0\n",
    };
    int i = 0;
    for (const std::string& list : lists) writeFile("fuzz_slide_list", "list_" + std::to_string(i++), list.data(), list.size());
}

// The first two pages and the slide list of every deck in the corpus folder.
void addCorpus(const std::string& corpus) {
    DIR* dir = opendir(corpus.c_str());
    if (!dir) return;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        std::string list;
        FILE* in = fopen((corpus + "/" + entry->d_name + "/slides.txt").c_str(), "rb");
        for (int c; in && (c = fgetc(in)) != EOF;) list += (char)c;
        if (in) fclose(in);
        if (!list.empty()) writeFile("fuzz_slide_list", std::string(entry->d_name) + "_slides.txt", list.data(), list.size());
        for (const char* page_name : {"page_001.png", "page_002.png"}) {
            std::string path = corpus + "/" + entry->d_name + "/" + page_name;
            Bitmap page;
            if (!readPng(path.c_str(), page)) continue;
            addPage(std::string(entry->d_name) + "_" + std::string(page_name, 8), page);
        }
    }
    closedir(dir);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "ERROR! usage: fuzz_seeds OUT [CORPUS]\n");
        return 1;
    }
    out_dir = argv[1];
    mkdir(out_dir.c_str(), 0777);
    addSynthetic();
    addPackedIntegers();
    addCommandLines();
    addPageGeometry();
    addSlideLists();
    if (argc == 3) addCorpus(argv[2]);
    printf("%d seed files in %s\n", written, out_dir.c_str());
    return 0;
}
