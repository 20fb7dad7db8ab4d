#!/usr/bin/env bash
# Installs a build tree, moves the result elsewhere, and uses it from there as a stranger would:
# through find_package, through pkg-config, and by running the installed program. What it builds are
# the examples of docs/integration.md, which must show them as they are.
#   tests/install/check.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/../.."
buildDir=$1
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT

# The block of C++ that follows the line naming the file.
shown() { # file
  awk -v file="$1" '
    /^```/ && shows { exit }
    shows { print }
    index($0, "(" file ")") { named = 1 }
    named && /^```cpp$/ { shows = 1 }
  ' docs/integration.md
}
for example in docs/integration/*.cpp; do
  if ! diff "$example" <(shown "${example#docs/}"); then
    echo "docs/integration.md: the block behind (${example#docs/}) differs from the file" >&2
    exit 1
  fi
done

cmake --install "$buildDir" --prefix "$stage/first" >/dev/null
mv "$stage/first" "$stage/moved"
tree=$stage/moved
libDir=$(dirname "$(find "$tree" -name libtarnlet.so)")

cmake -S tests/install -B "$stage/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$tree" >/dev/null
cmake --build "$stage/consumer" >/dev/null
for program in library_consumer forwarding_agent bare_library; do
  "$stage/consumer/$program"
done
printed=$(sed -n '/^\$ \.\/forwarding_agent$/,/^```$/{//!p}' docs/integration.md)
if ! diff <("$stage/consumer/forwarding_agent") - <<<"$printed"; then
  echo "docs/integration.md: the example prints something else" >&2
  exit 1
fi

export PKG_CONFIG_PATH=$libDir/pkgconfig
withPkgConfig() { # source, package
  local program flags
  program=$stage/$(basename "$1" .cpp)_pkgconfig
  read -ra flags <<<"$(pkg-config --cflags --libs "$2")"
  g++ -std=c++20 "$1" -o "$program" "${flags[@]}" -Wl,-rpath,"$libDir"
  "$program"
}
withPkgConfig tests/install/library_consumer.cpp tarnlet
withPkgConfig docs/integration/forwarding_agent.cpp tarnlet-agent
withPkgConfig docs/integration/bare_library.cpp tarnlet-agent

"$tree/bin/tarnlet" --version
if readelf -d "$libDir"/*.so "$tree/bin/tarnlet" | grep -E 'R(UN)?PATH' | grep -F "$PWD"; then
  echo "installed files name the build tree" >&2
  exit 1
fi
