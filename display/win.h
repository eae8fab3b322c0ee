// One X11 window with a software frame buffer, and its input events.
//
// Callers draw Color pixels into win_data (row-major, stride win_width), queue the changed
// rectangles with update and push them to the server with commit.
#pragma once
#include <X11/Xlib.h>

#include <cstdint>

#include "codec/bitmap.h"

extern "C" {
// A queued rectangle: columns x0..x1-1, rows y0..y1-1.
struct UpdateCell {
    int x0, y0, x1, y1;
    UpdateCell* next;
};

extern Display* display;
extern Window window;
extern int screen_no;
extern int win_width, win_height, win_size;
extern Color* win_data;
extern void* raw_data;
extern UpdateCell* first_cell;

// -1: pack into 16 bits; 0: copy the 4 bytes; 1: exchange bytes 0 and 2.
extern int RGB_conv;
extern int R_down, G_down, B_down;
extern int R_up, G_up, B_up;
extern uint32_t raw_R, raw_G, raw_B;
extern uint32_t win_R, win_G, win_B;
extern Color color_Red, color_Green, color_Blue;

extern unsigned char key_pressed[512];
extern int key_repeat;

void openWin(unsigned width, unsigned height, const char* title);
int closeWin();
void update(int x0, int y0, int x1, int y1);
int commit();

int peekEvent(int* code, int* x, int* y);
void skipEvent();
void nextEvent(int* code, int* x, int* y);
unsigned keyToSym(int keycode, unsigned index);
}

struct Monitor;
extern Atom wm_delete_window;  // the window manager's close request

// The default display, or the display error's message and exit.
Display* connectDisplay();
// Opens the window over the whole monitor: full screen through the window manager when one
// supports it, else borderless on the monitor's rectangle; waits until it is mapped and gives it
// the keyboard focus.
void openMonitorWin(const Monitor& monitor, const char* title);
// Opens one more window over the whole monitor on the open display, as openMonitorWin does but
// without taking the focus; returns it once it is mapped.
Window openMonitorWindow(const Monitor& monitor, const char* title);

void exposeWin(int x0, int y0, int x1, int y1);
void resizeBuffer(int width, int height);
int peekEvent_helper(int* code, int* x, int* y, int block);
int keyIsModifier(int sym);
int waitAnyKey();
// Waits until a reportable event stands at the head of the queue (1) or timeout_ms pass (0);
// a negative timeout waits for ever. Exposures and focus changes are handled on the way.
int waitEvent(int timeout_ms);

// Event codes beyond key codes and buttons.
const int EVENT_MOTION = 0x7FFFFFFF;
const int EVENT_RESIZE = 0x7FFFFFFE;
const int EVENT_CLOSE = 0x7FFFFFFD;  // the window manager asks the window to close
const int EVENT_CONSOLE_RESIZE = 0x7FFFFFFC;  // the console window has a new size (x, y)
const int EVENT_BUTTON = 256;  // button b is reported as EVENT_BUTTON + b
const unsigned NO_SYMBOL = 0xFFFFFF;
