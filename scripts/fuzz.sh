#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build in turn for the given seconds, starting from the seeds
# in fuzz/corpus/<target>/ (read only: what a run adds goes to <build>/fuzz/work/<target>/).
# Prints per target the executions per second, the coverage and whether it found anything;
# exits non-zero if any target found something (the input is kept in <build>/fuzz/findings/).
# Usage: fuzz.sh BUILD_DIR SECONDS [TARGET...]
set -uo pipefail
cd "$(dirname "$0")/.."
build=$1
run_seconds=$2
shift 2
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    targets=(fuzz_command fuzz_payload fuzz_receive fuzz_config fuzz_options)
fi

found=0
for target in "${targets[@]}"; do
    work="$build/fuzz/work/$target"
    findings="$build/fuzz/findings"
    log="$build/fuzz/$target.log"
    mkdir -p "$work" "$findings"
    # -timeout: an input taking 10 s is reported as a hang; QT_LOGGING_RULES keeps Qt's warnings
    # about malformed input out of the way.
    QT_LOGGING_RULES='*=false' "$build/fuzz/$target" -max_total_time="$run_seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$findings/$target-" "$work" "fuzz/corpus/$target" > "$log" 2>&1
    status=$?
    stats=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
    cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<< "$stats")
    execs=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    if [ $status -eq 0 ]; then
        verdict="nothing found"
    else
        verdict="FOUND something (exit $status), see $log and $findings/"
        found=1
    fi
    printf '%-14s %ss  %s execs  %s exec/s  cov: %s  %s\n' "$target" "$run_seconds" "${runs:-?}" "${execs:-?}" \
        "${cov:-?}" "$verdict"
done
exit $found
