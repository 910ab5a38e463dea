# The two commands of the README: `make demo` runs the main job, `make test` builds and runs every test.
# Both install the Debian packages they need first (scripts/bootstrap.sh).

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all bootstrap configure build demo test bench install clean screenshots

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

# Release build of its own; one table: case, library, baseline, library / baseline.
BENCH_DIR ?= build-bench
BENCHES = bench_codec bench_transport bench_queue bench_service bench_flood

bench: bootstrap
	@cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DBACKUPFRAME_BUILD_BENCH=ON > $(BENCH_DIR).configure.log || (cat $(BENCH_DIR).configure.log; exit 1)
	@cmake --build $(BENCH_DIR) -j$(JOBS) --target $(BENCHES) backupframe-scheduler > $(BENCH_DIR).build.log || (cat $(BENCH_DIR).build.log; exit 1)
	@nproc | sed 's/^/cores: /'
	@./$(BENCH_DIR)/bench/bench_codec --header
	@for b in $(filter-out bench_codec,$(BENCHES)); do ./$(BENCH_DIR)/bench/$$b || exit 1; done

install: build
	@cmake --install $(BUILD_DIR) $(if $(PREFIX),--prefix $(PREFIX))

clean:
	@rm -rf $(BUILD_DIR) $(BUILD_DIR).configure.log $(BENCH_DIR) $(BENCH_DIR).configure.log $(BENCH_DIR).build.log
