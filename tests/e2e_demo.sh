#!/usr/bin/env bash
# The demo show: built by the build, exports its slides, and `make demo`'s script falls back to
# exporting when there is no X display.
set -u
build=$1
source_dir=$2
source "$(dirname "$0")/lib/checks.sh"

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

check "demo show built" test -x "$build/demo_show"
pages=$(grep -c . "$build/demo-deck/slides.txt")
slides=$(grep -c ' 0$' "$build/demo-deck/slides.txt")
check "some slides have animation steps" test "$pages" -gt "$slides"

(cd "$tmp" && "$build/demo_show" -png-screens > /dev/null)
check "every screen exported" test "$(ls "$tmp"/screen_*.png | wc -l)" -eq "$pages"

mkdir "$tmp/headless"
out=$(cd "$tmp/headless" && env -u DISPLAY bash "$source_dir/scripts/run-demo" "$build/demo_show")
check "headless message" grep -q "No X display available; exporting the demo's slides to demo-slides/ instead." <<< "$out"
check "every slide exported" test "$(ls "$tmp"/headless/demo-slides/slide_*.png | wc -l)" -eq "$slides"

# Every exported slide is the last page of its slide in the deck the show was packed from.
last_pages=$(awk '{ if (NR > 1 && $2 == 0) print prev; prev = $1 } END { print prev }' "$build/demo-deck/slides.txt")
n=0
for page in $last_pages; do
  n=$((n + 1))
  "$build/slides_codec" encode "$build/demo-deck/$page" "$tmp/page.bin"
  "$build/slides_codec" encode "$tmp/headless/demo-slides/$(printf 'slide_%02d.png' $n)" "$tmp/slide.bin"
  check "page $page encoded" test -s "$tmp/page.bin"
  check "slide $n is page $page" cmp -s "$tmp/page.bin" "$tmp/slide.bin"
done

finish_checks
