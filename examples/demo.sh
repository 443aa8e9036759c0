#!/usr/bin/env bash
# Runs the example edits against a throwaway store and shows what each does.
# Usage: examples/demo.sh [BUILD_DIR]   (default: build)
set -uo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
MAP="$BUILD/tools/ocni-map"
if [ ! -x "$MAP" ]; then
  echo "demo: $MAP not built (run: bash scripts/demo.sh)" >&2
  exit 1
fi
STORE=$(mktemp -d "${TMPDIR:-/tmp}/ocni-demo.XXXXXX")
trap 'rm -rf "$STORE"' EXIT
failed=0

# Runs one command, shows it and its exit status; `want` is the status expected.
run() {
  local want=$1; shift
  printf '\n$ ocni-map %s\n' "$*"
  "$MAP" --store "$STORE" "$@"
  local rc=$?
  printf '[exit %d]\n' "$rc"
  if [ "$rc" -ne "$want" ]; then
    echo "demo: expected exit $want" >&2
    failed=1
  fi
}

echo "== Static routes through OpenConfig, kept natively (store: $STORE)"
run 0 vrf add blue
run 0 edit examples/01-ipv4-default-next-hop-address.json
run 0 edit examples/02-ipv4-default-local-link.json
run 0 edit examples/03-ipv4-red-address-and-interface.json
run 0 edit examples/04-ipv6-default-drop.json
run 0 edit examples/05-ipv6-red-address.json
run 0 edit examples/06-ipv4-default-route.xml
run 0 edit examples/07-metric-change.json --dry-run --diff
run 0 native edit examples/native-router-cli.json
run 0 native
run 0 get
run 0 get --state --vrf red
run 0 delete "$(cat examples/delete-next-hop.path)"
run 0 vrf list

echo
echo "== Edits that are refused (the store is left as it was)"
run 1 edit examples/refused-description.json
run 2 edit examples/invalid-prefix.json
run 2 edit examples/invalid-leaf.json

exit $failed
