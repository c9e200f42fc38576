#!/usr/bin/env bash
# LUTs, side by side with OpenColorIO in one run: 33^3 and 65^3 .cube files applied to the same
# 4096 x 4096 float RGBA pixels, ours on one thread and on every core against OCIO's CPU processor
# (FileTransform, linear interpolation); medians of interleaved rounds, ratios, "x memcpy", and the
# largest difference between the two results. Usage: bench/compare_lut.sh [ROUNDS]
# Every comparison runs on both content classes (bench/compare_common.h): the flat/synthetic picture and the
# render-like one (gradients with sensor noise, a band of noise, flat shapes).
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
build/bench/compare_lut --rounds "${1:-5}" "$dir"
