#!/usr/bin/env bash
# Builds a release and runs every benchmark; each prints its figures and their ratio to the
# limit it is held to, measured in the same run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=build/release
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANTA_BUILD_TESTS=OFF >/dev/null
cmake --build "$build"
shopt -s nullglob
for b in "$build"/bench/*; do
    [ -x "$b" ] && [ -f "$b" ] || continue
    echo "== $(basename "$b")"
    "$b" "$@"
done
