#!/usr/bin/env bash
# slides_codec end to end: corpus pages through encode / decode / re-encode, and the error
# line and status for bad input.
set -u
build=$1
source=$2
tool="$build/slides_codec"
corpus="$source/../shared/corpus"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$(dirname "$0")/lib/checks.sh"

# Runs the tool expecting status 1 and exactly one stderr line starting "ERROR! ".
expect_error() {
    "$tool" "$@" > "$work/out.txt" 2> "$work/err.txt"
    local status=$?
    [ "$status" -eq 1 ] && [ "$(wc -l < "$work/err.txt")" -eq 1 ] && grep -q '^ERROR! ' "$work/err.txt" ||
        { echo "status $status, stderr: $(cat "$work/err.txt")"; return 1; }
}

no_output_left() {  # no file of the given name, nor a temporary beside it
    [ ! -e "$1" ] && [ -z "$(ls "$1".tmp.* 2> /dev/null)" ]
}

round_trip() {  # PNG -> stream -> PNG -> stream gives the same stream, for both modes
    local page=$1 flag=$2
    "$tool" encode "$page" "$work/a.bin" $flag &&
        "$tool" decode "$work/a.bin" "$work/a.png" &&
        "$tool" encode "$work/a.png" "$work/b.bin" $flag &&
        cmp -s "$work/a.bin" "$work/b.bin"
}

if [ -d "$corpus" ]; then
    for page in "$corpus"/*/page_*.png; do
        check "round trip $page" round_trip "$page" ""
    done
    for page in "$corpus"/*/page_001.png; do
        check "raw round trip $page" round_trip "$page" --raw
    done
    page=$(ls "$corpus"/*/page_*.png | head -1)
    "$tool" encode "$page" "$work/page.bin"
    head -c 20 "$work/page.bin" > "$work/cut.bin"
    check "truncated stream" expect_error decode "$work/cut.bin" "$work/cut.png"
    check "no output after failure" no_output_left "$work/cut.png"
else
    echo "SKIPPED corpus round trips: $corpus not found"
fi

printf '\x00\x01\x01\x00\x00\x00' > "$work/zero.bin"
printf 'not a png at all' > "$work/text.png"
check "no arguments" expect_error
check "unknown command" expect_error frobnicate a b
check "bad option" expect_error encode "$work/text.png" "$work/x.bin" --fast
check "missing input" expect_error decode "$work/missing.bin" "$work/x.png"
check "colour count 0" expect_error decode "$work/zero.bin" "$work/zero.png"
check "not a PNG" expect_error encode "$work/text.png" "$work/text.bin"
check "no half-written output" no_output_left "$work/text.bin"

# A one-pixel stream written by hand decodes to the expected PNG and re-encodes identically.
printf '\x00\x01\x01\x02\x07\x08\x09\x00\x01\x01' > "$work/pixel.bin"
check "one pixel decodes" "$tool" decode "$work/pixel.bin" "$work/pixel.png"
check "one pixel re-encodes" "$tool" encode "$work/pixel.png" "$work/pixel2.bin"
check "one pixel stream identical" cmp -s "$work/pixel.bin" "$work/pixel2.bin"
check "unwritable output" expect_error decode "$work/pixel.bin" "/nonexistent-folder/x.png"

finish_checks
