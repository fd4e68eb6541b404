# Entry points for a host machine. `make demo` plays the daemon against the emulated modem;
# `make test` builds everything and runs every test but the fuzz runs, which `make test-fuzz`
# builds and runs; `make test-sanitize` and `make test-tsan`
# run the whole suite again on sanitized builds of everything, the daemon in the sandbox included;
# `make bench` runs the benchmarks; `make fuzz` runs every fuzz target for FUZZ_SECONDS;
# `make coverage` measures what the suite runs of the daemon's code and of the rig's;
# `make mutants` plants each fault of scripts/mutants.tsv in turn and says which the tests catch;
# `make soak` plays random traffic with faults for SOAK_SECONDS against a model of the daemon.
BUILD_DIR ?= build
ASAN_BUILD_DIR ?= build-asan
TSAN_BUILD_DIR ?= build-tsan
COVERAGE_BUILD_DIR ?= build-coverage
JOBS ?= 2
# Many of the suite's tests spend their time waiting on the modem's and the RIL's timers; the
# sanitized suites, whose other tests are slow, keep the cores busy with one more test than cores.
SANITIZED_TEST_JOBS ?= $(shell echo $$(($(JOBS) + 1)))
FUZZ_SECONDS ?= 60
SOAK_SECONDS ?= 600
SOAK_SEED ?= 0x$(shell git rev-parse --short=8 HEAD 2>/dev/null || echo 1)
FUZZ_TARGETS := $(patsubst tests/fuzz/%_fuzzer.cpp,%,$(wildcard tests/fuzz/*_fuzzer.cpp))

# The first report ends the process with a failure, whichever process it is; the rig's sandbox
# passes these on to the daemon and its clients.
export ASAN_OPTIONS ?= halt_on_error=1:detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1
export UBSAN_OPTIONS ?= halt_on_error=1:print_stacktrace=1
# The server's signal handler does its work in signal context by design; it only ever interrupts
# the main thread's sleep (every other thread blocks the signals, and so does the main thread
# until it sleeps), so ThreadSanitizer's signal-unsafe-call check does not apply.
export TSAN_OPTIONS ?= halt_on_error=1:second_deadlock_stack=1:report_signal_unsafe=0:suppressions=$(CURDIR)/tests/sanitizer/tsan.supp

.PHONY: all deps configure build test test-sanitize test-tsan coverage bench demo tput soak fuzz mutants \
	format clean

all: build

deps:
	scripts/install-deps.sh

configure: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: configure
	cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS) -LE fuzz

# The fuzz targets' short ctest runs, on the fuzzing build (clang) that plain builds leave out.
.PHONY: test-fuzz
test-fuzz: build
	cmake --build $(BUILD_DIR) -j$(JOBS) --target tarvo_fuzz_build
	cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS) -L fuzz

test-sanitize: deps
	cmake -S . -B $(ASAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DTARVO_SANITIZE=address,undefined
	cmake --build $(ASAN_BUILD_DIR) -j$(JOBS)
	cd $(ASAN_BUILD_DIR) && ctest --output-on-failure -j$(SANITIZED_TEST_JOBS)

test-tsan: deps
	cmake -S . -B $(TSAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARVO_SANITIZE=thread
	cmake --build $(TSAN_BUILD_DIR) -j$(JOBS)
	cd $(TSAN_BUILD_DIR) && ctest --output-on-failure -j$(SANITIZED_TEST_JOBS)

# The whole suite on a --coverage build. The daemon and its clients in the sandbox write their
# counters through GCOV_PREFIX, which the sandbox binds writable; stripping the prefix's own
# components puts them beside the objects, where the host's processes write theirs. gcov runs once,
# into coverage.json; two reports read it: the daemon's code ($(COVERAGE_BUILD_DIR)/coverage/
# index.html) and the rig's (emulator/index.html there). Their summaries are printed, one line
# each, and kept in summary.txt there. The suite's result is the target's result, unless gcovr
# fails or prints no summary, which ends the target with an error. gcovr runs with one worker:
# with more, gcovr 5.2 leaves a directory locked when a file fails to parse, and its other workers
# wait for it forever.
COVERAGE_DIR = $(abspath $(COVERAGE_BUILD_DIR))
COVERAGE_REPORT_DIR = $(COVERAGE_BUILD_DIR)/coverage
DAEMON_COVERAGE_FILTERS = --filter 'core/' --filter 'service/' --filter 'ril/' --filter 'tput/' \
	--filter 'platform/'
RIG_COVERAGE_FILTERS = --filter 'emulator/'
# One report of coverage.json: NAME, its HTML page, its filters. Prints "NAME lines: ... branches:
# ..." or fails.
coverage_report = report=$$(gcovr -r . -a $(COVERAGE_REPORT_DIR)/coverage.json $(3) \
		--html-details $(2) --print-summary) || \
		{ echo "make coverage: gcovr failed on the $(1) report (its errors are above)" >&2; \
		exit 1; }; \
	summary=$$(printf '%s\n' "$$report" | grep -E '^(lines|branches):' | paste -sd' '); \
	[ -n "$$summary" ] || { echo "make coverage: gcovr printed no $(1) summary" >&2; exit 1; }; \
	printf '%-9s %s\n' "$(1)" "$$summary" >> $(COVERAGE_REPORT_DIR)/summary.txt
coverage: deps
	cmake -S . -B $(COVERAGE_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DTARVO_COVERAGE=ON
	cmake --build $(COVERAGE_BUILD_DIR) -j$(JOBS)
	find $(COVERAGE_BUILD_DIR) -name '*.gcda' -delete
	rm -rf $(COVERAGE_REPORT_DIR) && mkdir -p $(COVERAGE_REPORT_DIR)/emulator
	cd $(COVERAGE_BUILD_DIR) && GCOV_PREFIX=$(COVERAGE_DIR) \
		GCOV_PREFIX_STRIP=$(words $(subst /, ,$(COVERAGE_DIR))) \
		ctest --output-on-failure -j$(JOBS); status=$$?; cd $(CURDIR) && \
	gcovr -r . --object-directory $(COVERAGE_BUILD_DIR) $(DAEMON_COVERAGE_FILTERS) \
		$(RIG_COVERAGE_FILTERS) --exclude-unreachable-branches --exclude-throw-branches \
		--json $(COVERAGE_REPORT_DIR)/coverage.json || \
		{ echo "make coverage: gcovr failed (its errors are above)" >&2; exit 1; }; \
	$(call coverage_report,daemon,$(COVERAGE_REPORT_DIR)/index.html,$(DAEMON_COVERAGE_FILTERS)); \
	$(call coverage_report,emulator/,$(COVERAGE_REPORT_DIR)/emulator/index.html,$(RIG_COVERAGE_FILTERS)); \
	cat $(COVERAGE_REPORT_DIR)/summary.txt; \
	exit $$status

# Every benchmark against its floor, as one table; the figures also go to build/bench/results.json.
bench: build
	$(BUILD_DIR)/bench/tarvo-bench --json $(BUILD_DIR)/bench/results.json

# Each fuzz target (built with clang, in $(BUILD_DIR)/fuzz/) for FUZZ_SECONDS seconds, one after
# the other: a line each with the inputs it ran and whether it stayed clean. The corpus each one
# grows, its log and any failing input stay in $(BUILD_DIR)/fuzz/runs/TARGET/.
fuzz: build
	cmake --build $(BUILD_DIR) -j$(JOBS) --target tarvo_fuzz_build
	@status=0; for target in $(FUZZ_TARGETS); do \
		tests/fuzz/run_fuzz_target.sh $(BUILD_DIR) $$target $(BUILD_DIR)/fuzz/runs/$$target \
			-max_total_time=$(FUZZ_SECONDS) || status=1; \
	done; exit $$status

# One fault at a time in a copy of the tree under $(BUILD_DIR)/mutants; the tree itself is never
# changed. MUTANTS=pattern plays only the faults whose name matches.
mutants: deps
	scripts/mutants.py --build-dir $(BUILD_DIR) --jobs $(JOBS) $(if $(MUTANTS),--only '$(MUTANTS)') \
		--record $(BUILD_DIR)/mutants/results.txt

# The rig's command, and with it the daemon and the emulated RIL client library; nothing else.
demo: configure
	cmake --build $(BUILD_DIR) -j$(JOBS) --target tarvo-emu
	$(BUILD_DIR)/tarvo-emu run tests/scenarios/demo.textproto

# The IPC throughput test against the emulated modem: prints the table, draws build/tput.svg.
tput: build
	$(BUILD_DIR)/tarvo-emu tput --plot $(BUILD_DIR)/tput.svg --json $(BUILD_DIR)/tput.json

# Random traffic with faults against the daemon, checked against a model, for SOAK_SECONDS with a
# seed a core from SOAK_SEED (the commit's by default); a divergence is shrunk to
# build/soak-failure.seed-N.textproto.
soak: build
	$(BUILD_DIR)/tarvo-emu soak --seed $(SOAK_SEED) --duration $(SOAK_SECONDS) \
		--out $(BUILD_DIR)/soak-failure.textproto

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR) $(TSAN_BUILD_DIR) $(COVERAGE_BUILD_DIR)
