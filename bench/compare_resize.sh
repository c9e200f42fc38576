#!/usr/bin/env bash
# Resampling, side by side with libvips and OpenImageIO on the same generated 4096 x 4096 RGBA
# 8-bit picture reduced to 1024 x 1024 with lanczos3, one thread each, in one run.
# Usage: bench/compare_resize.sh [ROUNDS]
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
build/bench/compare_resize --rounds "${1:-7}"
