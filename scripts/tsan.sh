#!/usr/bin/env bash
# Builds the decode tests with ThreadSanitizer and runs the cases of the prefetch cache, its
# workers, its request queue and the wait for a picture, which run several threads over the
# same entries. Extra arguments go to the test program (--gtest_repeat=20, for example).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${ORVANTA_TSAN_BUILD:-build/tsan}
jobs=${ORVANTA_JOBS:-2}
# The loader runs the resolvers of functions with several processor versions (histogram
# counting, colour rows) before the ThreadSanitizer runtime is relocated; an instrumented
# function entry there crashes at start-up, so function entries and exits go uninstrumented
# (memory accesses still are; reports then show the racing accesses without their callers).
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DORVANTA_SANITIZE=thread \
    -DCMAKE_CXX_FLAGS="--param=tsan-instrument-func-entry-exit=0" \
    -DORVANTA_BUILD_UI=OFF -DORVANTA_BUILD_BENCH=OFF
cmake --build "$build" --target decode_tests -j "$jobs"

# The list waits for a running decode with a timed lock (pthread_mutex_clocklock), which
# this compiler's ThreadSanitizer does not intercept: it then reports the unlock as a misuse.
# The case that removes entries goes through that wait and is left to the other sanitizers.
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
"$build/tests/decode_tests" \
    --gtest_filter='CacheTest.*:Cases/QueueOrder.*:WaitTest.*:Cases/WaitGoesOn.*:WindowSetting.*:DecodeRequestQueue.*-CacheTest.RemovingAnEntryTakesItOutOfTheCache' \
    "$@"
