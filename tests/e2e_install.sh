#!/usr/bin/env bash
# Installed like a real tool: cmake --install into a temporary DESTDIR, then the installed packer
# (called through a symbolic link) builds a show with the installed viewer, the show exports its
# slides and they match their pages; man pages pass groff's warning check; make uninstall
# removes every installed file.
set -u
build=$(cd "$1" && pwd -P)
source_dir=$(cd "$2" && pwd -P)
corpus="$source_dir/../shared/corpus/conference-talk"
work=$(mktemp -d)
manifest="$build/install_manifest.txt"
# Installing rewrites the build folder's manifest; keep the one of a real install.
[ -f "$manifest" ] && cp "$manifest" "$work/manifest.saved"
restore() {
    if [ -f "$work/manifest.saved" ]; then cp "$work/manifest.saved" "$manifest"; else rm -f "$manifest"; fi
    rm -rf "$work"
}
trap restore EXIT
source "$(dirname "$0")/lib/checks.sh"

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
dest="$work/dest"
bin="$dest/usr/local/bin"
man1="$dest/usr/local/share/man/man1"
DESTDIR="$dest" cmake --install "$build" --prefix /usr/local > "$work/install.log" ||
    { cat "$work/install.log"; echo "0 passed, 1 failed"; exit 1; }

for program in view_slides pack_slides slides_codec; do
    check "$program installed" test -x "$bin/$program"
done
check "version known" test -n "$version"
check "pack_slides --version" grep -qx "pack_slides (slides) $version" <(cd "$work" && "$bin/pack_slides" --version)
check "pack_slides --help" grep -q -- '--version' <(cd "$work" && "$bin/pack_slides" --help)
lacks() { ! grep -qF "$2" "$1"; }
check "no build path in the packer" lacks "$bin/pack_slides" "$build"

# Man pages: installed, free of groff warnings, showing the version and every switch.
groff_clean() { [ -z "$(groff -man -ww -z "$1" 2>&1)" ]; }
mentions() {  # mentions PAGE OPTION...: every option appears in the page's roff source
    local page=$1 text
    shift
    text=$(sed 's/\\-/-/g' "$page")
    for option in "$@"; do
        grep -qe "$option\b" <<< "$text" || { echo "$page lacks $option"; return 1; }
    done
}
for page in view_slides pack_slides; do
    check "$page.1 installed" test -f "$man1/$page.1"
    check "$page.1 groff warnings" groff_clean "$man1/$page.1"
    check "$page.1 version" grep -q "^\.TH .*\"slides $version\"" "$man1/$page.1"
    check "$page.1 exit statuses" grep -q '^\.SH "EXIT STATUS"' "$man1/$page.1"
done
view_options=$("$bin/view_slides" -help | grep -oE -- '^ +-[a-z][a-z-]*' | sort -u)
check "view_slides -help lists switches" test "$(wc -w <<< "$view_options")" -ge 7
# shellcheck disable=SC2086
check "view_slides.1 switches" mentions "$man1/view_slides.1" -png-screens -png-slides -debug $view_options
pack_options=$("$bin/pack_slides" --help | grep -oE -- '(^| )--?[a-z][a-z-]*' | sort -u)
check "pack_slides --help lists options" test "$(wc -w <<< "$pack_options")" -ge 10
# shellcheck disable=SC2086
check "pack_slides.1 switches" mentions "$man1/pack_slides.1" $pack_options

# A deck: the first pages of a corpus talk, or the demo pages when the corpus is absent.
if [ -d "$corpus" ]; then
    deck="$corpus"
    head -10 "$corpus/slides.txt" > "$work/slides.txt"
else
    echo "Corpus not found at $corpus; using the demo pages instead"
    deck="$work/demo-deck"
    "$build/make_demo" "$deck" > /dev/null
    cp "$deck/slides.txt" "$work/slides.txt"
fi
pages=()
while read -r file _; do pages+=("$deck/$file"); done < "$work/slides.txt"

# The installed packer through a symbolic link in another folder finds the installed viewer.
mkdir "$work/links"
ln -s "$bin/pack_slides" "$work/links/pack_slides"
(cd "$work" && links/pack_slides "${pages[@]}" --slides "$work/slides.txt" -o "$work/show") > "$work/pack.log"
check "show packed" test -x "$work/show"
check "packer names the installed viewer" grep -qF "viewer $bin/view_slides" "$work/pack.log"
viewer_size=$(stat -c %s "$bin/view_slides")
check "show starts with the installed viewer" cmp -s -n "$viewer_size" "$bin/view_slides" "$work/show"

# The show's exported slides are the last pages of their slides, pixel for pixel.
mkdir "$work/export"
(cd "$work/export" && ../show -png-slides > /dev/null)
last_pages=$(awk '{ if (NR > 1 && $2 == 0) print prev; prev = $1 } END { print prev }' "$work/slides.txt")
check "slide count" test "$(find "$work/export" -name "slide_*.png" | wc -l)" -eq "$(wc -w <<< "$last_pages")"
same_pixels() {  # same_pixels A.png B.png: both encode to the same codec stream
    "$bin/slides_codec" encode "$1" "$work/a.bin" && "$bin/slides_codec" encode "$2" "$work/b.bin" &&
        cmp -s "$work/a.bin" "$work/b.bin"
}
n=0
for page in $last_pages; do
    n=$((n + 1))
    check "slide $n" same_pixels "$deck/$page" "$work/export/$(printf 'slide_%02d.png' "$n")"
done

# Another prefix puts the programs under it.
DESTDIR="$dest" cmake --install "$build" --prefix /opt/slides > /dev/null
check "prefix honoured" test -x "$dest/opt/slides/bin/pack_slides"

# make uninstall removes what the last install listed.
make -s -C "$source_dir" uninstall BUILD="$build" DESTDIR="$dest" > /dev/null
check "uninstalled" test -z "$(find "$dest/opt" -type f)"

finish_checks
