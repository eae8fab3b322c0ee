// Monitors from RandR 1.5, Xinerama or the screen itself.
#include "display/monitors.h"

#include <X11/extensions/Xinerama.h>
#include <X11/extensions/Xrandr.h>

#include <cstdio>
#include <cstring>

Monitor monitorAt(int x, int y, int width, int height, bool primary) {
    Monitor m = {};
    m.x = x;
    m.y = y;
    m.width = width;
    m.height = height;
    m.primary = primary;
    return m;
}

static bool hasRandrMonitors(Display* d) {
    int event_base, error_base, major = 0, minor = 0;
    return XRRQueryExtension(d, &event_base, &error_base) && XRRQueryVersion(d, &major, &minor) &&
           (major > 1 || (major == 1 && minor >= 5));
}

static void randrMonitors(Display* d, vec<Monitor>& monitors) {
    if (!hasRandrMonitors(d)) return;
    int count = 0;
    XRRMonitorInfo* info = XRRGetMonitors(d, DefaultRootWindow(d), True, &count);
    for (int i = 0; info && i < count; i++) {
        Monitor& m = monitors.push(monitorAt(info[i].x, info[i].y, info[i].width, info[i].height, info[i].primary));
        if (char* name = XGetAtomName(d, info[i].name)) {
            snprintf(m.name, sizeof m.name, "%s", name);
            XFree(name);
        }
    }
    if (info) XRRFreeMonitors(info);
}

// Xinerama does not say which head is primary; the first one is taken for it.
static void xineramaMonitors(Display* d, vec<Monitor>& monitors) {
    int event_base, error_base, count = 0;
    if (!XineramaQueryExtension(d, &event_base, &error_base) || !XineramaIsActive(d)) return;
    XineramaScreenInfo* heads = XineramaQueryScreens(d, &count);
    for (int i = 0; heads && i < count; i++)
        monitors.push(monitorAt(heads[i].x_org, heads[i].y_org, heads[i].width, heads[i].height, i == 0));
    if (heads) XFree(heads);
}

void listMonitors(Display* d, vec<Monitor>& monitors) {
    monitors.clear();
    randrMonitors(d, monitors);
    if (monitors.size == 0) xineramaMonitors(d, monitors);
    int s = DefaultScreen(d);
    if (monitors.size == 0) monitors.push(monitorAt(0, 0, DisplayWidth(d, s), DisplayHeight(d, s), true));
}

int defaultMonitor(const vec<Monitor>& monitors) {
    for (int i = 0; i < monitors.size; i++)
        if (!monitors[i].primary) return i;
    return 0;
}

int defaultConsoleMonitor(const vec<Monitor>& monitors, int show) {
    for (int i = 0; i < monitors.size; i++)
        if (monitors[i].primary && i != show) return i;
    for (int i = 0; i < monitors.size; i++)
        if (i != show) return i;
    return -1;
}

int findMonitor(const vec<Monitor>& monitors, int index) { return index >= 0 && index < monitors.size ? index : -1; }

int findMonitor(const vec<Monitor>& monitors, const char* name) {
    for (int i = 0; i < monitors.size; i++)
        if (monitors[i].name[0] && strcmp(monitors[i].name, name) == 0) return i;
    return -1;
}

void describeMonitor(const vec<Monitor>& monitors, int i, char* out, size_t size) {
    const Monitor& m = monitors[i];
    snprintf(out, size, "%d%s%s %dx%d%+d%+d%s", i, m.name[0] ? " " : "", m.name, m.width, m.height, m.x, m.y,
             m.primary ? " primary" : "");
}

void describeMonitors(const vec<Monitor>& monitors, char* out, size_t size) {
    size_t used = 0;
    out[0] = 0;
    for (int i = 0; i < monitors.size && used + 2 < size; i++) {
        if (i) used += (size_t)snprintf(out + used, size - used, ", ");
        describeMonitor(monitors, i, out + used, size - used);
        used += strlen(out + used);
    }
}
