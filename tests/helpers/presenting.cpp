#include "presenting.h"

#include <X11/Xatom.h>
#include <unistd.h>

#include <cstdlib>

#include "png/png.h"
#include "run.h"

static const char* const kPython = "/usr/bin/python3";

bool havePillow() {
    return access(kPython, X_OK) == 0 && system("/usr/bin/python3 -c 'import PIL' 2>/dev/null") == 0;
}

Rect placeOf(Display* d, Window w) {
    XWindowAttributes attr;
    Rect r = {0, 0, 0, 0};
    Window child;
    if (!XGetWindowAttributes(d, w, &attr)) return r;
    XTranslateCoordinates(d, w, DefaultRootWindow(d), 0, 0, &r.x, &r.y, &child);
    r.width = attr.width;
    r.height = attr.height;
    return r;
}

bool sameRect(const Rect& a, const Rect& b) {
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
}

std::string describe(const Rect& r) {
    return std::to_string(r.width) + "x" + std::to_string(r.height) + "+" + std::to_string(r.x) + "+" +
           std::to_string(r.y);
}

bool allOneColour(const Pixels& p, unsigned char v) {
    if (p.width == 0) return false;
    for (unsigned char c : p.rgb)
        if (c != v) return false;
    return true;
}

bool hasFullscreenState(Display* d, Window w) {
    Atom type;
    int format;
    unsigned long count = 0, left;
    unsigned char* data = nullptr;
    Atom fullscreen = XInternAtom(d, "_NET_WM_STATE_FULLSCREEN", False);
    XGetWindowProperty(d, w, XInternAtom(d, "_NET_WM_STATE", False), 0, 64, False, XA_ATOM, &type, &format, &count,
                       &left, &data);
    bool found = false;
    for (unsigned long i = 0; i < count && data; i++) found = found || ((Atom*)data)[i] == fullscreen;
    if (data) XFree(data);
    return found;
}

References& references() {
    static References made;
    return made;
}

void screenBitmap(const TestShow& show, int i, Bitmap& out) {
    out.clear();
    out.data = allocPixels(show.width, show.height);
    out.width = show.width;
    out.height = show.height;
    for (int y = 0; y < show.height; y++)
        for (int x = 0; x < show.width; x++) out.at(x, y) = screenPixel(i, x, y);
}

// Every picture resized by tests/resample.py; empty when Pillow failed.
static std::vector<std::unique_ptr<Bitmap>> resample(const std::vector<const Bitmap*>& pictures, int width,
                                                     int height) {
    TempDir tmp;
    std::vector<std::string> argv = {kPython, std::string(SLIDES_SOURCE_DIR) + "/tests/resample.py",
                                     std::to_string(width), std::to_string(height)};
    for (size_t i = 0; i < pictures.size(); i++) {
        std::string in = tmp.file("in" + std::to_string(i) + ".png");
        writePng(in.c_str(), *pictures[i]);
        argv.push_back(in);
        argv.push_back(tmp.file("out" + std::to_string(i) + ".png"));
    }
    std::vector<std::unique_ptr<Bitmap>> out;
    if (runProgram(argv).status != 0) return out;
    for (size_t i = 0; i < pictures.size(); i++) {
        out.emplace_back(new Bitmap);
        if (!readPng(tmp.file("out" + std::to_string(i) + ".png").c_str(), *out.back())) return {};
    }
    return out;
}

const Bitmap* References::get(const std::string& name, const std::vector<const Bitmap*>& pictures, int i,
                              int width, int height) {
    std::string key = name + ":" + std::to_string(width) + "x" + std::to_string(height);
    auto found = made_.find(key);
    if (found == made_.end()) found = made_.emplace(key, resample(pictures, width, height)).first;
    std::vector<std::unique_ptr<Bitmap>>& all = found->second;
    return i < (int)all.size() ? all[i].get() : nullptr;
}

const Bitmap* References::get(const TestShow& show, int i, int width, int height) {
    std::string name = "screens " + std::to_string(show.width) + "x" + std::to_string(show.height) + "/" +
                       std::to_string(show.count());
    std::vector<std::unique_ptr<Bitmap>> screens;
    std::vector<const Bitmap*> pictures;
    if (made_.find(name + ":" + std::to_string(width) + "x" + std::to_string(height)) == made_.end())
        for (int k = 0; k < show.count(); k++) {
            screens.emplace_back(new Bitmap);
            screenBitmap(show, k, *screens.back());
            pictures.push_back(screens.back().get());
        }
    return get(name, pictures, i, width, height);
}

// An 8-bit channel as a visual of `bits` bits holds it and a capture reads it back.
static unsigned throughBits(unsigned v, int bits) {
    if (bits >= 8) return v;
    unsigned kept = v >> (8 - bits);
    return kept * 255 / ((1u << bits) - 1);
}

Difference compareWithReference(const Pixels& p, const Bitmap& ref, const Rect& picture, int depth,
                                bool black_around) {
    Difference d;
    if (p.width == 0) {
        d.problem = "no capture";
        return d;
    }
    int bits[3] = {8, 8, 8};
    if (depth == 16) bits[0] = 5, bits[1] = 6, bits[2] = 5;
    long long total = 0;
    for (int y = 0; y < p.height; y++)
        for (int x = 0; x < p.width; x++) {
            const unsigned char* got = &p.rgb[((size_t)y * p.width + x) * 3];
            int px = x - picture.x, py = y - picture.y;
            if (px < 0 || py < 0 || px >= picture.width || py >= picture.height) {
                if (black_around && (got[0] || got[1] || got[2])) d.stray++;
                continue;
            }
            Color c = ref.data[(size_t)py * ref.width + px];
            unsigned want[3] = {c.r, c.g, c.b};
            for (int k = 0; k < 3; k++) total += std::abs((int)got[k] - (int)throughBits(want[k], bits[k]));
        }
    d.mean = (double)total / (3.0 * picture.width * picture.height);
    return d;
}
