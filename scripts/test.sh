#!/usr/bin/env bash
# Installs what is missing, builds with AddressSanitizer and UndefinedBehaviorSanitizer,
# runs every test through ctest, then runs each fuzz target for a few seconds.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh

build=${ORVANTA_TEST_BUILD:-build/asan}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DORVANTA_SANITIZE=address,undefined -DORVANTA_BUILD_BENCH=OFF
cmake --build "$build"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" --timeout 600
# The OpenGL view against the raster one on Mesa's software OpenGL under a virtual display
# (with the offscreen platform above these tests skip). The X platform's D-Bus library keeps
# a few allocations to the end, so leaks are not counted in this run.
if command -v xvfb-run >/dev/null; then
    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 1920x1080x24" \
        "$build/tests/display_tests" --gtest_filter='GlView*'
fi

if [ "${ORVANTA_SKIP_FUZZ:-0}" != 1 ]; then
    scripts/fuzz.sh --seconds "${ORVANTA_FUZZ_SECONDS:-5}"
fi
