#!/usr/bin/env bash
# Builds without sanitizers and runs every test executable under valgrind (memcheck):
# any memory error or definite leak fails the run. Installs valgrind when run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
if ! command -v valgrind >/dev/null; then
  [ "$(id -u)" -eq 0 ] || { echo "valgrind is not installed (run as root, or install it)" >&2; exit 1; }
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq valgrind
fi
BUILD=${OCNI_VALGRIND_BUILD:-build-valgrind}
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Debug -DOCNI_BUILD_BENCH=OFF >/dev/null
cmake --build "$BUILD" -j"$(nproc)"
export OCNI_SOURCE_DIR="$PWD" OCNI_BINARY_DIR="$PWD/$BUILD"
cd "$BUILD"
failed=()
for t in tests/test_*; do
  [ -x "$t" ] || continue
  name=$(basename "$t")
  if valgrind --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite -q "$t" \
       >"$name.valgrind.log" 2>&1; then
    echo "clean   $name"
  else
    echo "FAILED  $name (see $BUILD/$name.valgrind.log)"
    failed+=("$name")
  fi
done
[ ${#failed[@]} -eq 0 ]
