#!/usr/bin/env bash
# Mutation testing: seeds faults into a fixed sample of the plug-in (100 mutants over
# localrouting/src) and of the host (50 over host/), rebuilds and runs ctest for each, and prints
# both kill rates. Its own build is optimised (-O1, so that a mutant the compiler proves changes
# nothing compiles to the same object and counts as equivalent) and runs under AddressSanitizer,
# LeakSanitizer and UBSan as CI does, so a dropped free or an overrun is caught the way CI would
# catch it. Mutants are written into the source tree one at a time and put back, so leave the
# tree alone while it runs (about an hour on two cores).
# CI does not run it.
#   bash scripts/mutation.sh            # both samples
#   OCNI_MUT_ONLY=host bash scripts/mutation.sh
# Every test case runs as a ctest test of its own (the slow suites spread over both cores, and
# each record names the cases that caught the mutant); OCNI_MUT_CASES=0 runs whole suites.
set -euo pipefail
cd "$(dirname "$0")/.."
MUTATE=${OCNI_MUTATE:-../shared/tools/mutate.py}
BUILD=${OCNI_MUT_BUILD:-build-mut}
SEED=${OCNI_MUT_SEED:-88664101}   # drawn once, measured once; tests written after it are not counted
ONLY=${OCNI_MUT_ONLY:-}
[ -f "$MUTATE" ] || { echo "mutation runner not found: $MUTATE (set OCNI_MUTATE)" >&2; exit 1; }
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
# GCC's -O1 sees uninitialised members inside std::regex where there are none: warn, not fail.
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE=-O1 -DCMAKE_C_FLAGS_RELEASE=-O1 \
  -DCMAKE_CXX_FLAGS=-Wno-error=maybe-uninitialized -DOCNI_SANITIZE=ON -DOCNI_BUILD_BENCH=OFF \
  -DOCNI_TEST_CASES="${OCNI_MUT_CASES:-1}" "${launcher[@]}" >/dev/null
# The NETCONF server's test (a Python client, ~45 s) drives the same engine the other suites
# cover; left out here it would triple the run. Kill rates are measured without it.
echo 'set(CTEST_CUSTOM_TESTS_IGNORE netconf_server)' >"$BUILD/CTestCustom.cmake"
export OCNI_SOURCE_DIR="$PWD" OCNI_BINARY_DIR="$PWD/$BUILD"   # what ctest sets per test otherwise
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=halt_on_error=1
run() {  # name glob count
  nice -n 10 python3 "$MUTATE" --src . --build "$BUILD" --files "$2" --count "$3" \
    --seed "$SEED" --out "$BUILD/mutants-$1.jsonl" >"$BUILD/mutants-$1.log" 2>&1 ||
    { echo "mutation run '$1' failed, see $BUILD/mutants-$1.log" >&2; return 1; }
}
[ "$ONLY" = host ] || run plugin 'localrouting/src/*.cpp' 100
[ "$ONLY" = plugin ] || run host 'host/*.cpp' 50
for s in plugin host; do
  [ -f "$BUILD/mutants-$s.jsonl" ] && [ -z "$ONLY" -o "$ONLY" = "$s" ] || continue
  python3 "$MUTATE" --summary "$BUILD/mutants-$s.jsonl"
done
