# Thin wrapper over CMake. `make demo` and `make test` do all the set-up.
BUILD ?= build
ASAN_BUILD ?= build-asan
JOBS ?= 2
CMAKE_FLAGS ?=
PREFIX ?= /usr/local

.PHONY: all build test test-sanitized demo regen-golden install clean bench

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/CMakeCache.txt:
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DBRANTEL_SANITIZE=ON $(CMAKE_FLAGS)

# The same suite on a build with AddressSanitizer and UndefinedBehaviorSanitizer.
test-sanitized: $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
		ctest --output-on-failure -j $(JOBS)

# Installs bin/brantel and share/man/man1/brantel.1 below $(PREFIX). DESTDIR,
# from the environment or the make command line, stages the files below
# another root, as packaging wants: make install PREFIX=/usr DESTDIR=/tmp/stage
install: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS) --target brantel
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)"

demo: build
	bash examples/demo.sh $(BUILD)/brantel

# Times the tool on a day and a week of recordings in every layout, against a
# plain fprintf converter and the cost of writing the output bytes. Inputs and
# outputs live in a temporary directory that is removed afterwards. A few
# minutes; not part of `make test`.
BENCH_RUNS ?= 5
bench: $(BUILD)/CMakeCache.txt
	cmake -S . -B $(BUILD) >/dev/null
	cmake --build $(BUILD) -j $(JOBS) --target brantel brantel-fixture brantel-bench bench-fprintf-baseline bench-write-floor
	$(BUILD)/bench/brantel-bench --brantel $(BUILD)/brantel --fixture $(BUILD)/brantel-fixture \
		--baseline $(BUILD)/bench/bench-fprintf-baseline --floor $(BUILD)/bench/bench-write-floor --runs $(BENCH_RUNS)

# Rewrites the expected files of the end-to-end cases from the current binary.
# Review the diff before committing: expected files are never regenerated to
# make a failing test pass.
regen-golden: build
	BRANTEL_REGEN_GOLDEN=1 $(BUILD)/tests/e2e_tests

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
