# Thin wrapper over CMake. `make demo` and `make test` do all the set-up.
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
COVERAGE_BUILD ?= build-coverage
FUZZ_SECONDS ?= 60
FUZZ_CXX ?= clang++-14
FUZZ_CC ?= clang-14
JOBS ?= 2
CMAKE_FLAGS ?=
PREFIX ?= /usr/local

.PHONY: all build test test-sanitized test-tsan fuzz fuzz-long fuzz-build coverage demo readme-picture report-screenshot regen-golden install clean bench bench-tools bench-mseed bench-per-file

all: build

# The first configuration installs missing build and test packages (Debian).
$(BUILD)/CMakeCache.txt:
	tools/install_deps.sh
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

$(TSAN_BUILD)/CMakeCache.txt:
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRANTEL_TSAN=ON $(CMAKE_FLAGS)

# The tests that run threads, on a ThreadSanitizer build: the output file's
# own tests, the writers, the filter over every series at once, the jobs
# spread over threads, the SDS merge (day files, staged recordings and facts
# on several threads), and the
# end-to-end cases whose outputs span many buffers (the whole conversion runs
# threaded there) or whose miniSEED channels are packed on several threads.
TSAN_UNIT_TESTS ?= *OutFile*:Writers*:StretchSync*:Vx24Frames*:ConditionedChannels*:FilterTogether*:OrderedBlocks*:RowsTogether*:OnThreads*:SdsArchive.OneRunFilesEveryRecordingOnce:SdsArchive.StagedJobsAndOneMerge
TSAN_E2E_CASES ?= *run_messages_in_order*:*run_write_error_before*:*vx24_default*:*cond_filter*:*layout_vxdat*:*mseed_channels_packed_together*
test-tsan: $(TSAN_BUILD)/CMakeCache.txt
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target brantel brantel-fixture unit_tests e2e_tests
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 $(TSAN_BUILD)/tests/unit_tests --gtest_filter='$(TSAN_UNIT_TESTS)'
	TSAN_OPTIONS=halt_on_error=1:exitcode=66 $(TSAN_BUILD)/tests/e2e_tests --gtest_filter='$(TSAN_E2E_CASES)'

# libFuzzer targets (clang), one per reader, the probe, the comment grammars,
# the file-name dates, argument lists and the whole conversion run; each runs
# FUZZ_SECONDS on a copy of its seeds in fuzz/corpus/.
$(FUZZ_BUILD)/CMakeCache.txt:
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBRANTEL_FUZZ=ON -DBRANTEL_TESTS=OFF \
		-DCMAKE_CXX_COMPILER=$(FUZZ_CXX) -DCMAKE_C_COMPILER=$(FUZZ_CC) $(CMAKE_FLAGS)

fuzz-build: $(FUZZ_BUILD)/CMakeCache.txt
	cmake --build $(FUZZ_BUILD) -j $(JOBS)

fuzz: fuzz-build
	bash fuzz/run_fuzzers.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

fuzz-long: fuzz-build
	bash fuzz/run_fuzzers.sh $(FUZZ_BUILD) $(if $(filter 60,$(FUZZ_SECONDS)),1200,$(FUZZ_SECONDS))

# Line coverage of the test suite per source directory (gcc --coverage, gcov).
$(COVERAGE_BUILD)/CMakeCache.txt:
	cmake -S . -B $(COVERAGE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=--coverage \
		-DCMAKE_C_FLAGS=--coverage -DCMAKE_EXE_LINKER_FLAGS=--coverage $(CMAKE_FLAGS)

coverage: $(COVERAGE_BUILD)/CMakeCache.txt
	cmake --build $(COVERAGE_BUILD) -j $(JOBS)
	find $(COVERAGE_BUILD) -name '*.gcda' -delete
	cd $(COVERAGE_BUILD) && ctest -j $(JOBS) > ctest.log 2>&1 || (tail -n 30 ctest.log; exit 1)
	python3 tools/coverage_summary.py $(COVERAGE_BUILD) libvxfil src lib

# Installs bin/brantel, bin/brantel-archive, bin/brantel-lock, bin/brantel-stationxml, bin/brantel-report and
# share/man/man1/brantel.1
# below $(PREFIX). DESTDIR, from the environment or the make command line,
# stages the files below another root, as packaging wants: make install PREFIX=/usr DESTDIR=/tmp/stage
install: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS) --target brantel brantel-lock brantel-stationxml brantel-report
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)"

