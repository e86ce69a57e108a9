#!/usr/bin/env bash
# Frame benchmarks in a Release build under Xvfb: process start to first picture painted for
# `orvanta one-24MP.jpg` against `orvanta-cli decode` of the same file from its own process
# start (limit 1.6x), and next-picture to painted on prefetched 24 MP pictures in a
# 1920x1080 window (limit 20 ms at the median); then the OpenGL view against the raster one
# (next picture to presented, texture upload, panning at actual size) on Mesa's software
# OpenGL.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${ORVANTA_BENCH_BUILD:-build/release}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANTA_BUILD_BENCH=ON \
    -DORVANTA_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target orvanta orvanta-cli frame_ui_bench gl_view_ui_bench \
    navigate_pictures -j 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ORVANTA_REGISTRY="$work/registry.db" XDG_RUNTIME_DIR="$work"
"$build/bench/navigate_pictures" "$work/shoot" 25 24 >/dev/null
one="$work/shoot/p001.jpg"
# One X server for every run, so that its own start is not counted.
display=:$(( 90 + RANDOM % 100 ))
Xvfb "$display" -screen 0 1920x1200x24 >/dev/null 2>&1 &
xserver=$!
trap 'kill $xserver 2>/dev/null; rm -rf "$work"' EXIT
export DISPLAY=$display
sleep 1
ms() { date +%s%3N; }
cli=()
app=()
for run in 1 2 3; do
    start=$(ms); "$build/src/orvanta-cli" decode "$one" >/dev/null; cli+=($(( $(ms) - start )))
    log="$work/app$run.log"
    start=$(ms)
    ORVANTA_TRACE=1 "$build/src/orvanta" "$one" 2>"$log" &
    runner=$!
    for _ in $(seq 600); do grep -q "first picture painted" "$log" && break; sleep 0.05; done
    painted=$(sed -n 's/.*first picture painted.* at \([0-9]*\) ms/\1/p' "$log")
    app+=($(( painted - start )))
    kill -TERM "$runner" 2>/dev/null || true
    wait "$runner" || true
done
median() { printf '%s\n' "$@" | sort -n | sed -n 2p; }
c=$(median "${cli[@]}"); a=$(median "${app[@]}")
echo "decode from process start: $c ms; orvanta start to first picture painted: $a ms" \
    "; ratio $(awk "BEGIN{printf \"%.2f\", $a/$c}"), limit 1.6" \
    "(ratio/limit $(awk "BEGIN{printf \"%.2f\", $a/$c/1.6}"))"
"$build/bench/frame_ui_bench" "$work/shoot" --steps 20 --pause 700
"$build/bench/gl_view_ui_bench" "$work/shoot" --steps 20 --pause 700
