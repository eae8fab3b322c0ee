#!/usr/bin/env bash
# The command-line programs need no X: pack_slides and slides_codec load no X library, while the
# viewer does (which shows that the check can see one).
set -u
build=$1
source "$(dirname "$0")/lib/checks.sh"

x_libraries() { ldd "$1" | grep -E 'lib(X[a-zA-Z0-9]*|xcb[a-z0-9-]*)\.so'; }
loads_no_x() { ! x_libraries "$1" > /dev/null; }
loads_x() { x_libraries "$1" > /dev/null; }

check "pack_slides loads no X library" loads_no_x "$build/pack_slides"
check "slides_codec loads no X library" loads_no_x "$build/slides_codec"
check "view_slides loads libX11" loads_x "$build/view_slides"
finish_checks
