#!/usr/bin/env bash
# Installs a build tree, moves the result elsewhere, and uses it from there as a stranger would:
# through find_package, through pkg-config, and by running the installed program.
#   tests/install/check.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/../.."
buildDir=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT

cmake --install "$buildDir" --prefix "$stage/first" >/dev/null
mv "$stage/first" "$stage/moved"
tree=$stage/moved
libDir=$(dirname "$(find "$tree" -name libtarnlet.so)")

cmake -S tests/install -B "$stage/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$tree" >/dev/null
cmake --build "$stage/consumer" >/dev/null
"$stage/consumer/library_consumer"
"$stage/consumer/agent_consumer"

export PKG_CONFIG_PATH=$libDir/pkgconfig
for consumer in library:tarnlet agent:tarnlet-agent; do
  source=tests/install/${consumer%%:*}_consumer.cpp
  program=$stage/${consumer%%:*}_pkgconfig
  read -ra flags <<<"$(pkg-config --cflags --libs "${consumer##*:}")"
  g++ -std=c++20 "$source" -o "$program" "${flags[@]}" -Wl,-rpath,"$libDir"
  "$program"
done

"$tree/bin/tarnlet" --version
if readelf -d "$libDir"/*.so "$tree/bin/tarnlet" | grep -E 'R(UN)?PATH' | grep -F "$PWD"; then
  echo "installed files name the build tree" >&2
  exit 1
fi
