# Two commands set TERVO up on a fresh machine: `make demo` and `make test`.
BUILD ?= build
JOBS ?= 2
CMAKE_FLAGS ?=

.PHONY: all build configure test demo bench sanitize clean

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS)

configure: $(BUILD)/CMakeCache.txt

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The main job on a shipped cell: load it from the home tree next to the executable, show what was
# read, and write it back in the present form of the definition file.
demo: build
	./$(BUILD)/tervo --save-def $(BUILD)/results/demo_cigs.def cigs.def
	@echo "Written: $(BUILD)/results/demo_cigs.def"

bench:
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DTERVO_TESTS=OFF -DTERVO_BENCH=ON
	cmake --build build-bench -j $(JOBS) --target tervo_bench
	./build-bench/tervo_bench

# The readers under AddressSanitizer and UndefinedBehaviorSanitizer.
sanitize:
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DTERVO_SANITIZE=ON
	cmake --build build-asan -j $(JOBS)
	ctest --test-dir build-asan --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD) build-bench build-asan
