# Two commands set TERVO up on a fresh machine: `make demo` and `make test`.
BUILD ?= build
JOBS ?= 2
MAKEFLAGS += --no-print-directory
CMAKE_FLAGS ?=

.PHONY: all build configure test demo bench sanitize fuzz fuzz-keep expected clean

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)

configure: $(BUILD)/CMakeCache.txt

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The main job on a shipped cell: the CIGS heterojunction of the home tree under AM1.5G with the
# example light I-V action list; the results land in build/results and a summary is printed.  The
# build's own lines go to build/build.log, shown only when the build fails, so that the terminal
# holds the program's lines alone.
demo:
	@mkdir -p $(BUILD)
	@{ cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS) && \
	   cmake --build $(BUILD) -j $(JOBS); } > $(BUILD)/build.log 2>&1 || { cat $(BUILD)/build.log; exit 1; }
	@./$(BUILD)/tervo cigs.def light_iv.act
	@echo "Results: $(BUILD)/results/cigs.iv, cigs.eb and cigs.conv (how each point converged)"

bench:
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DTERVO_TESTS=OFF -DTERVO_BENCH=ON
	cmake --build build-bench -j $(JOBS) --target tervo_bench
	./build-bench/tervo_bench

# The expected results of the shipped examples written anew from this build: review `git diff
# tests/examples/expected` (every number that moved shows there) before committing it.
expected: build
	cmake -DTERVO=$(BUILD)/tervo -DSOURCE_DIR=$(CURDIR) -DWORK_DIR=$(CURDIR)/$(BUILD) -DUPDATE=ON \
	      -P tests/examples/run_examples.cmake

# Each text reader fuzzed for FUZZ_SECONDS under AddressSanitizer and UndefinedBehaviorSanitizer
# (clang); FUZZ_TARGETS picks some of them.  fuzz-keep also folds what the runs found into the kept
# corpus (fuzz/corpus), minimised.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?=
fuzz:
	JOBS=$(JOBS) fuzz/run.sh $(FUZZ_SECONDS) $(FUZZ_TARGETS)

fuzz-keep:
	JOBS=$(JOBS) fuzz/run.sh --keep $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# The whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer.
# Optimised a little (-O1): the sanitized program then runs the examples several times faster than
# at -O0, with the same reports.
sanitize:
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-g -O1" -DTERVO_SANITIZE=ON
	cmake --build build-asan -j $(JOBS)
	ctest --test-dir build-asan --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD) build-bench build-asan build-fuzz
