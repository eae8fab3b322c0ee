#!/usr/bin/env bash
# view_slides under valgrind: exporting every screen of a small archive packed from corpus pages
# must run without a single memory error (invalid read or write, use of uninitialised values).
set -u
build=$1
source=$2
deck="$source/../shared/corpus/conference-talk"
if [ ! -d "$deck" ]; then
    echo "SKIPPED: corpus folder $deck is absent"
    exit 0
fi
if ! command -v valgrind > /dev/null; then
    echo "FAILED: valgrind is not installed (scripts/install-deps installs it)"
    exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

pages=("$deck"/page_00[1-5].png)
if ! "$build/pack_slides" "${pages[@]}" --archive "$work/show.bin" > "$work/pack.txt" 2>&1; then
    echo "FAILED: pack_slides: $(cat "$work/pack.txt")"
    exit 1
fi

cd "$work"
valgrind --error-exitcode=1 --quiet "$build/view_slides" show.bin -png-screens > out.txt 2> err.txt
status=$?
if [ "$status" -ne 0 ]; then
    echo "FAILED: valgrind run ended with status $status"
    cat err.txt
    exit 1
fi
count=$(ls screen_*.png 2> /dev/null | wc -l)
if [ "$count" -ne ${#pages[@]} ]; then
    echo "FAILED: $count screens written, ${#pages[@]} expected"
    exit 1
fi
echo "valgrind: $count screens exported without memory errors"
