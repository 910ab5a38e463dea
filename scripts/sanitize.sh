#!/usr/bin/env bash
# Builds the project in Debug with the given sanitizers in a directory of its own and runs the
# whole test suite there. Usage: sanitize.sh BUILD_DIR SANITIZERS (address,undefined or thread).
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
sanitizers=$2
jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DBACKUPFRAME_SANITIZE="$sanitizers" \
    -DBACKUPFRAME_BUILD_BENCH=OFF > "$build.configure.log" || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j"$jobs"

# The first report ends the process with an error, so ctest counts it as a failure. Under
# ThreadSanitizer, tests/tsanqtsupport.cpp (linked into the tests and the programs) holds the
# only suppressions: findings inside Qt and GLib, which are not instrumented.
export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
cd "$build"
ctest --output-on-failure -LE packaging
