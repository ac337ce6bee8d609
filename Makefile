# The short way to everything. Each target first installs the packages that are missing.
#
#   make run     build a release and feed the test pattern to /tmp/lenslark.shm
#   make test    build and run every test
#   make bench   build the benchmarks and print their table
#   make lint    formatting and static analysis
#   make clean   remove everything that was built
#   make install build and install below PREFIX (/usr/local)

MAKEFLAGS += --no-print-directory
JOBS ?= $(shell nproc)
WERROR ?= OFF
BENCH ?= OFF
CTEST_FLAGS ?=
PREFIX ?= /usr/local
BUILD := build

.PHONY: build run test bench lint clean install setup

build: setup
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) --parallel $(JOBS) --target lenslark

run: build
	$(BUILD)/lenslark serve --test-pattern

test:
	@scripts/setup.sh --tests
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DLENSLARK_TESTS=ON \
	  -DLENSLARK_BENCH=$(BENCH) -DLENSLARK_WERROR=$(WERROR)
	cmake --build $(BUILD) --parallel $(JOBS)
	ctest --test-dir $(BUILD) --parallel $(JOBS) --output-on-failure $(CTEST_FLAGS)

bench: setup
	cmake --preset bench
	cmake --build build-bench --parallel $(JOBS)
	python3 scripts/bench.py build-bench

lint: setup
	scripts/lint.sh

install: setup
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) --parallel $(JOBS)
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf build build-*

setup:
	@scripts/setup.sh
