#!/usr/bin/env bash
# The command-line programs need no X: pack_slides and slides_codec are linked without any X
# library and load none, while the viewer is linked with libX11 and loads it (which shows that
# the checks can see one).
set -u
build=$1
source "$(dirname "$0")/lib/checks.sh"

x_library='lib(X[a-zA-Z0-9]*|xcb[a-z0-9-]*)\.(so|a)'
link_command() { cat "$build/$1/CMakeFiles/$2.dir/link.txt"; }
linked_with_x() { link_command "$1" "$2" | grep -Eq "$x_library|-lX11"; }
loads_x() { ldd "$build/$1" | grep -Eq "$x_library"; }
not() { ! "$@"; }

check "pack_slides linked without X" not linked_with_x packer pack_slides
check "slides_codec linked without X" not linked_with_x tools slides_codec
check "view_slides linked with libX11" linked_with_x app view_slides
check "pack_slides loads no X library" not loads_x pack_slides
check "slides_codec loads no X library" not loads_x slides_codec
check "view_slides loads libX11" loads_x view_slides
finish_checks
