#!/usr/bin/env bash
# HDR reading and exposure, side by side with OpenImageIO in one run, one thread each: a 4096 x
# 2160 RGBA half EXR read and exposed to 8 bits (exposure and gamma 2.2).
# Usage: bench/compare_hdr.sh [ROUNDS]
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
build/bench/compare_hdr --rounds "${1:-5}"
