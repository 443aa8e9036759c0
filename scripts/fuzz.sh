#!/usr/bin/env bash
# Runs one libFuzzer target for SECONDS seconds on its seed corpus and dictionary.
#   bash scripts/fuzz.sh fuzz_openconfig_edit 60
# Targets: fuzz_openconfig_edit, fuzz_native_edit, fuzz_delete_path. Needs clang.
# New inputs go to build-fuzz/corpus/TARGET; a crash or broken property leaves
# crash-* / leak-* files in build-fuzz/ and a non-zero exit.
set -euo pipefail
cd "$(dirname "$0")/.."
TARGET=${1:?usage: fuzz.sh TARGET SECONDS}
SECONDS_TO_RUN=${2:-60}
BUILD=${OCNI_FUZZ_BUILD:-build-fuzz}
command -v clang++ >/dev/null || { echo "fuzz.sh: clang++ is not installed" >&2; exit 2; }
if [ ! -f "$BUILD/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$BUILD" -DOCNI_FUZZ=ON -DOCNI_SANITIZE=ON -DOCNI_BUILD_TESTS=OFF \
    -DOCNI_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$BUILD" -j"$(nproc)" --target "$TARGET" >/dev/null
NAME=${TARGET#fuzz_}
mkdir -p "$BUILD/corpus/$TARGET"
cd "$BUILD"
ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1} \
  "./tests/fuzz/$TARGET" -max_total_time="$SECONDS_TO_RUN" -timeout=20 -rss_limit_mb=3072 -print_final_stats=1 \
  -dict="../tests/fuzz/$NAME.dict" "corpus/$TARGET" "../tests/fuzz/seeds/$NAME"
