#include "app/view.h"

#include "display/win.h"

static const char* const title = "Marrowgate -- Pell Ormsby, KVORM 2007";

// Fixed first screens of the carried presentation's sub-sections.
enum { SECTION_C = 249, SECTION_R = 212, SECTION_E = 108, SECTION_E2 = 141, SECTION_M = 9, SECTION_M2 = 82 };

void drawSlide(Image& image) {
    int pixels = imagePixelCount(image);
    if (image.width == win_width && image.height == win_height && pixels == win_size) {
        copyPixels(image, 0, win_size, win_data);
    } else {
        int w = pixels ? (image.width < win_width ? image.width : win_width) : 0;
        int h = pixels ? (image.height < win_height ? image.height : win_height) : 0;
        for (int y = 0; y < win_height; y++) {
            Color* row = win_data + (size_t)y * win_width;
            int shown = y < h ? w : 0;
            if (shown) copyPixels(image, y * image.width, shown, row);
            for (int x = shown; x < win_width; x++) row[x] = Color{0, 0, 0, 0};
        }
    }
    update(0, 0, win_width, win_height);
    commit();
}

struct Flags {
    vec<bool>& flags;
    bool operator()(int j) const { return j >= 0 && j < flags.size && flags[j]; }
};

// The last screen of the slide that holds screen cur + 1.
static int forwardScan(int cur, const Flags& flag) {
    int j = cur + 2;
    while (flag(j)) j++;
    return j - 1;
}

// The last screen of the slide before the one that holds cur.
static int backwardScan(int cur, const Flags& flag) {
    int j = cur;
    while (flag(j)) j--;
    return j - 1;
}

struct Viewer {
    vec<Image>& images;
    Flags flag;
    int cur = 0, prev = 0;
    bool transitions_on = true;
    bool force_transition = false;

    int count() const { return images.size; }

    void show() {
        if (cur == prev) return;
        bool one_step = (flag(cur) && cur == prev + 1) || (flag(cur + 1) && cur == prev - 1);
        if (!transitions_on || (one_step && !force_transition)) {
            drawSlide(images[cur]);
            transitions_on = true;
        } else if (cur < prev) {
            prevSlide(images[cur]);
        } else {
            nextSlide(images[cur]);
        }
        force_transition = false;
    }

    // Applies one key; returns false when the key quits.
    bool key(unsigned sym, int& target) {
        switch (sym) {
        case 0x20: case 0xFF0D: target = cur + 1; break;             // space, Return
        case 0xFF08: target = cur - 1; break;                        // BackSpace
        case 0xFF53: target = cur + 1; transitions_on = false; break;  // Right
        case 0xFF51: target = cur - 1; transitions_on = false; break;  // Left
        case 0xFF54: target = forwardScan(cur, flag); transitions_on = false; break;   // Down
        case 0xFF52: target = backwardScan(cur, flag); transitions_on = false; break;  // Up
        case 0xFF56: target = forwardScan(cur, flag); force_transition = true; break;  // Page Down
        case 0xFF55: target = backwardScan(cur, flag); force_transition = true; break; // Page Up
        case 0xFF50: target = 0; force_transition = true; break;                       // Home
        case 0xFF57: target = count() - 1; force_transition = true; break;             // End
        case 0x63: target = SECTION_C; break;
        case 0x72: target = SECTION_R; break;
        case 0x65: target = cur == SECTION_E ? SECTION_E2 : SECTION_E; break;
        case 0x6D: target = cur == SECTION_M ? SECTION_M2 : SECTION_M; break;
        case 0x71: case 0xFF1B: case NO_SYMBOL: return false;        // q, Escape, no symbol
        default: break;
        }
        return true;
    }

    // Applies one event; returns false when the user quits.
    bool event(int code) {
        int target = cur;
        if (code == EVENT_RESIZE) {
            drawSlide(images[cur]);  // the frame buffer was reallocated at the new size
        } else if (code >= 1 && code <= 255) {
            if (!key(keyToSym(code, 0), target)) return false;
        } else if (code == EVENT_BUTTON + 1) {
            target = cur + 1;
        } else if (code == EVENT_BUTTON + 3) {
            target = cur - 1;
        } else if (code == EVENT_BUTTON + 4) {
            target = backwardScan(cur, flag);
            transitions_on = false;
        } else if (code == EVENT_BUTTON + 5) {
            target = forwardScan(cur, flag);
            transitions_on = false;
        }
        if (target > count() - 1) target = count() - 1;
        if (target < 0) target = 0;
        prev = cur;
        cur = target;
        return true;
    }
};

void view(vec<Image>& images, vec<bool>& flags) {
    openWin(images[0].width, images[0].height, title);
    drawSlide(images[0]);
    Viewer viewer{images, Flags{flags}};
    int code = 0, x = 0, y = 0;
    for (;;) {
        viewer.show();
        nextEvent(&code, &x, &y);
        if (!viewer.event(code)) break;
    }
    closeWin();
}
