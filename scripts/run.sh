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
# Until the window exists: show how the command line is understood and the settings the
# program would run with.
"$build/src/orvanta-cli" args --json "$@"
exec "$build/src/orvanta-cli" settings effective --json
