SHELL := /bin/bash
# Two commands for a new user:
#   make test   installs what is missing (Debian), builds and runs every test
#   make demo   installs what is missing, builds lxaudio and runs a whole lecture session with it
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= 2

# Debian packages the build needs.
PACKAGES := cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev \
            libvorbis-dev libogg-dev libspeexdsp-dev sox vorbis-tools libasound2-dev \
            libcli11-dev libpng-dev nlohmann-json3-dev zlib1g-dev libdeflate-dev

.PHONY: all deps configure build test clean fuzz fuzz-deps tsan sanitize soak demo bench bench-deps \
        windows-deps windows-test

all: build

deps:
	@missing=""; \
	for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = "0" ]; then \
	    echo "Installing:$$missing"; \
	    apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	  else \
	    echo "Missing packages. Run:"; \
	    echo "  sudo apt-get install -y$$missing"; \
	    exit 1; \
	  fi; \
	fi

configure: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

# A lecture session with the command-line tool on synthesised audio; the
# outputs land in $(BUILD_DIR)/demo.
demo: configure
	cmake --build $(BUILD_DIR) -j $(JOBS) --target lxaudio
	tools/lxaudio/demo.sh $(BUILD_DIR)/bin/lxaudio $(BUILD_DIR)/demo

# Fuzzing with libFuzzer (clang), under AddressSanitizer and UndefinedBehaviorSanitizer:
# every target runs FUZZ_SECONDS seconds from its seeds and kept inputs; a crash,
# a hang over 10 s or an allocation over 1 GiB stops it and leaves the input in
# build-fuzz/artifacts/.
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_PACKAGES := clang-14 libclang-rt-14-dev
FUZZ_TARGETS := FuzzWavImport:wav FuzzStoreStream:store FuzzStoreDirectory:directory FuzzVorbisPage:vorbis
FUZZ_FLAGS := -fsanitize=address,undefined,fuzzer-no-link -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g -O1

fuzz-deps: deps
	@$(MAKE) --no-print-directory deps PACKAGES="$(FUZZ_PACKAGES)"

