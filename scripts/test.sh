#!/usr/bin/env bash
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer and runs the test suites.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
BUILD=${OCNI_TEST_BUILD:-build-test}
cmake -S . -B "$BUILD" -DOCNI_SANITIZE=ON -DOCNI_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build "$BUILD" -j"$(nproc)"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
ctest --test-dir "$BUILD" --output-on-failure -j"$(nproc)"
# The install: a staging directory, the Debian package, and (as root) the package installed and run.
bash scripts/package.sh
# Each fuzz target for a minute where clang is installed (scripts/fuzz.sh; long runs: README).
if command -v clang++ >/dev/null; then
  for target in fuzz_openconfig_edit fuzz_native_edit fuzz_delete_path; do
    bash scripts/fuzz.sh "$target" "${OCNI_FUZZ_SECONDS:-60}"
  done
fi
