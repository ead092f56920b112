# Thin wrapper over CMake + Ninja. `make test` is what CI runs.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= 2
CMAKE_FLAGS ?=

.PHONY: all build test sanitize demo bench fuzz soak clean

all: build

$(BUILD)/build.ninja:
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

build: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/build.ninja:
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBS_SANITIZE=ON -DBS_BENCH=OFF $(CMAKE_FLAGS)

sanitize: $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

demo: build
	./examples/demo.sh $(BUILD)

bench: build
	./bench/run.sh $(BUILD)

$(FUZZ_BUILD)/build.ninja:
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBS_FUZZ=ON -DBS_TESTS=OFF -DBS_BENCH=OFF $(CMAKE_FLAGS)

# FUZZ_SECONDS per target; not part of CI.
FUZZ_SECONDS ?= 60
fuzz: $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	./fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

soak: build
	./bench/soak.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
