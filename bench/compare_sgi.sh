#!/usr/bin/env bash
# SGI, side by side with OpenImageIO on the same generated 4096 x 4096 RGBA 8-bit image, in
# one run: RLE read and write (OpenImageIO writes SGI verbatim only) (medians of interleaved rounds, ratios, "x memcpy"), then
# the per-tile codec throughput next to memcpy. Usage: bench/compare_sgi.sh [ROUNDS]
# Every comparison runs on both content classes (bench/compare_common.h): the flat/synthetic picture and the
# render-like one (gradients with sensor noise, a band of noise, flat shapes).
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
rounds=${1:-9}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
echo "== whole image (build/bench/compare_sgi --rounds $rounds)"
build/bench/compare_sgi --rounds "$rounds" "$dir"