fuzz: fuzz-deps
	CC=clang-14 CXX=clang++-14 cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBUILD_TESTING=OFF -DLX_BUILD_FUZZERS=ON -DLX_BUILD_TOOLS=OFF \
	  -DCMAKE_C_FLAGS="$(FUZZ_FLAGS)" -DCMAKE_CXX_FLAGS="$(FUZZ_FLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"
	cmake --build $(FUZZ_DIR) -j $(JOBS)
	@mkdir -p $(FUZZ_DIR)/artifacts
	@for entry in $(FUZZ_TARGETS); do \
	  name=$${entry%%:*}; corpus=$${entry##*:}; \
	  mkdir -p $(FUZZ_DIR)/corpus/$$corpus; \
	  echo "== $$name, $(FUZZ_SECONDS) s"; \
	  ASAN_OPTIONS=detect_leaks=1 $(FUZZ_DIR)/bin/$$name -max_total_time=$(FUZZ_SECONDS) -timeout=10 \
	    -rss_limit_mb=2048 -malloc_limit_mb=1024 -print_final_stats=1 \
	    -artifact_prefix=$(FUZZ_DIR)/artifacts/$$name- \
	    $(FUZZ_DIR)/corpus/$$corpus $(FUZZ_DIR)/fuzz/seeds/$$corpus fuzz/regressions/$$corpus \
	    > $(FUZZ_DIR)/$$name.log 2>&1; \
	  status=$$?; \
	  grep -E "^(stat::number_of_executed_units|stat::peak_rss_mb|#[0-9]+ +DONE)" $(FUZZ_DIR)/$$name.log; \
	  if [ $$status -ne 0 ]; then tail -60 $(FUZZ_DIR)/$$name.log; \
	    echo "$$name failed (exit $$status); the input is in $(FUZZ_DIR)/artifacts"; exit 1; fi; \
	done

# ThreadSanitizer over the sound-device tests (capture, playback and every
# thread they run) and the engine's own threads (compression beside readers,
# pages decoded ahead, resampling on several cores): any data race or
# lock-order inversion fails the run.
TSAN_DIR ?= build-tsan
TSAN_FLAGS := -fsanitize=thread -fno-omit-frame-pointer -g

tsan: deps
	cmake -S . -B $(TSAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLX_BUILD_TOOLS=OFF \
	  -DCMAKE_C_FLAGS="$(TSAN_FLAGS)" -DCMAKE_CXX_FLAGS="$(TSAN_FLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread"
	cmake --build $(TSAN_DIR) -j $(JOBS) --target LxAudioDeviceTests LxAudioCoreTests
	cd $(TSAN_DIR) && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	  ctest -L devices --output-on-failure -j $(JOBS) && \
	  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	  ctest -R '^(Compression|Resampler|AudioClip)\.' --output-on-failure -j $(JOBS)

# The whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer
# (leaks included), then the concurrent tests under ThreadSanitizer.
ASAN_DIR ?= build-asan
ASAN_FLAGS := -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g

sanitize: deps
	cmake -S . -B $(ASAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_C_FLAGS="$(ASAN_FLAGS)" -DCMAKE_CXX_FLAGS="$(ASAN_FLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"
	cmake --build $(ASAN_DIR) -j $(JOBS)
	cd $(ASAN_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS) -E InstalledPackage
	$(MAKE) --no-print-directory tsan

# One hour of capture under load (see tests/soak/), under AddressSanitizer so
# that its leak check runs at the end. `make test` runs the same test for two minutes.
SOAK_SECONDS ?= 3600

soak: deps
	cmake -S . -B $(ASAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_C_FLAGS="$(ASAN_FLAGS)" -DCMAKE_CXX_FLAGS="$(ASAN_FLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined"
	cmake --build $(ASAN_DIR) -j $(JOBS) --target LxAudioSoakTests
	cd $(ASAN_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 LXAUDIO_SOAK_SECONDS=$(SOAK_SECONDS) \
	  ctest -L soak --output-on-failure

# Benchmarks against libsoxr, libsamplerate, oggenc, oggdec, sox and cp: builds
# bench/ in Release, makes its inputs with sox in a temporary directory and
# prints one table of ratios (BENCH_ARGS are passed to bench/compare.py).
BENCH_DIR ?= build-bench
BENCH_PACKAGES := libbenchmark-dev libsoxr-dev libsamplerate0-dev python3 time
BENCH_ARGS ?=

bench-deps: deps
	@$(MAKE) --no-print-directory deps PACKAGES="$(BENCH_PACKAGES)"

bench: bench-deps
	python3 bench/compare.py --build-dir $(BENCH_DIR) --jobs $(JOBS) --markdown $(BENCH_DIR)/results.md $(BENCH_ARGS)

# Windows (64-bit, mingw-w64) build of the engine, its tests and lxaudio, with the
# whole test suite run under Wine. The target's libraries (libogg, libvorbis,
# speexdsp, zlib, libpng from Debian source packages, GoogleTest) are built once
# into WIN_DEPS_DIR and kept: delete that folder to rebuild them. Wine's prefix
# lives in the build folder. The soak test runs WIN_SOAK_SECONDS here. Release
# at -O2: mingw's GCC 12 gives false -Wrestrict warnings on std::string at -O3.
WIN_BUILD_DIR ?= build-win
WIN_DEPS_DIR ?= build-windows-deps
WIN_BUILD_TYPE ?= Release
WIN_RELEASE_FLAGS := -O2 -DNDEBUG
WIN_SOAK_SECONDS ?= 30
WIN_PACKAGES := cmake ninja-build pkg-config g++-mingw-w64-x86-64-posix wine wine64 \
                dpkg-dev xz-utils googletest libcli11-dev nlohmann-json3-dev
WIN_WINE_ENV := WINEPREFIX=$(abspath $(WIN_BUILD_DIR))/wine WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=

windows-deps:
	@$(MAKE) --no-print-directory deps PACKAGES="$(WIN_PACKAGES)"
	JOBS=$(JOBS) cmake/build-windows-deps.sh $(WIN_DEPS_DIR)/work $(WIN_DEPS_DIR)/prefix

windows-test: windows-deps
	cmake -S . -B $(WIN_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(WIN_BUILD_TYPE) \
	  -DCMAKE_C_FLAGS_RELEASE="$(WIN_RELEASE_FLAGS)" -DCMAKE_CXX_FLAGS_RELEASE="$(WIN_RELEASE_FLAGS)" \
	  -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DLX_WINDOWS_PREFIX=$(abspath $(WIN_DEPS_DIR))/prefix
	cmake --build $(WIN_BUILD_DIR) -j $(JOBS)
	@# One Wine start-up creates the prefix before tests run side by side in it.
	env $(WIN_WINE_ENV) wineboot --init && env $(WIN_WINE_ENV) wineserver --wait
	cd $(WIN_BUILD_DIR) && LXAUDIO_SOAK_SECONDS=$(WIN_SOAK_SECONDS) ctest --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD_DIR)
