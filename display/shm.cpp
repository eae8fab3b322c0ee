// The segment is marked for removal as soon as both sides have attached it, so it goes away
// with the process however that ends.
#include "display/shm.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdlib>
#include <cstring>

#include "display/win.h"

static XShmSegmentInfo segment;
static XImage* shared = nullptr;  // the whole buffer as the server sees it

static bool attach_failed;
static int noteAttachFailure(Display*, XErrorEvent*) {
    attach_failed = true;
    return 0;
}

// Attaches the segment on the server's side; a remote server answers with an error.
static bool serverAttaches() {
    attach_failed = false;
    XSync(display, False);
    int (*previous)(Display*, XErrorEvent*) = XSetErrorHandler(noteAttachFailure);
    XShmAttach(display, &segment);
    XSync(display, False);
    XSetErrorHandler(previous);
    return !attach_failed;
}

static void dropSegment() {
    if (shared) {
        shared->data = nullptr;
        XDestroyImage(shared);
        shared = nullptr;
    }
    if (segment.shmaddr && segment.shmaddr != (char*)-1) shmdt(segment.shmaddr);
    segment = XShmSegmentInfo();
}

// The buffer the server reads: the frame buffer itself when its pixels are already the
// visual's (no conversion to make), else the display buffer. Moving it copies its bytes into
// fresh memory (shared or not) and frees the old memory unless that was shared.
static void moveSentBuffer(void* fresh, bool old_is_shared) {
    bool frame = RGB_conv == 0;
    void* old = frame ? (void*)win_data : raw_data;
    memcpy(fresh, old, (size_t)win_size * 4);
    if (!old_is_shared) free(old);
    if (frame)
        win_data = (Color*)fresh;
    else
        raw_data = fresh;
}

bool shareDisplayBuffer() {
    if (shared || !XShmQueryExtension(display)) return false;
    int depth = DefaultDepth(display, screen_no);
    shared = XShmCreateImage(display, DefaultVisual(display, screen_no), depth, ZPixmap, nullptr, &segment,
                             win_width, win_height);
    // The rows must lie in the buffer as the frame buffer's conversion writes them.
    int stride = win_width * (RGB_conv == -1 ? 2 : 4);
    if (!shared || shared->bytes_per_line != stride) return dropSegment(), false;
    segment.shmid = shmget(IPC_PRIVATE, (size_t)win_size * 4, IPC_CREAT | 0600);
    if (segment.shmid < 0) return dropSegment(), false;
    segment.shmaddr = (char*)shmat(segment.shmid, nullptr, 0);
    segment.readOnly = True;
    bool attached = segment.shmaddr != (char*)-1 && serverAttaches();
    shmctl(segment.shmid, IPC_RMID, nullptr);
    if (!attached) return dropSegment(), false;
    shared->data = segment.shmaddr;
    moveSentBuffer(segment.shmaddr, false);
    return true;
}

void unshareDisplayBuffer() {
    if (!shared) return;
    void* own = malloc((size_t)win_size * 4);
    if (!own) return;  // keeps the shared buffer; it goes with the process
    XShmDetach(display, &segment);
    XSync(display, False);
    moveSentBuffer(own, true);
    dropSegment();
}

bool frameBufferShared() { return shared && RGB_conv == 0; }

bool putShared(int x0, int y0, int x1, int y1) {
    if (!shared) return false;
    XShmPutImage(display, window, DefaultGC(display, screen_no), shared, x0, y0, x0, y0, x1 - x0, y1 - y0, False);
    XSync(display, False);
    return true;
}
