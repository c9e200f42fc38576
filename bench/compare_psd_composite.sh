#!/usr/bin/env bash
# Photoshop layer compositing, side by side with ImageMagick (convert doc.psd -flatten) and
# psd-tools (composite) on the same generated 10-layer 2048 x 2048 document, in one run.
# Usage: bench/compare_psd_composite.sh [ROUNDS]
set -euo pipefail
cd "$(dirname "$0")/.."
make --no-print-directory build >/dev/null
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
build/bench/compare_psd_composite --rounds "${1:-5}" "$dir"
