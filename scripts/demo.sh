#!/usr/bin/env bash
# The main job: starts the reference scheduler on a temporary data directory under a
# unique server name, drives a short agent session against it, and stops it again.
set -euo pipefail

build_dir=${1:-build}
scheduler="$build_dir/apps/scheduler/backupframe-scheduler"
agent_bin="$build_dir/apps/agent/backupframe-agent"
data_dir=$(mktemp -d "${TMPDIR:-/tmp}/backupframe-demo.XXXXXX")
server="backupframe-demo-$$-$RANDOM"
scheduler_pid=

cleanup() {
    if [ -n "$scheduler_pid" ] && kill -0 "$scheduler_pid" 2>/dev/null; then
        kill -TERM "$scheduler_pid" 2>/dev/null || true
        wait "$scheduler_pid" 2>/dev/null || true
    fi
    rm -rf "$data_dir"
}
trap cleanup EXIT

agent() { "$agent_bin" --server-name "$server" --timeout 10 "$@"; }
if [ -t 1 ]; then bold=$'\033[1m'; plain=$'\033[0m'; else bold=; plain=; fi
say() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }

say "starting the scheduler (data in $data_dir)"
"$scheduler" --data-dir "$data_dir" --server-name "$server" > "$data_dir/scheduler.out" 2>&1 &
scheduler_pid=$!
for _ in $(seq 1 100); do
    agent status > /dev/null 2>&1 && break
    kill -0 "$scheduler_pid" 2>/dev/null || { cat "$data_dir/scheduler.out"; exit 1; }
    sleep 0.1
done
agent status

say "creating two plans"
agent new "Documents nightly" noop --type 1 --start "2030-01-01 02:00:00" --interval 24
agent new "Photos weekly" fail "The photo disk is not mounted." --type 2 \
    --start "2030-01-05 03:30:00" --week-days 6,7

start=$(date -d '+3 seconds' '+%Y-%m-%d %H:%M:%S')
say "creating 'Quick check', due once at $start"
agent new "Quick check" noop --type 0 --start "$start"

say "the plans"
agent plans

say "running 'Documents nightly' now and waiting for its end"
agent run --wait "Documents nightly"

say "waiting for 'Quick check' to fire on its own"
fired=
for _ in $(seq 1 150); do
    if [ "$(agent --json journals "Quick check" | tr -d ' \n')" != "[]" ]; then fired=1; break; fi
    sleep 0.1
done
[ -n "$fired" ] || { echo "'Quick check' did not fire"; exit 1; }
agent journals "Quick check"

say "the journal of 'Documents nightly'"
agent journals "Documents nightly"

say "the operations a plan can run"
agent operations

say "backing up a generated folder (96 MiB) with 'copy', following its progress"
mkdir -p "$data_dir/documents/letters" "$data_dir/documents/scans" "$data_dir/backup"
for i in 1 2 3; do head -c 200000 /dev/urandom > "$data_dir/documents/letters/letter$i.bin"; done
for i in 1 2 3; do head -c 32M /dev/urandom > "$data_dir/documents/scans/scan$i.bin"; done
echo "A file to keep." > "$data_dir/documents/notes.txt"
agent new "Documents backup" copy "source=$data_dir/documents;destination=$data_dir/backup"
agent run --follow "Documents backup"
diff -r "$data_dir/documents" "$data_dir/backup" && echo "the backup equals the folder, file for file"

say "the journal of 'Documents backup'"
agent journals "Documents backup"

say "restoring one file of the backup, and checking the backup against the folder"
agent restore "Documents backup" --path notes.txt --to "$data_dir/restored" --wait
cmp "$data_dir/documents/notes.txt" "$data_dir/restored/notes.txt" && echo "notes.txt came back as it was"
agent verify "Documents backup" --wait

say "deleting 'Photos weekly'"
agent delete "Photos weekly"

say "the plans again"
agent plans

say "stopping the scheduler"
kill -TERM "$scheduler_pid"
wait "$scheduler_pid"
scheduler_pid=
cat "$data_dir/scheduler.out" | grep -v '\[WARN\]\|\[ERROR\]' || true
say "done"
