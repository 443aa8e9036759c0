#!/usr/bin/env bash
# Builds ocni-map and runs the demo: edits from examples/ against a throwaway store.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD=${OCNI_BUILD:-build}
# A build directory someone configured already keeps its settings (a test build stays one).
[ -f "$BUILD/CMakeCache.txt" ] ||
  cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DOCNI_BUILD_TESTS=OFF -DOCNI_BUILD_BENCH=OFF >/dev/null
cmake --build "$BUILD" -j"$(nproc)"
exec bash examples/demo.sh "$BUILD"
