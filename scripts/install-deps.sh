#!/usr/bin/env bash
# Installs every build, test and benchmark dependency of voraimage (Debian 12), peers included.
# Idempotent: packages already present are not fetched again; apt-get update runs only when needed.
set -euo pipefail

PACKAGES=(
  # build
  build-essential cmake ninja-build pkg-config clang-14 libclang-rt-14-dev
  # libraries (ARCHITECTURE.md section 4)
  zlib1g-dev qt6-base-dev qt6-image-formats-plugins libcli11-dev libmuparser-dev
  # the video compressors of AVI movies
  libavcodec-dev libavutil-dev libswscale-dev
  # OpenEXR files (the HDR readers) and its tools (exrmaketiled makes test files)
  libopenexr-dev openexr
  # the bundled format plug-ins: PNG, JPEG, TIFF, GIF, WebP and JPEG 2000 through their reference libraries
  libpng-dev libjpeg62-turbo-dev libtiff-dev libgif-dev libwebp-dev libopenjp2-7-dev
  # Tstring::matchesRegexp: linear-time matching, safe on very long names
  libre2-dev
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev python3
  # the resampling peer of bench/compare_resize.sh and of the lanczos tests
  libvips-tools libvips-dev
  # the OpenImageIO Python bindings (interop tests) hand pixels over as numpy arrays
  python3-numpy
  # peers for interoperability tests and side-by-side benchmarks
  openimageio-tools python3-openimageio imagemagick opencolorio-tools libopencolorio-dev ffmpeg
  # psd-tools: its own blend of a document's layers is the compositing tests' peer
  python3-psd-tools
  # GIMP in batch mode (gimp-console-2.10): reads the documents the library writes
  gimp
  # OpenImageIO in-process for the side-by-side benchmarks (bench/compare_iff.cpp)
  libopenimageio-dev
  hyperfine
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
