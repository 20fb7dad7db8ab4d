#!/usr/bin/env bash
# Installs the Debian packages that are missing. Silent and quick when everything is there.
#   tools/setup.sh          what building takes
#   tools/setup.sh check    also what the checks take
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config nlohmann-json3-dev libcli11-dev libarchive-dev
  libedit-dev libgtest-dev libgmock-dev librapidcheck-dev libbenchmark-dev)
if [ "${1:-}" = check ]; then
  packages+=(clang-14 clang-format-14 clang-tidy-14)
fi

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
  echo "setup: not a Debian system; these packages or their like are needed: ${packages[*]}" >&2
  exit 0
fi

missing=()
for package in "${packages[@]}"; do
  if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
    missing+=("$package")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

asRoot=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: missing packages, and neither root nor sudo to install them: ${missing[*]}" >&2
    exit 1
  fi
  asRoot=(sudo)
fi
echo "setup: installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
  "${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y "$@" >>"$log" 2>&1
}
if ! { apt update && apt install --no-install-recommends "${missing[@]}"; }; then
  echo "setup: apt-get could not install ${missing[*]}: $(grep -m 1 '^E:' "$log" || tail -n 1 "$log")" >&2
  exit 1
fi
