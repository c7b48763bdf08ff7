#!/usr/bin/env bash
# The headers of an installed tree: each compiles alone, and none is there that users of the library have no business with.
#
# usage: check_headers.sh PREFIX COMPILER
set -euo pipefail

compiler=$2
cd "$1/include"
if find Korvane/platform -type f | xargs grep -L '^// Moved: ' | grep .; then
    echo "internal headers of platform/ are installed" >&2
    exit 1
fi
# What only leads on from a former place is compiled by old_paths.cpp.
find Korvane -type f -print0 | xargs -0 grep -L '^// Moved: ' |
    xargs -P "$(nproc)" -I{} "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Werror -x c++ -I. -include {} /dev/null