# Converts the bundled examples into $(BUILD)/demo/, one folder per example
# with a PNG quick-look of each, and keeps them; then files them all into one
# SDS tree with the archive driver. Builds only the programs the demo runs
# (the target demo_programs), not the test suites.
demo: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS) --target demo_programs
	bash examples/demo.sh $(BUILD)/brantel $(BUILD)/demo

# The picture in the README: the quick-look of the two vx24 examples combined
# (30 s apart, so the gap shows), taken from the demo.
readme-picture: demo
	cp $(BUILD)/demo/combined/vx24/arvola_20170714_024000.png doc/quicklook.png

# The picture of the demo's archive report (build/demo/sds/index.html, written
# by the driver at the end of its run), taken in headless Chromium by the page
# harness, which also checks that the page loads cleanly from file://
# (needs tools/install_deps.sh --browser).
report-screenshot: demo
	/usr/bin/python3 tests/browser/open_page.py --links --full-page --screenshot doc/report.png \
		$(BUILD)/demo/sds/index.html

# Times the tool on a day and a week of recordings in every layout and on
# BENCH_MANY half-hour files with -c, against a plain fprintf converter,
# numpy's savetxt, cp of the output and the cost of writing the output bytes,
# and each file's conversion against its floor (see bench-per-file); then the
# archive driver against a plain loop on about a thousand recordings (mirror
# with --jobs 1 and 2, and --sds). Inputs and outputs live in a temporary
# directory that is removed afterwards, but for the driver's archive, kept in
# the build folder. Many minutes; not part of `make test`.
BENCH_RUNS ?= 5
BENCH_MANY ?= 1000
BENCH = $(BUILD)/bench/brantel-bench --brantel $(BUILD)/brantel --fixture $(BUILD)/brantel-fixture \
	--baseline $(BUILD)/bench/bench-fprintf-baseline --floor $(BUILD)/bench/bench-write-floor \
	--mseed-baseline $(BUILD)/bench/bench-mseed-baseline --savetxt bench/savetxt_baseline.py --runs $(BENCH_RUNS) --many $(BENCH_MANY)

bench-tools: $(BUILD)/CMakeCache.txt
	cmake -S . -B $(BUILD) >/dev/null
	cmake --build $(BUILD) -j $(JOBS) --target brantel brantel-fixture brantel-bench bench-fprintf-baseline bench-write-floor \
		bench-mseed-baseline

bench: bench-tools
	$(BENCH)
	cmake --build $(BUILD) -j $(JOBS) --target user_scripts
	bash bench/archive_bench.sh $(BUILD)/brantel-archive $(BUILD)/brantel $(BUILD)/brantel-fixture 3

# Only the binary miniSEED layout against the four-column text of one day:
# sizes, and wall and CPU times of interleaved runs.
bench-mseed: bench-tools
	$(BENCH) --mseed-only

# Only the goals of each file's conversion: --mseed against a single-threaded
# libmseed converter, four columns against the durable write of its bytes,
# -u 4 -f against the plain conversion per output byte, --identify against cat.
bench-per-file: bench-tools
	$(BENCH) --per-file-only

# Rewrites the expected files of the end-to-end cases from the current binary.
# Review the diff before committing: expected files are never regenerated to
# make a failing test pass.
regen-golden: build
	BRANTEL_REGEN_GOLDEN=1 $(BUILD)/tests/e2e_tests

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) $(COVERAGE_BUILD)
