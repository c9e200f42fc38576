#!/usr/bin/env bash
# Photoshop documents, side by side with OpenImageIO's PSD reader on the same generated 10-layer
# 2048 x 2048 RGB 8-bit run-length document, in one run: read and decode every layer (medians of
# interleaved rounds, ratios, "x memcpy"). Usage: bench/compare_psd.sh [ROUNDS]
# Every comparison runs on both content classes (bench/compare_common.h): the flat/synthetic picture and the
# render-like one (gradients with sensor noise, a band of noise, flat shapes).
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
rounds=${1:-7}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
echo "== every layer (build/bench/compare_psd --rounds $rounds)"
build/bench/compare_psd --rounds "$rounds" "$dir"
