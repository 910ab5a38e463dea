# The commands of the README: `make demo` runs the main job, `make test` builds and runs every test,
# `make test-asan` and `make test-tsan` run the tests under the sanitizers, `make fuzz SECONDS=60`
# runs each fuzz target. All install the Debian packages they need first (scripts/bootstrap.sh).

BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

SECONDS ?= 60
FUZZ_DIR ?= build-fuzz
FUZZ_TARGETS ?= fuzz_command fuzz_payload fuzz_receive fuzz_config fuzz_options

.PHONY: all bootstrap configure build demo test test-asan test-tsan fuzz bench install clean

all: build

bootstrap:
	@bash scripts/bootstrap.sh

configure: bootstrap
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) > $(BUILD_DIR).configure.log || (cat $(BUILD_DIR).configure.log; exit 1)

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

demo: build
	@bash scripts/demo.sh $(BUILD_DIR)

test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure

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

bench: build
	@./$(BUILD_DIR)/bench/bench_database
	@./$(BUILD_DIR)/bench/bench_flood
	@./$(BUILD_DIR)/bench/bench_listing
	@./$(BUILD_DIR)/bench/bench_stringlist

install: build
	@cmake --install $(BUILD_DIR) $(if $(PREFIX),--prefix $(PREFIX))

clean:
	@rm -rf $(BUILD_DIR) $(BUILD_DIR).configure.log build-asan build-tsan $(FUZZ_DIR)
