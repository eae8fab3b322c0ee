// make_demo: draws the demo presentation (title, keys, slides with animation steps, two looks)
// with the project's own text rendering and writes it as a deck folder for pack_slides.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "display/win.h"
#include "display/winstd.h"
#include "png/png.h"

static const int W = 1005, H = 754;

static const Color ink = {30, 34, 48, 0};
static const Color paper = {246, 244, 238, 0};
static const Color night = {24, 28, 44, 0};
static const Color accent = {232, 120, 40, 0};
static const Color muted = {120, 126, 140, 0};

static void fillRect(int x0, int y0, int x1, int y1, Color c) {
    for (int y = y0; y < y1; y++)
        for (int x = x0; x < x1; x++) win_data[y * win_width + x] = c;
}

// The light look of content slides: paper, a title bar and a footer.
static void contentPage(const char* title, int number) {
    fillRect(0, 0, W, H, paper);
    fillRect(0, 0, W, 70, night);
    fillRect(0, 70, W, 74, accent);
    putBigText(title, 40, 35, color_White, 2, 0, false);
    fillRect(0, H - 30, W, H, night);
    putText("Slide shows in one file", 20, H - 15, color_White, 2, 0);
    char page[16];
    snprintf(page, sizeof page, "%d", number);
    putText(page, W - 20, H - 15, color_White, 1, 0);
}

// The dark look of title and section slides.
static void sectionPage(const char* title, const char* subtitle) {
    fillRect(0, 0, W, H, night);
    fillRect(W / 2 - 200, H / 2 + 10, W / 2 + 200, H / 2 + 14, accent);
    putBigText(title, W / 2, H / 2 - 20, color_White, 0, 0, false);
    putBigText(subtitle, W / 2, H / 2 + 50, muted, 0, 0, true);
}

static void bullets(const std::vector<const char*>& lines, int shown) {
    for (int i = 0; i < shown && i < (int)lines.size(); i++) {
        int y = 130 + i * 60;
        fillRect(60, y - 5, 70, y + 5, accent);
        putBigText(lines[i], 90, y, ink, 2, 0, false);
    }
}

struct DeckWriter {
    std::string folder;
    FILE* list;
    int pages = 0;

    void page(bool continues) {
        char name[32];
        snprintf(name, sizeof name, "page_%.3d.png", ++pages);
        Bitmap bitmap;
        bitmap.owned = false;
        bitmap.data = win_data;
        bitmap.width = W;
        bitmap.height = H;
        if (!writePng((folder + "/" + name).c_str(), bitmap)) {
            fprintf(stderr, "ERROR! Could not write: %s/%s\n", folder.c_str(), name);
            exit(1);
        }
        fprintf(list, "%s %d\n", name, continues ? 1 : 0);
    }
};

static void keysSlide(DeckWriter& deck, int number) {
    contentPage("Moving through the show", number);
    const char* keys[][2] = {
        {"Space, Return, left click", "next screen"},
        {"BackSpace, right click", "previous screen"},
        {"Page Down, Page Up", "whole slides, with a scroll"},
        {"Right, Left", "next, previous screen at once"},
        {"Down, Up, mouse wheel", "whole slides at once"},
        {"Home, End", "first, last slide"},
        {"q, Escape", "quit"},
    };
    for (int i = 0; i < 7; i++) {
        putBigText(keys[i][0], 80, 130 + i * 55, accent, 2, 0, false);
        putBigText(keys[i][1], 560, 130 + i * 55, ink, 2, 0, true);
    }
    deck.page(false);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "ERROR! Usage: make_demo FOLDER\n");
        return 1;
    }
    mkdir(argv[1], 0755);
    DeckWriter deck{argv[1], fopen((std::string(argv[1]) + "/slides.txt").c_str(), "w")};
    if (!deck.list) {
        fprintf(stderr, "ERROR! Could not write: %s/slides.txt\n", argv[1]);
        return 1;
    }
    win_width = W;
    win_height = H;
    win_size = W * H;
    std::vector<Color> frame(W * H);
    win_data = frame.data();

    sectionPage("Slide shows in one file", "press Space to begin, q to quit");
    deck.page(false);
    keysSlide(deck, 2);

    std::vector<const char*> idea = {"One program carries the whole talk", "Slides are packed losslessly",
                                     "Screens unpack into memory at start", "New slides scroll in"};
    for (int shown = 1; shown <= (int)idea.size(); shown++) {
        contentPage("The idea", 3);
        bullets(idea, shown);
        deck.page(shown > 1);
    }

    sectionPage("How it works", "colour tables, Huffman codes, a quadtree");
    deck.page(false);

    std::vector<const char*> codec = {"Each page becomes a table of colours", "Regions of one colour take a few bits",
                                      "Animation steps store what changed", "Backgrounds are shared"};
    for (int shown = 1; shown <= (int)codec.size(); shown++) {
        contentPage("Packing a page", 5);
        bullets(codec, shown);
        for (int i = 0; i < shown; i++) fillRect(620 + i * 80, 560 - i * 60, 680 + i * 80, 640, accent);
        deck.page(shown > 1);
    }

    contentPage("Make your own show", 6);
    putBigText("pack_slides talk/ -o talk", 80, 160, ink, 2, 0, false);
    putBigText("./talk", 80, 220, ink, 2, 0, false);
    putBigText("talk/slides.txt lists the pages:", 80, 300, muted, 2, 0, true);
    putBigText("page_001.png 0", 80, 340, ink, 2, 0, false);
    putBigText("page_002.png 1   (continues the slide)", 80, 380, ink, 2, 0, false);
    deck.page(false);

    sectionPage("Thank you", "press q to quit");
    deck.page(false);
    fclose(deck.list);
    printf("Wrote %d demo pages to %s\n", deck.pages, argv[1]);
    return 0;
}
