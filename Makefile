# The commands of the README: `make demo` runs the main job, `make test` builds and runs every test,
# `make test-asan` and `make test-tsan` run the tests under the sanitizers, `make fuzz SECONDS=60`
# runs each fuzz target. All install the Debian packages they need first (scripts/bootstrap.sh).

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

SECONDS ?= 60
FUZZ_DIR ?= build-fuzz
FUZZ_TARGETS ?= fuzz_command fuzz_payload fuzz_receive fuzz_config fuzz_options

.PHONY: all bootstrap configure build demo test test-asan test-tsan fuzz build-qt6 test-qt6 test-cross bench install clean screenshots

all: build

bootstrap:
	@bash scripts/bootstrap.sh

configure: bootstrap
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) > $(BUILD_DIR).configure.log || (cat $(BUILD_DIR).configure.log; exit 1)

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

# PNGs of the desktop program's windows under Xvfb, into $(BUILD_DIR)/screenshots (or SHOTS_DIR).
screenshots: build
	@bash scripts/screenshots.sh $(BUILD_DIR) $(SHOTS_DIR)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure

# The same tree built against Qt 6 (Core5Compat) in a build directory of its own, and its whole suite.
QT6_BUILD_DIR ?= build-qt6

build-qt6:
	@bash scripts/bootstrap.sh qt6
	@cmake -S . -B $(QT6_BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DBACKUPFRAME_QT_MAJOR=6 > $(QT6_BUILD_DIR).configure.log || (cat $(QT6_BUILD_DIR).configure.log; exit 1)
	@cmake --build $(QT6_BUILD_DIR) -j$(JOBS)

test-qt6: build-qt6
	@cd $(QT6_BUILD_DIR) && ctest --output-on-failure

# Each build's clients against the other build's service: a Qt 5 agent, desktop program and
# library client (every request type, over both transports) against a Qt 6 scheduler, and the
# same of Qt 6 against a Qt 5 scheduler. tst_apps and tst_desktop take the service from
# BACKUPFRAME_TEST_SCHEDULER.
SCHEDULER_IN = $(abspath $(1))/apps/scheduler/backupframe-scheduler

test-cross: build build-qt6
	@ldd $(call SCHEDULER_IN,$(BUILD_DIR)) | grep -q libQt5Core || (echo "$(BUILD_DIR) is not a Qt 5 build"; exit 1)
	@ldd $(call SCHEDULER_IN,$(QT6_BUILD_DIR)) | grep -q libQt6Core || (echo "$(QT6_BUILD_DIR) is not a Qt 6 build"; exit 1)
	@for pair in "$(BUILD_DIR) $(QT6_BUILD_DIR)" "$(QT6_BUILD_DIR) $(BUILD_DIR)"; do \
	    set -- $$pair; service=$$(realpath $$2)/apps/scheduler/backupframe-scheduler; \
	    for t in tst_apps tst_desktop; do \
	        (cd $$1/tests && QT_QPA_PLATFORM=offscreen BACKUPFRAME_TEST_SCHEDULER=$$service ./$$t) || exit 1; \
	    done; \
	done

# Release build of its own; one table: case, library, baseline, library / baseline.
BENCH_DIR ?= build-bench
BENCHES = bench_codec bench_transport bench_queue bench_service bench_flood bench_stringlist

bench: bootstrap
	@cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DBACKUPFRAME_BUILD_BENCH=ON > $(BENCH_DIR).configure.log || (cat $(BENCH_DIR).configure.log; exit 1)
	@cmake --build $(BENCH_DIR) -j$(JOBS) --target $(BENCHES) backupframe-scheduler > $(BENCH_DIR).build.log || (cat $(BENCH_DIR).build.log; exit 1)
	@nproc | sed 's/^/cores: /'
	@./$(BENCH_DIR)/bench/bench_codec --header
	@for b in $(filter-out bench_codec,$(BENCHES)); do ./$(BENCH_DIR)/bench/$$b || exit 1; done

# The whole suite in a Debug build of its own under AddressSanitizer and UndefinedBehaviorSanitizer,
# then under ThreadSanitizer; any report fails the test that shows it.
test-asan: bootstrap
	@bash scripts/sanitize.sh build-asan address,undefined

test-tsan: bootstrap
	@bash scripts/sanitize.sh build-tsan thread

# Each fuzz target for SECONDS seconds, built with clang in a directory of its own.
fuzz:
	@bash scripts/bootstrap.sh fuzz
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBACKUPFRAME_FUZZ=ON \
		-DBACKUPFRAME_BUILD_TESTS=OFF -DBACKUPFRAME_BUILD_BENCH=OFF -DBACKUPFRAME_INSTALL=OFF \
		> $(FUZZ_DIR).configure.log || (cat $(FUZZ_DIR).configure.log; exit 1)
	@cmake --build $(FUZZ_DIR) -j$(JOBS) --target $(FUZZ_TARGETS)
	@bash scripts/fuzz.sh $(FUZZ_DIR) $(SECONDS) $(FUZZ_TARGETS)

install: build
	@cmake --install $(BUILD_DIR) $(if $(PREFIX),--prefix $(PREFIX))

clean:
	@rm -rf $(BUILD_DIR) $(BUILD_DIR).configure.log $(QT6_BUILD_DIR) $(QT6_BUILD_DIR).configure.log $(BENCH_DIR) $(BENCH_DIR).configure.log $(BENCH_DIR).build.log build-asan build-tsan $(FUZZ_DIR) $(FUZZ_DIR).configure.log
