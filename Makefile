# The two commands of the README, and the other entry points.
BUILD ?= build
SANITIZE_BUILD ?= build-sanitize
JOBS ?= $(shell nproc)
SHELL := /bin/bash
CMAKE_FLAGS ?=

.PHONY: deps configure build test demo bench bench-e2e sanitize install clean

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# Passing tests are counted, not listed: the summary, and a failing test's
# output in full.
test: build
	@cd $(BUILD) && set -o pipefail && ctest --output-on-failure -j $(JOBS) | \
	  grep -Ev '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* +Passed +[0-9.]+ sec$$'

# Only the demo and the library it links, not the test programs.
demo: configure
	@cmake --build $(BUILD) -j $(JOBS) --target qorimg-demo
	@$(BUILD)/tools/qorimg-demo $(BUILD)

bench: configure
	@cmake --build $(BUILD) -j $(JOBS) --target benchmarks
	@scripts/run-bench $(BUILD)

# A generated night of 16 frames reduced on a local Dask cluster of 2 workers
# against the same reduction in one process.
bench-e2e: build
	@mkdir -p $(BUILD)/bench
	@PYTHONPATH=$(BUILD)/python /usr/bin/python3 examples/reduce_night.py --compare 2>/dev/null | tee $(BUILD)/bench/e2e.txt
	@grep '^ratio' $(BUILD)/bench/e2e.txt >> $(BUILD)/bench/results.txt

sanitize: deps
	@cmake -S . -B $(SANITIZE_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQORIMG_SANITIZE=ON -DQORIMG_BENCH=OFF >/dev/null
	@cmake --build $(SANITIZE_BUILD) -j $(JOBS)
	@cd $(SANITIZE_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j $(JOBS)

install: build
	@cmake --install $(BUILD)

clean:
	@rm -rf $(BUILD) $(SANITIZE_BUILD)
