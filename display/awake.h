// Keeping the screen awake while a show is presented.
#pragma once

// Suspends the X screen saver and display power saving for as long as this connection to the
// display lasts: closing it, or the process ending in any way, lets them work again.
void suspendScreenSaver();
