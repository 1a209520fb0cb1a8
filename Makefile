# Both targets work on a fresh Debian 12 machine as root.
BUILD ?= build
PREFIX := $(abspath $(BUILD))/wineprefix
# Benchmarks get a fresh lab of their own: jobs left in the test lab (the
# demo's, say) would turn the "no job" start-up into a whole run.
BENCH_PREFIX := $(abspath $(BUILD))/wineprefix-bench
JOBS ?= $(shell nproc)

.PHONY: all deps configure build test demo bench clean

all: build

deps:
	scripts/setup.sh

configure: deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake

build: configure
	cmake --build $(BUILD) -j $(JOBS)

# Builds everything, makes the lab and runs unit and integration tests; the
# lab is stopped however the run ends, Ctrl-C included.
test: build
	scripts/test.sh $(BUILD) $(PREFIX) $(JOBS)

# Runs the tool's job in a fresh lab and shows what it left behind.
demo: build
	scripts/demo.sh $(BUILD)

bench: build
	cmake --build $(BUILD) --target zt_benchmarks -j $(JOBS)
	scripts/bench.sh $(BUILD) $(BENCH_PREFIX)

clean:
	-scripts/lab.sh stop $(PREFIX)
	-scripts/lab.sh stop $(abspath $(BUILD))/wineprefix-demo
	-scripts/lab.sh stop $(BENCH_PREFIX)
	rm -rf $(BUILD)
