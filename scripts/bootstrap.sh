#!/usr/bin/env bash
# Installs the Debian packages that building, testing and running backupframe need;
# "bootstrap.sh qt6" adds those of the Qt 6 build (Core5Compat, the SQLite driver, offscreen platform).
# "bootstrap.sh fuzz" adds clang and its libFuzzer runtime for the fuzz targets.
# Costs one dpkg query when everything is already present.
set -euo pipefail

packages=(qtbase5-dev libqt5sql5-sqlite liblog4cpp5-dev cmake g++ make pkg-config sqlite3 tzdata libzip-dev unzip libcurl4-openssl-dev python3-aiosmtpd)
if [ "${1:-}" = "qt6" ]; then
    packages+=(qt6-base-dev qt6-5compat-dev libqt6sql6-sqlite qt6-qpa-plugins)
elif [ "${1:-}" = fuzz ]; then
    packages+=(clang libclang-rt-14-dev)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "bootstrap: installing ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null 2>&1 || { echo "bootstrap: need root or sudo to install ${missing[*]}" >&2; exit 1; }
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
