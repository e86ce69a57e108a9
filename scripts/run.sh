#!/usr/bin/env bash
# Installs what is missing, builds a release and runs Orvanta on the folder or files given
# (or on the bundled sample pictures).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/install-deps.sh"
build="$top/build/release"
cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DORVANTA_BUILD_TESTS=OFF -DORVANTA_BUILD_BENCH=OFF >/dev/null
cmake --build "$build"

[ $# -gt 0 ] || set -- "$top/data/samples"
if [ -x "$build/src/orvanta" ]; then
    exec "$build/src/orvanta" "$@"
fi
# Until the window exists: the folder as the program reads it (entries in display order)
# and how it decodes each picture.
if [ -d "$1" ]; then
    "$build/src/orvanta-cli" list "$1"
    find "$1" -maxdepth 1 -type f ! -name '*.md' -print0 | sort -z |
        xargs -0 -r -n1 "$build/src/orvanta-cli" decode || true
else
    for file in "$@"; do "$build/src/orvanta-cli" decode "$file" || true; done
fi
