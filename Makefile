# Set-up, build, test and demonstration entry points. Every target installs what is
# missing through scripts/install-deps.sh first, so a fresh Debian machine needs nothing else.

BUILD      ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS       ?= $(shell nproc)
CMAKE_ARGS ?=
ARGS       ?=

LAUNCHER := $(shell command -v ccache >/dev/null 2>&1 && echo -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
export CCACHE_BASEDIR := $(CURDIR)

.PHONY: all deps configure build test test-asan coverage fuzz run bench format format-check screenshots install package clean

all: build

deps:
	@./scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) $(LAUNCHER) $(CMAKE_ARGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

# Builds everything and runs every test through CTest.
test: build
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

# The whole suite under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	@$(MAKE) --no-print-directory test BUILD=build-asan BUILD_TYPE=Debug CMAKE_ARGS="-DKAIRO_SANITIZE=ON $(CMAKE_ARGS)"

# Line and branch coverage of src/ by the whole suite except the real-systemd one (which runs
# the installed package inside a container), from an unoptimised gcov build in build-coverage/.
coverage:
	@./scripts/install-deps.sh coverage
	@cmake -S . -B build-coverage -DCMAKE_BUILD_TYPE=Debug -DKAIRO_COVERAGE=ON \
		-DKAIRO_BUILD_BENCHMARKS=OFF $(LAUNCHER) $(CMAKE_ARGS) >/dev/null
	@cmake --build build-coverage -j$(JOBS)
	@find build-coverage -name '*.gcda' -delete
	@# Commands run as root drop to the console user, whose counters must land too: gcov
	@# fills an empty counter file it may write, and the tests keep their own umask.
	@find build-coverage -name '*.gcno' | sed 's/\.gcno$$/.gcda/' | xargs -r touch
	@find build-coverage -name '*.gcda' -exec chmod a+rw {} +
	@# Concurrent commands sharing a counter file can leave a negative count; gcovr skips it.
	@cd build-coverage && ctest --output-on-failure -j$(JOBS) -LE system; status=$$?; cd ..; \
		gcovr --root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches \
			--gcov-ignore-parse-errors --print-summary --txt build-coverage/coverage.txt \
			build-coverage || status=1; \
		exit $$status

# The fuzz target under libFuzzer for FUZZ_TIME seconds (build-fuzz/, clang), starting from
# the seed corpus; new inputs go to build-fuzz/corpus, a crash to build-fuzz/crash-*.
FUZZ_TIME ?= 60
fuzz:
	@./scripts/install-deps.sh fuzz
	@CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKAIRO_FUZZ=ON \
		-DKAIRO_BUILD_TESTS=OFF -DKAIRO_BUILD_BENCHMARKS=OFF $(LAUNCHER) >/dev/null
	@cmake --build build-fuzz --target kairo-fuzz-jobfile -j$(JOBS)
	@mkdir -p build-fuzz/corpus
	@cd build-fuzz && ./fuzz/kairo-fuzz-jobfile -max_total_time=$(FUZZ_TIME) -artifact_prefix=./ \
		corpus ../tests/data/fuzz

# The application on the demonstration sandbox (windowed, or headless with ARGS=-tasks etc.).
run: build
	@$(BUILD)/bin/kairo-planner-demo $(ARGS)

bench: build
	@cmake --build $(BUILD) --target benchmarks -j$(JOBS)
	@./bench/run-all.sh $(BUILD)

screenshots: build
	@./scripts/screenshots.sh $(BUILD)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check:
	@git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

install: build
	@cmake --install $(BUILD) $(if $(PREFIX),--prefix $(PREFIX))

# The Debian package $(BUILD)/kairo-planner_VERSION_ARCH.deb: apt install ./$(BUILD)/kairo-planner_*.deb
package: build
	@cmake --build $(BUILD) --target package

clean:
	@rm -rf $(BUILD) build-asan build-fuzz build-coverage
