# Entry points for a host machine. `make demo` plays the daemon against the emulated modem;
# `make test` builds everything and runs every test.
BUILD_DIR ?= build
JOBS ?= 2

.PHONY: all deps configure build test demo tput format clean

all: build

deps:
	scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: configure
	cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS)

demo: build
	$(BUILD_DIR)/tarvo-emu run tests/scenarios/demo.textproto

# The IPC throughput test against the emulated modem: prints the table, draws build/tput.svg.
tput: build
	$(BUILD_DIR)/tarvo-emu tput --plot $(BUILD_DIR)/tput.svg --json $(BUILD_DIR)/tput.json

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR)
