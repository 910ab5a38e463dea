#!/usr/bin/env bash
# Screenshots of the desktop program under Xvfb: starts the scheduler on a temporary data
# directory under a unique server name, makes a few plans and journals with the agent, and has
# backupframe-desktop write PNGs of its windows into OUT_DIR (then once more with the service stopped).
set -euo pipefail

build_dir=${1:-build}
out_dir=$(realpath -m "${2:-$build_dir/screenshots}")
scheduler="$build_dir/apps/scheduler/backupframe-scheduler"
agent_bin="$build_dir/apps/agent/backupframe-agent"
desktop="$build_dir/apps/desktop/backupframe-desktop"
work=$(mktemp -d "${TMPDIR:-/tmp}/backupframe-shots.XXXXXX")
server="backupframe-shots-$$-$RANDOM"
scheduler_pid=

if ! command -v xvfb-run > /dev/null; then
    echo "screenshots: installing xvfb"
    sudo_cmd=()
    [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
    "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends xvfb xauth > /dev/null
fi

cleanup() {
    if [ -n "$scheduler_pid" ] && kill -0 "$scheduler_pid" 2>/dev/null; then
        kill -TERM "$scheduler_pid" 2>/dev/null || true
        wait "$scheduler_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

# The programs' settings and logs stay in the work folder: a fresh window size, nothing of the user's touched.
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data-home"
agent() { "$agent_bin" --server-name "$server" --timeout 10 "$@"; }

"$scheduler" --data-dir "$work/service" --server-name "$server" > "$work/scheduler.out" 2>&1 &
scheduler_pid=$!
for _ in $(seq 1 100); do
    agent status > /dev/null 2>&1 && break
    kill -0 "$scheduler_pid" 2>/dev/null || { cat "$work/scheduler.out"; exit 1; }
    sleep 0.1
done

# A few folders to back up, and where to.
for folder in Photos Documents "Old laptop"; do
    mkdir -p "$work/home/$folder" "$work/usb/$folder"
    for i in 1 2 3; do head -c $((i * 300000)) /dev/urandom > "$work/home/$folder/file$i.bin"; done
done
copy() { printf 'source=%s\ndestination=%s' "$work/home/$1" "$work/usb/$1"; }

agent new "Photos to the USB disk" copy "$(copy Photos)" --type 1 --start "2030-01-01 02:00:00" > /dev/null
agent new "Documents archive" zip "$(copy Documents)" --type 2 --week-days 1,5 \
    --start "2030-01-07 18:30:00" --end "2031-12-31 00:00:00" > /dev/null
agent new "Old laptop" copy "$(copy "Old laptop")" --type 3 --month-days 1,15 --last-day \
    --start "2030-01-01 12:00:00" > /dev/null
agent new "Mail folder check" sleep 600000 --type 1 --start "2030-01-01 08:00:00" --interval 2 --duration 10 > /dev/null

agent run "Photos to the USB disk" --wait > /dev/null
agent run "Documents archive" --wait > /dev/null
rm -rf "$work/home/Old laptop"
agent run "Old laptop" --wait > /dev/null 2>&1 || true
agent run "Mail folder check" > /dev/null

mkdir -p "$out_dir"
xvfb-run -a -s "-screen 0 1280x800x24" "$desktop" --server-name "$server" --screenshots "$out_dir"
kill -TERM "$scheduler_pid" && wait "$scheduler_pid" || true
scheduler_pid=
xvfb-run -a -s "-screen 0 1280x800x24" "$desktop" --server-name "$server" --screenshots "$out_dir"
echo "screenshots: $(ls "$out_dir" | tr '\n' ' ')in $out_dir"
