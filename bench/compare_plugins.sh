#!/usr/bin/env bash
# The bundled plug-ins through vimg convert's path, side by side with OpenImageIO in one run, one
# thread each: 4096 x 4096 PNG, JPEG, TIFF, OpenEXR, JPEG 2000, Radiance and PPM decoded and encoded.
# Usage: bench/compare_plugins.sh [ROUNDS] [--only png|jpg|tif|exr|jp2|hdr|ppm]
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
build/bench/compare_plugins --rounds "${1:-5}" "${@:2}"
