# Thin wrapper over CMake + Ninja. `make demo` and `make test` are all a new user
# types: every target that builds first installs what it needs (tools/deps.sh).
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
COV_BUILD  ?= build-cov
WIN_BUILD  ?= build-win
# One Wine prefix per run of make windows-test, made fresh at its start.
WINE_PREFIX ?= $(abspath $(WIN_BUILD))/wine-prefix
WINE       := $(firstword $(shell command -v wine64 wine 2>/dev/null) /usr/lib/wine/wine64)
JOBS       ?= 2
# make install: where to (PREFIX), and a staging root in front of it (DESTDIR).
# COMPONENT=server or COMPONENT=sapsim installs one of the two alone.
PREFIX     ?= /usr/local
DESTDIR    ?=
COMPONENT  ?=
CMAKE_FLAGS ?=
DEPS       := tools/deps.sh
# What install and package need built (not the tests).
PRODUCT    := batchserver batchctl sapsim rfcsim
# ccache, where present, makes the second build of a tree (and of a sibling
# worktree) cheap; the build works the same without it.
LAUNCHER   := $(if $(shell command -v ccache 2>/dev/null),-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
# Paths relative to the top, so that another clone on the same machine hits too.
export CCACHE_BASEDIR ?= $(CURDIR)
export CCACHE_NOHASHDIR ?= 1

.PHONY: all deps build test sanitize demo install package bench fuzz soak coverage clean windows windows-test

all: build

deps:
	@$(DEPS) build

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(LAUNCHER) $(CMAKE_FLAGS)

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

# The tests include packing the build (CPack) and running the demo from the packages.
test: build
	@$(DEPS) package demo
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBS_SANITIZE=ON -DBS_BENCH=OFF $(LAUNCHER) $(CMAKE_FLAGS)

sanitize: deps $(ASAN_BUILD)/build.ninja
	@$(DEPS) package demo
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

demo: build
	@$(DEPS) demo
	./examples/demo.sh $(BUILD)

# The server component (batchserver, batchctl, unit, example INI, docs) and the
# sapsim component (sapsim, librfcsim.so, system file, sample batches).
install: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS) --target $(PRODUCT)
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)" --strip $(if $(COMPONENT),--component $(COMPONENT))

# Debian packages batchserver and batchserver-sapsim, in $(BUILD)/.
package: deps $(BUILD)/build.ninja
	@$(DEPS) package
	cmake --build $(BUILD) -j $(JOBS) --target $(PRODUCT)
	cd $(BUILD) && cpack -G DEB

bench: build
	./bench/run.sh $(BUILD)

$(FUZZ_BUILD)/build.ninja: | deps
	@$(DEPS) fuzz
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBS_FUZZ=ON -DBS_TESTS=OFF -DBS_BENCH=OFF $(LAUNCHER) $(CMAKE_FLAGS)

# FUZZ_SECONDS per target; not part of CI.
FUZZ_SECONDS ?= 60
fuzz: deps $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	./fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

soak: build
	./bench/soak.sh $(BUILD)

# Line and branch coverage of the whole ctest suite, per folder.
$(COV_BUILD)/build.ninja: | deps
	cmake -S . -B $(COV_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBS_COVERAGE=ON -DBS_BENCH=OFF $(LAUNCHER) $(CMAKE_FLAGS)

coverage: deps $(COV_BUILD)/build.ninja
	@$(DEPS) coverage package demo
	cmake --build $(COV_BUILD) -j $(JOBS)
	find $(COV_BUILD) -name '*.gcda' -delete
	ctest --test-dir $(COV_BUILD) --output-on-failure -j $(JOBS)
	./tests/coverage_report.sh $(COV_BUILD)

# The native Windows build (MinGW-w64): batchserver.exe, batchctl.exe,
# librfcsim.dll and the Windows test executables, in $(WIN_BUILD)/bin.
$(WIN_BUILD)/build.ninja: | deps
	@$(DEPS) windows
	cmake -S . -B $(WIN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DBS_BENCH=OFF $(LAUNCHER) $(CMAKE_FLAGS)

windows: deps $(WIN_BUILD)/build.ninja
	@$(DEPS) windows
	cmake --build $(WIN_BUILD) -j $(JOBS)

# The Windows tests under Wine, then end to end against sapsim on Linux (which
# needs the Linux build's sapsim, batchserver and librfcsim.so).
windows-test: windows $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS) --target sapsim batchserver batchctl rfcsim
	rm -rf $(WINE_PREFIX)
	WINEPREFIX=$(WINE_PREFIX) WINEDEBUG=-all $(WINE) wineboot --init >/dev/null 2>&1
	WINEPREFIX=$(WINE_PREFIX) WINEDEBUG=-all ctest --test-dir $(WIN_BUILD) --output-on-failure -j $(JOBS)
	WINEPREFIX=$(WINE_PREFIX) ./tests/windows/e2e.sh $(BUILD) $(WIN_BUILD)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(COV_BUILD) $(WIN_BUILD)
