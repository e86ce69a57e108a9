#!/usr/bin/env bash
# Installs what is missing, builds a release and runs Orvanta on the folder or files given,
# or on a sample shoot made once in build/sample-shoot (a dozen generated photo-like pictures
# in JPEG, PNG, TIFF and WebP with shooting data, a JPEG and DNG raw pair and a three-page
# TIFF, beside the bundled samples: PNG, GIF and an EXIF-rotated JPEG). Without a display it runs
# under xvfb-run, saves screenshots of the start picture and the first pictures and says
# where they are.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/install-deps.sh"
build="$top/build/release"
cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DORVANTA_BUILD_TESTS=OFF -DORVANTA_BUILD_BENCH=ON >/dev/null
cmake --build "$build" --target orvanta orvanta-cli sample_shoot frame_ui_bench -j 2

if [ $# -eq 0 ]; then
    shoot="$top/build/sample-shoot"
    if [ ! -f "$shoot/.made" ] || [ ! -f "$shoot/IMG_0100.dng" ]; then
        rm -rf "$shoot"  # a shoot of an older make goes
        mkdir -p "$shoot"
        "$build/bench/sample_shoot" "$shoot" >/dev/null
        cp "$top"/data/samples/*.jpg "$top"/data/samples/*.png "$top"/data/samples/*.gif "$shoot/"
        touch "$shoot/.made"
    fi
    set -- "$shoot"
fi
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    exec "$build/src/orvanta" "$@"
fi
shots="$top/build/screenshots"
mkdir -p "$shots"
folder=$1
[ -d "$folder" ] || folder=$(dirname "$folder")
xvfb-run -a -s "-screen 0 1920x1200x24" \
    "$build/bench/frame_ui_bench" "$folder" --steps 4 --pause 800 --screenshots "$shots"
echo "no display: screenshots of the window are in $shots (start.png, step0.png ... step3.png)"
