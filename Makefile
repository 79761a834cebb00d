# Thin wrapper over CMake. build/ is the host tree; build/arm/ is the 32-bit
# ARM cross build for the recorder, whose tests run under qemu-arm.
BUILD := build
ARM_BUILD := $(BUILD)/arm
ARM_TOOLCHAIN := $(CURDIR)/cmake/arm-linux-gnueabihf.cmake
ARM_CXX := arm-linux-gnueabihf-g++
ARM_STRIP := arm-linux-gnueabihf-strip
QEMU_ARM := qemu-arm
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
PREFIX ?= /usr/local
PROGRAMS := trellis-maintain trellis-mkcard

.PHONY: all configure programs install test host-test arm arm-configure \
        arm-test arm-size demo bench clean

all: configure
	cmake --build $(BUILD) -j$(JOBS)

configure:
	@test -f $(BUILD)/CMakeCache.txt || cmake -S . -B $(BUILD)

# The console and the card builder alone, without the tests.
programs: configure
	cmake --build $(BUILD) -j$(JOBS) --target $(PROGRAMS)

# Both programs into $(DESTDIR)$(PREFIX)/bin and their man pages into
# $(DESTDIR)$(PREFIX)/share/man/man1, by the CMake install rules (so
# `cmake --install build --prefix DIR` does the same).
install: programs
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix "$(PREFIX)"

# The host suite, then the same suite built for the recorder and run under
# emulation when the cross compiler and qemu-arm are installed.
test: host-test
	@if ! command -v $(ARM_CXX) >/dev/null 2>&1 || \
	    ! command -v $(QEMU_ARM) >/dev/null 2>&1; then \
	  echo; \
	  echo "*** ARM stage SKIPPED: $(ARM_CXX) or $(QEMU_ARM) is not installed"; \
	  echo "*** (apt-get install g++-arm-linux-gnueabihf qemu-user); only the"; \
	  echo "*** host suite ran."; \
	elif ! tools/fetch-arm-nettle.sh $(ARM_BUILD)/nettle; then \
	  echo "*** ARM stage SKIPPED: nettle for armhf is not at hand; only the"; \
	  echo "*** host suite ran."; \
	else \
	  $(MAKE) --no-print-directory arm-test; \
	fi

# ctest keeps the output of a skipped test to itself; this names each
# skipped test of the last run in $(1) with the first line of its reason.
define show-skips
	@awk '/: Skipped$$/ { getline why; next } \
	  /^\[  SKIPPED \] .* ms\)$$/ { print "*** skipped " $$4 ": " why }' \
	  $(1)/Testing/Temporary/LastTest.log 2>/dev/null || true
endef

host-test: all
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)
	$(call show-skips,$(BUILD))

arm-configure:
	@tools/fetch-arm-nettle.sh $(ARM_BUILD)/nettle
	@test -f $(ARM_BUILD)/CMakeCache.txt || \
	  cmake -S . -B $(ARM_BUILD) -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN)

# Console, card builder and test binary for arm-linux-gnueabihf.
arm: arm-configure
	cmake --build $(ARM_BUILD) -j$(JOBS)

# The whole suite, unit and end-to-end, under qemu-arm.
arm-test: arm
	@echo "*** ARM stage: the suite built for arm-linux-gnueabihf, under $(QEMU_ARM)"
	ctest --test-dir $(ARM_BUILD) --output-on-failure -j$(JOBS)
	$(call show-skips,$(ARM_BUILD))

# Size of the console as it would be installed on the recorder.
arm-size: arm
	$(ARM_STRIP) -o $(ARM_BUILD)/trellis-maintain.stripped \
	  $(ARM_BUILD)/trellis-maintain
	@wc -c < $(ARM_BUILD)/trellis-maintain.stripped | \
	  sed 's/$$/ bytes: stripped ARM console/'

# A sample card under build/demo/, and the console started on it.
demo: programs
	@tools/demo.sh $(BUILD)

# Release build of the console and the benchmark driver in build/release;
# the benchmark's data under build/bench/. Prints one table of figures.
bench:
	cmake -S . -B $(BUILD)/release -DCMAKE_BUILD_TYPE=Release \
	  -DTRELLIS_TESTS=OFF -DTRELLIS_BENCH=ON
	cmake --build $(BUILD)/release -j$(JOBS) --target trellis-maintain trellis-mkcard \
	  trellis-bench
	@tools/bench.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(ARM_BUILD)

# --- Hardening: the sanitized suite, fuzzing, memcheck -----------------------
# A sanitizer or valgrind report ends the reporting process with status 99,
# which fails the test that ran it (tests/support: kCheckerStatus).
SANITIZE_BUILD := $(BUILD)/sanitize
FUZZ_BUILD := $(BUILD)/fuzz
FUZZ_CXX ?= clang++
FUZZ_SECONDS ?= 600
FUZZ_CI_SECONDS ?= 20
SANITIZER_ENV := \
  ASAN_OPTIONS=halt_on_error=1:exitcode=99:detect_leaks=1:strict_string_checks=1:check_initialization_order=1:detect_stack_use_after_return=1 \
  UBSAN_OPTIONS=halt_on_error=1:exitcode=99:print_stacktrace=1 \
  LSAN_OPTIONS=exitcode=99
FUZZERS := console_fuzzer printer_fuzzer image_fuzzer

.PHONY: test-sanitize fuzz-build fuzz fuzz-ci test-valgrind

# The whole suite built with ASan and UBSan; the end-to-end tests run the
# sanitized console of the same tree.
test-sanitize:
	@test -f $(SANITIZE_BUILD)/CMakeCache.txt || \
	  cmake -S . -B $(SANITIZE_BUILD) -DTRELLIS_SANITIZE=ON
	cmake --build $(SANITIZE_BUILD) -j$(JOBS)
	env $(SANITIZER_ENV) \
	  ctest --test-dir $(SANITIZE_BUILD) --output-on-failure -j$(JOBS)

fuzz-build:
	@test -f $(FUZZ_BUILD)/CMakeCache.txt || \
	  CXX=$(FUZZ_CXX) cmake -S . -B $(FUZZ_BUILD) -DTRELLIS_FUZZ=ON \
	    -DTRELLIS_TESTS=OFF
	cmake --build $(FUZZ_BUILD) -j$(JOBS) --target $(FUZZERS)

# Long runs: FUZZ_SECONDS per harness (make fuzz FUZZ_SECONDS=3600).
fuzz: fuzz-build
	tools/fuzz.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

# The bounded run CI makes: about a minute for all harnesses together.
fuzz-ci: fuzz-build
	tools/fuzz.sh $(FUZZ_BUILD) $(FUZZ_CI_SECONDS)

# The suite with every console the end-to-end tests start run under
# valgrind's memcheck: no error, no leak of any kind, no descriptor left.
test-valgrind: all
	tools/valgrind-suite.sh $(BUILD)
