#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one for a while.
#   scripts/fuzz.sh [--seconds N] [TARGET]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=5
only=""
while [ $# -gt 0 ]; do
    case "$1" in
        --seconds) seconds=$2; shift 2 ;;
        *) only=$1; shift ;;
    esac
done

build=build/fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DORVANTA_FUZZ=ON -DORVANTA_BUILD_UI=OFF -DORVANTA_BUILD_TESTS=OFF \
    -DORVANTA_BUILD_BENCH=OFF >/dev/null
cmake --build "$build"

shopt -s nullglob
for target in "$build"/fuzz/*_fuzz; do
    name=$(basename "$target")
    [ -n "$only" ] && [ "$name" != "$only" ] && continue
    corpus="$build/corpus/$name"
    mkdir -p "$corpus"
    seeds=()
    [ -d "fuzz/seeds/$name" ] && seeds+=("fuzz/seeds/$name")
    echo "fuzz: $name for ${seconds}s"
    ASAN_OPTIONS=detect_leaks=1 "$target" -max_total_time="$seconds" -rss_limit_mb=2048 \
        -max_len=1048576 -print_final_stats=0 "$corpus" "${seeds[@]}" 2>"$build/$name.log" \
        || { tail -n 60 "$build/$name.log"; exit 1; }
done
