#!/usr/bin/env bash
# The source tarball: `package_source` writes slides-VERSION.tar.gz with every tracked file and no
# build folders or .git; unpacked into a temporary folder it configures and builds. To keep the
# test suite's time, the unpacked tree builds only the programs (not its own tests) and packs and
# exports a two-page show with them.
set -u
build=$(cd "$1" && pwd -P)
source_dir=$(cd "$2" && pwd -P)
corpus="$source_dir/../shared/corpus/conference-talk"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "$(dirname "$0")/lib/checks.sh"
give_up() { cat "$1"; echo "FAILED: $2"; echo "$((checks - failures)) passed, $((failures + 1)) failed"; exit 1; }

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
name="slides-$version"
tarball="$build/$name.tar.gz"
rm -f "$tarball"
cmake --build "$build" --target package_source > "$work/package.log" 2>&1 || give_up "$work/package.log" package_source
check "tarball written" test -s "$tarball"
tar tzf "$tarball" | sed "s|^$name/||" | sort > "$work/contents"

none_matching() { ! grep -qE "$1" "$work/contents"; }
check "no build folders" none_matching '^build[^/]*/'
check "no .git" none_matching '^\.git/'
for file in CMakeLists.txt Makefile README.md scripts/install-deps man/view_slides.1 man/pack_slides.1 \
            tests/e2e_dist.sh docs/demo.png; do
    check "holds $file" grep -qxF "$file" "$work/contents"
done
if git -C "$source_dir" ls-files > "$work/tracked" 2> /dev/null && [ -s "$work/tracked" ]; then
    missing=$(sort "$work/tracked" | comm -23 - "$work/contents")
    check "holds every tracked file" test -z "$missing"
    [ -z "$missing" ] || echo "missing: $missing"
else
    echo "SKIPPED tracked-file check: $source_dir is not a git work tree"
fi

# Unpacked elsewhere, the tree configures and builds its programs.
tar xzf "$tarball" -C "$work"
tree="$work/$name"
cmake -S "$tree" -B "$tree/build" -DCMAKE_BUILD_TYPE=Release > "$work/configure.log" 2>&1 ||
    give_up "$work/configure.log" "configure the unpacked tree"
cmake --build "$tree/build" -j2 --target view_slides pack_slides slides_codec > "$work/build.log" 2>&1 ||
    give_up "$work/build.log" "build the unpacked tree"
check "unpacked version" grep -qx "pack_slides (slides) $version" <("$tree/build/pack_slides" --version)

# Its programs pack two pages into a show whose exported screens are those pages.
if [ -d "$corpus" ]; then
    pages=("$corpus/page_001.png" "$corpus/page_002.png")
else
    "$build/make_demo" "$work/deck" > /dev/null
    pages=("$work/deck/$(sed -n 1p "$work/deck/slides.txt" | cut -d' ' -f1)"
           "$work/deck/$(sed -n 2p "$work/deck/slides.txt" | cut -d' ' -f1)")
fi
"$tree/build/pack_slides" "${pages[@]}" -o "$work/show" > "$work/pack.log" 2>&1 || give_up "$work/pack.log" "pack"
mkdir "$work/export"
(cd "$work/export" && ../show -png-screens > /dev/null)
codec="$tree/build/slides_codec"
for i in 0 1; do
    exported="$work/export/screen_00$i.png"
    check "screen $i exported" test -f "$exported"
    "$codec" encode "${pages[$i]}" "$work/page.bin" && "$codec" encode "$exported" "$work/screen.bin"
    check "screen $i is its page" cmp -s "$work/page.bin" "$work/screen.bin"
done

finish_checks
