#!/usr/bin/env bash
# Native IFF, side by side with OpenImageIO on the same generated 4096 x 4096 RGBA 8-bit image, in
# one run: whole-image RLE read and write (medians of interleaved rounds, ratios, "x memcpy"), then
# the per-tile codec throughput next to memcpy. Usage: bench/compare_iff.sh [ROUNDS]
# Every comparison runs on both content classes (bench/compare_common.h): the flat/synthetic picture and the
# render-like one (gradients with sensor noise, a band of noise, flat shapes).
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
rounds=${1:-9}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
echo "== whole image (build/bench/compare_iff --rounds $rounds)"
build/bench/compare_iff --rounds "$rounds" "$dir"
echo
echo "== one 64 x 64 RGBA tile per codec (build/bench/bench_codecs), medians of 5"
build/bench/bench_codecs --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
  --benchmark_filter='median' 2>/dev/null | grep -E 'median|Benchmark' || \
build/bench/bench_codecs --benchmark_repetitions=5 --benchmark_report_aggregates_only=true 2>/dev/null \
  | grep -E '_median|^Benchmark'
