# The two set-up commands: `make demo` and `make test`. Everything else here
# is for developers.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= 2

.PHONY: all build test asan demo bench fuzz clean

all: build

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j$(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)

$(ASAN_BUILD)/CMakeCache.txt:
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DFORMFILL_SANITIZE=ON

# The whole suite again under AddressSanitizer + UndefinedBehaviorSanitizer.
asan: $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j$(JOBS)
	ASAN_OPTIONS=detect_leaks=1 ctest --test-dir $(ASAN_BUILD) --output-on-failure -j$(JOBS)

demo: build
	@examples/run-demo $(BUILD)/formfill

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
