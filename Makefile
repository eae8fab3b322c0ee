# The two commands a newcomer needs: `make demo` and `make test`.
BUILD ?= build
JOBS ?= 2

.PHONY: all deps configure build test demo bench clean fuzz

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release > /dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS)
	@JOBS=$(JOBS) scripts/sanitize-test $(BUILD)-sanitize
	@JOBS=$(JOBS) scripts/fuzz 10 $(BUILD)-fuzz $(BUILD)

# Every fuzz target on its seeds and kept crashes, then fuzzed for DURATION seconds each.
DURATION ?= 600
fuzz: deps
	@JOBS=$(JOBS) scripts/fuzz $(DURATION) $(BUILD)-fuzz $(BUILD)

# Starts the demo show; without an X display it exports the demo's slides to demo-slides/.
# Builds only the programs the demo needs.
demo: configure
	@cmake --build $(BUILD) -j$(JOBS) --target demo
	@scripts/run-demo $(BUILD)/demo_show

# Measures packing, unpacking, decoding, memory, sizes and drawing on the corpus decks, decks made
# from their pages and DECK (a deck folder).
bench: build
	@$(BUILD)/bench_slides $(DECK)

clean:
	rm -rf $(BUILD)

# Installs the programs and their man pages under PREFIX, below DESTDIR when it is set.
PREFIX ?= /usr/local
.PHONY: install uninstall dist
install: build
	@DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)"

# Removes the files that the last install wrote, as listed in the build folder's install manifest.
uninstall:
	@test -f $(BUILD)/install_manifest.txt || { echo "Nothing to uninstall: no $(BUILD)/install_manifest.txt" >&2; exit 1; }
	@while IFS= read -r f || [ -n "$$f" ]; do rm -fv "$(DESTDIR)$$f"; done < $(BUILD)/install_manifest.txt

# Writes the source tarball $(BUILD)/slides-VERSION.tar.gz (no build folders, no .git).
dist: configure
	@cmake --build $(BUILD) --target package_source
