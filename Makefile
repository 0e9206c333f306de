# Developer entry points over CMake + Ninja. `make run` builds and starts the
# console; `make test` builds and runs the whole suite twice (plain, then under
# AddressSanitizer + UndefinedBehaviorSanitizer) and runs each fuzz target briefly.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30
JOBS       ?= $(shell nproc)

.PHONY: all build run test test-plain test-asan fuzz fuzz-run bench screenshots install clean

all: build

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

run: build
	bash scripts/run-console.sh $(BUILD)

test-plain: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/build.ninja:
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKY_SANITIZE=ON -DKY_BUILD_BENCH=OFF

test-asan: $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

$(FUZZ_BUILD)/build.ninja:
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKY_FUZZ=ON

fuzz: $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) --target ky_fuzz_targets -j $(JOBS)

fuzz-run: fuzz
	bash scripts/run-fuzzers.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

test: test-plain test-asan fuzz-run
	@echo "make test: plain suite, sanitizer suite and fuzz targets passed"

bench: build
	bash scripts/run-benchmarks.sh $(BUILD)

screenshots: $(BUILD)/build.ninja
	cmake --build $(BUILD) --target screenshots -j $(JOBS)

install: build
	cmake --install $(BUILD) $(if $(PREFIX),--prefix $(PREFIX))

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
