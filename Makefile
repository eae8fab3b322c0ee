# The two commands a newcomer needs: `make demo` and `make test`.
BUILD ?= build
JOBS ?= 2

.PHONY: all deps configure build test demo bench clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release > /dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

demo: build
	@echo "The demo show is not built yet."

clean:
	rm -rf $(BUILD)
