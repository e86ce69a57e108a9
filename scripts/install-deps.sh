#!/usr/bin/env bash
# Installs every Debian package Orvanta builds, tests, benchmarks and fuzzes with.
# Idempotent: packages already present are left alone, and apt is not touched at all
# when nothing is missing.
set -euo pipefail

packages=(
    # toolchain
    build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev clang-format
    # user interface
    qt6-base-dev libqt6opengl6-dev qt6-speech-dev qt6-declarative-dev qt6-qpa-plugins libgl-dev libegl-dev
    # codecs
    libjpeg62-turbo-dev libturbojpeg0-dev libspng-dev libpng-dev libtiff-dev libgif-dev
    libwebp-dev libraw-dev libheif-dev libjxl-dev libjxr-dev
    # metadata, colour, formats, network, storage
    libexiv2-dev liblcms2-dev libxml2-dev libcurl4-openssl-dev libsqlite3-dev sqlite3
    libgphoto2-dev libsodium-dev nlohmann-json3-dev
    # tests and benchmarks
    libgtest-dev libgmock-dev googletest libbenchmark-dev
    # independent metadata readers the integration tests compare with
    libimage-exiftool-perl exiv2
    # window tests under a virtual display
    xvfb xauth libgl1-mesa-dri libegl-mesa0 fonts-dejavu-core
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
