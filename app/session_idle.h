// Asking the desktop session not to go idle while a show is presented.
#pragma once

// Sends org.freedesktop.ScreenSaver's Inhibit on the session bus, when there is one and the
// system has libdbus-1, and keeps the connection for the rest of the process: the session drops
// the inhibition when the connection closes, however the process ends. Returns whether the
// request was sent.
bool inhibitSessionIdle(const char* application, const char* reason);
