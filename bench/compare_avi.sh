#!/usr/bin/env bash
# AVI writing, side by side with ffmpeg on the same 300 frames of 1920 x 1080 in one run:
# uncompressed 24-bit and Motion JPEG at the same quantiser.
# Usage: bench/compare_avi.sh [ROUNDS] (the files, about 2 GB at a time, go to /tmp)
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
build/bench/compare_avi --rounds "${1:-3}"
