// The mouse pointer over the window: hidden while a show is presented, shown while it moves.
#pragma once

// Hides the pointer while it is over the window (hidden = true) or gives it its usual look back.
void hidePointer(bool hidden);
