# SPDX-License-Identifier: Apache-2.0
# Quick start: `make demo` and `make test`. Both install what is missing first.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=

.PHONY: all deps build test test-normal test-asan fuzz demo bench install clean

all: build

deps:
	@scripts/install-deps

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)
	cmake --build $(BUILD) -j $(JOBS)

test: test-normal test-asan

test-normal: build
	scripts/fetch-test-data $(BUILD)
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DIPG_SANITIZE=ON $(CMAKE_ARGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	scripts/fetch-test-data $(ASAN_BUILD)
	ASAN_OPTIONS=halt_on_error=1:detect_leaks=1 \
	UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
	ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

# libFuzzer targets (clang), each run FUZZ_SECONDS from its seeds, two at a time;
# fails when one finds a crash, a leak, a timeout or an out-of-memory input.
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DIPG_BUILD_FUZZ=ON -DIPG_BUILD_TESTS=OFF $(CMAKE_ARGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz-targets
	scripts/run-fuzz $(FUZZ_BUILD) $(FUZZ_SECONDS)

demo: build
	scripts/demo $(BUILD)

bench:
	@scripts/install-deps bench
	cmake -S . -B $(BUILD)-bench -DCMAKE_BUILD_TYPE=Release -DIPG_BUILD_BENCH=ON -DIPG_BUILD_TESTS=OFF $(CMAKE_ARGS)
	cmake --build $(BUILD)-bench -j $(JOBS)
	scripts/bench $(BUILD)-bench

install: build
	cmake --install $(BUILD) --prefix $(or $(PREFIX),/usr/local)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(BUILD)-bench demo-out
