# The two set-up commands: `make demo` and `make test`. Everything else here
# is for developers.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= 2

.PHONY: all build deps test asan portable demo package bench bench-table fuzz huge clean

all: build

# The companion programs' libraries, from Debian's packages when they are
# missing (as root, or through sudo).
deps:
	@cmake/install-deps

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j$(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)

$(ASAN_BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DFORMFILL_SANITIZE=ON

# The whole suite again under AddressSanitizer + UndefinedBehaviorSanitizer.
asan: $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j$(JOBS)
	ASAN_OPTIONS=detect_leaks=1 ctest --test-dir $(ASAN_BUILD) --output-on-failure -j$(JOBS)

# Builds quietly (the log is shown only when the build fails), then fills
# the example delivery note and prints it.
PORTABLE_BUILD ?= build-portable

$(PORTABLE_BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(PORTABLE_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFORMFILL_PORTABLE_IO=ON

# The whole suite again with the streams read and written only through
# their public calls, as on a C library whose stream layout is unknown.
portable: $(PORTABLE_BUILD)/CMakeCache.txt
	cmake --build $(PORTABLE_BUILD) -j$(JOBS)
	ctest --test-dir $(PORTABLE_BUILD) --output-on-failure -j$(JOBS)

demo: deps
	@mkdir -p $(BUILD)
	@{ [ -f $(BUILD)/CMakeCache.txt ] || cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo; } \
	  >$(BUILD)/demo-build.log 2>&1 && \
	  cmake --build $(BUILD) -j$(JOBS) --target formfill >>$(BUILD)/demo-build.log 2>&1 || \
	  { cat $(BUILD)/demo-build.log; echo "make demo: the build failed (log above)"; exit 1; }
	@examples/run-demo $(BUILD)/formfill

PACKAGE_BUILD ?= build-package

$(PACKAGE_BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(PACKAGE_BUILD) -DCMAKE_BUILD_TYPE=Release -DFORMFILL_TESTS=OFF

# A Debian package and a tarball from a Release build (with its training
# run), then both installed into a temporary directory and the installed
# programs run on the installed examples.
package: $(PACKAGE_BUILD)/CMakeCache.txt
	cmake --build $(PACKAGE_BUILD) -j$(JOBS)
	cd $(PACKAGE_BUILD) && cpack
	tests/package/check-package $(PACKAGE_BUILD)

FUZZ_BUILD   ?= build-fuzz
FUZZ_SECONDS ?= 60

# Each libFuzzer harness for FUZZ_SECONDS, corpora under fuzz-out/.
fuzz:
	CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DFORMFILL_FUZZ=ON -DFORMFILL_TESTS=OFF
	cmake --build $(FUZZ_BUILD) -j$(JOBS)
	fuzz/run-fuzz $(FUZZ_BUILD) $(FUZZ_SECONDS)
	fuzz/run-csv-fuzz $(FUZZ_BUILD) $(FUZZ_SECONDS)

# Times a release build on generated payroll registers (10k, 100k and 1M
# records, a few minutes), then the shared kit at 100k for the ratio to Perl.
# Kept out of `make test`: timings depend on the machine's load.
bench:
	cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DFORMFILL_TESTS=OFF
	cmake --build build-release -j$(JOBS) --target formfill
	bench/run-bench build-release/formfill
	if [ -e ../shared/bench/run ]; then ../shared/bench/run build-release/formfill 100000; fi

# formfill-table on generated invoice CSVs of 10, 100 and 300 MB (about 1.2
# GB of scratch space, a few minutes): MB/s and peak memory beside cat's.
bench-table:
	cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DFORMFILL_TESTS=OFF
	cmake --build build-release -j$(JOBS) --target formfill-table
	bench/run-table-bench build-release/formfill-table

# Huge inputs: a 1 GiB table in the memory of a 10 MB one, a field value of
# 100 MB, lines at the limits of the working buffer (also under the
# sanitizers). About a minute; needs 1.2 GB of free space in the temporary
# folder. Kept out of `make test`.
huge: build $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j$(JOBS) --target formfill
	bench/huge-inputs $(BUILD)/formfill $(ASAN_BUILD)/formfill

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(PORTABLE_BUILD) $(PACKAGE_BUILD)
