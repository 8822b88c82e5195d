# Seqmate: the two commands are `make run` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD?= build-bench
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc)
CMAKE_FLAGS?=

.PHONY: all deps build run test test-asan bench fuzz format format-check clean

all: build

deps:
	@scripts/install-deps

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

# The desktop window on a generated folder of frames; without a display, the
# engine at work through the command-line front end instead.
run: build
	@if [ -z "$$DISPLAY$$WAYLAND_DISPLAY" ]; then \
	  echo "No display (neither DISPLAY nor WAYLAND_DISPLAY is set): showing the command-line demo instead."; \
	  scripts/demo $(BUILD)/seqmate-cli; \
	else \
	  scripts/demo-gui $(BUILD)/seqmate; \
	fi

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DSEQMATE_SANITIZE=ON $(CMAKE_FLAGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

bench:
	@scripts/install-deps --bench
	cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DSEQMATE_BENCH=ON
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@bench/run $(BENCH_BUILD)

fuzz: deps
	CC=clang-14 CXX=clang++-14 cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSEQMATE_FUZZ=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	@tests/fuzz/run $(FUZZ_BUILD)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check:
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD)
