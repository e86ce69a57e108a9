#!/usr/bin/env bash
# Navigation benchmark in a Release build: makes 40 generated 24-megapixel JPEGs in a
# temporary folder, then walks them with orvanta-cli bench navigate, once stepping every
# 400 ms and once as fast as the pictures come. Extra arguments go to both runs.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${ORVANTA_BENCH_BUILD:-build/release}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANTA_BUILD_BENCH=ON \
    -DORVANTA_BUILD_UI=OFF -DORVANTA_BUILD_TESTS=OFF
cmake --build "$build" --target orvanta-cli navigate_pictures -j "${ORVANTA_JOBS:-2}"

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$build/bench/navigate_pictures" "$folder" 40 24
"$build/src/orvanta-cli" bench navigate "$folder" --interval 400 --steps 39 "$@"
"$build/src/orvanta-cli" bench navigate "$folder" --interval 0 --steps 39 "$@"
