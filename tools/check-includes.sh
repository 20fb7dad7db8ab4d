#!/usr/bin/env bash
# The folders' arrows: which folder may include which. Project headers are named by folder path; the
# library includes the C++ standard library and nothing else from outside.
set -euo pipefail
cd "$(dirname "$0")/.."

status=0
complain() { # where and what
  echo "$1"
  status=1
}

# arrow FOLDER REGEX: what sources in FOLDER may name in quotes.
arrow() {
  local found
  if [ ! -d "$1" ]; then
    return
  fi
  found=$(grep -rnE --include='*.h' --include='*.cpp' '^ *# *include *"' "$1" |
    grep -vE "include *\"($2)" || true)
  if [ -n "$found" ]; then
    complain "$found
  ^ $1/ may include only: ${2//|/, }"
  fi
}

library='framework/|model/|engine/|nexthop/|config/'
arrow framework 'framework/'
arrow framework/Xdk 'framework/Xdk/|framework/Vellor/Types\.h'
arrow model 'framework/|model/'
arrow engine 'framework/|model/|engine/'
arrow nexthop 'framework/|model/|nexthop/'
arrow config 'framework/|model/|config/'
arrow xdksim 'framework/Xdk/|framework/Vellor/Types\.h|xdksim/'
arrow agent "$library|xdksim/|agent/"
arrow cli "$library|xdksim/|agent/|cli/"

# Standard headers have neither a folder nor a suffix. The one file that maps memory into the
# process needs the system's calls.
foreign=$(grep -rnE --include='*.h' --include='*.cpp' '^ *# *include *<[^>]*[./]' \
  framework model engine nexthop config | grep -v '^framework/Ferrix/MappedFile\.cpp:' || true)
if [ -n "$foreign" ]; then
  complain "$foreign
  ^ the library includes the C++ standard library alone"
fi

once=$(find framework model engine nexthop config xdksim agent cli tests -name '*.h' -type f \
  -exec grep -L '^#pragma once' {} +)
if [ -n "$once" ]; then
  complain "$once
  ^ a header opens with #pragma once"
fi
exit $status
