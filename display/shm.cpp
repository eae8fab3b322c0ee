// The segment is marked for removal as soon as both sides have attached it, so it goes away
// with the process however that ends.
#include "display/shm.h"

#include <X11/Xutil.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstdlib>
#include <cstring>

#include "display/win.h"

static bool attach_failed;
static int noteAttachFailure(Display*, XErrorEvent*) {
    attach_failed = true;
    return 0;
}

// Attaches the segment on the server's side; a remote server answers with an error.
static bool serverAttaches(XShmSegmentInfo& segment) {
    attach_failed = false;
    XSync(display, False);
    int (*previous)(Display*, XErrorEvent*) = XSetErrorHandler(noteAttachFailure);
    XShmAttach(display, &segment);
    XSync(display, False);
    XSetErrorHandler(previous);
    return !attach_failed;
}

static void dropSegment(SharedImage& shared) {
    if (shared.image) {
        shared.image->data = nullptr;
        XDestroyImage(shared.image);
    }
    if (shared.segment.shmaddr && shared.segment.shmaddr != (char*)-1) shmdt(shared.segment.shmaddr);
    shared = SharedImage();
}

// The buffer the server reads: the frame buffer itself when its pixels are already the
// visual's (no conversion to make), else the display buffer. Moving it copies its bytes into
// fresh memory (shared or not) and frees the old memory unless that was shared.
static void moveSentBuffer(Surface& s, void* fresh, bool old_is_shared) {
    bool frame = RGB_conv == 0;
    void* old = frame ? (void*)s.data : s.raw;
    memcpy(fresh, old, (size_t)s.width * s.height * 4);
    if (!old_is_shared) free(old);
    if (frame)
        s.data = (Color*)fresh;
    else
        s.raw = fresh;
}

bool shareSurface(Surface& s) {
    SharedImage& shared = s.shared;
    if (shared.image || !XShmQueryExtension(display)) return false;
    int depth = DefaultDepth(display, screen_no);
    shared.image = XShmCreateImage(display, DefaultVisual(display, screen_no), depth, ZPixmap, nullptr,
                                   &shared.segment, s.width, s.height);
    // The rows must lie in the buffer as the frame buffer's conversion writes them.
    int stride = s.width * (RGB_conv == -1 ? 2 : 4);
    if (!shared.image || shared.image->bytes_per_line != stride) return dropSegment(shared), false;
    shared.segment.shmid = shmget(IPC_PRIVATE, (size_t)s.width * s.height * 4, IPC_CREAT | 0600);
    if (shared.segment.shmid < 0) return dropSegment(shared), false;
    shared.segment.shmaddr = (char*)shmat(shared.segment.shmid, nullptr, 0);
    shared.segment.readOnly = True;
    bool attached = shared.segment.shmaddr != (char*)-1 && serverAttaches(shared.segment);
    shmctl(shared.segment.shmid, IPC_RMID, nullptr);
    if (!attached) return dropSegment(shared), false;
    shared.image->data = shared.segment.shmaddr;
    moveSentBuffer(s, shared.segment.shmaddr, false);
    return true;
}

void unshareSurface(Surface& s) {
    if (!s.shared.image) return;
    void* own = malloc((size_t)s.width * s.height * 4);
    if (!own) return;  // keeps the shared buffer; it goes with the process
    XShmDetach(display, &s.shared.segment);
    XSync(display, False);
    moveSentBuffer(s, own, true);
    dropSegment(s.shared);
}

void freeSurface(Surface& s) {
    if (s.shared.image) {
        XShmDetach(display, &s.shared.segment);
        XSync(display, False);
        if (RGB_conv == 0)
            s.data = nullptr;
        else
            s.raw = nullptr;
        dropSegment(s.shared);
    }
    free(s.data);
    free(s.raw);
    s = Surface();
}

bool serverReadsFrame(const Surface& s) { return s.shared.image && RGB_conv == 0; }

bool putShared(const Surface& s, int x0, int y0, int x1, int y1) {
    if (!s.shared.image) return false;
    XShmPutImage(display, s.window, DefaultGC(display, screen_no), s.shared.image, x0, y0, x0, y0, x1 - x0,
                 y1 - y0, False);
    XSync(display, False);
    return true;
}
