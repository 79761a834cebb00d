# Thin wrapper over CMake: one build tree, build/.
BUILD := build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all configure test demo clean

all: configure
	cmake --build $(BUILD) -j$(JOBS)

configure:
	@test -f $(BUILD)/CMakeCache.txt || cmake -S . -B $(BUILD)

test: all
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)

# A sample card under build/demo/, and the console started on it.
demo: all
	@tools/demo.sh $(BUILD)

clean:
	rm -rf $(BUILD)
