#!/usr/bin/env bash
# Builds the project in Debug with the given sanitizers in a directory of its own and runs the
# whole test suite there. Usage: sanitize.sh BUILD_DIR SANITIZERS (address,undefined or thread).
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
sanitizers=$2
jobs=$(nproc 2>/dev/null || echo 2)

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DBACKUPFRAME_SANITIZE="$sanitizers" \
    -DBACKUPFRAME_BUILD_BENCH=OFF > "$build.configure.log" || { cat "$build.configure.log"; exit 1; }
cmake --build "$build" -j"$jobs"

# Reports end the process with an error, so ctest sees them as failures. The suppression file
# names only findings inside Qt and the system libraries.
supp=$PWD/scripts/sanitizer-suppressions
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:halt_on_error=1:detect_stack_use_after_return=0"
export LSAN_OPTIONS="suppressions=$supp/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:suppressions=$supp/ubsan.supp"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$supp/tsan.supp"
cd "$build"
ctest --output-on-failure -LE packaging
