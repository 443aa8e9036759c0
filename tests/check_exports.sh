#!/usr/bin/env bash
# Checks the plug-in's dynamic symbols: every listed function and variable is
# exported, nothing else is, and the only undefined symbols come from the
# platform interface, the C/C++ runtime and the Safe C library.
set -euo pipefail
lib=$1; exports=$2; platform=$3
have=$(mktemp); want=$(mktemp); undef=$(mktemp); allowed=$(mktemp)
trap 'rm -f "$have" "$want" "$undef" "$allowed"' EXIT
nm -D --defined-only "$lib" | awk '$2 ~ /^[TDBVWRtdbr]$/ {print $3}' | grep -v '^_' | sort -u > "$have"
cat "$exports/functions.txt" "$exports/variables.txt" | sort -u > "$want"
rc=0
if ! diff -u "$want" "$have"; then
  echo "exported symbols differ from the list (- missing, + extra)"; rc=1
fi
nm -D --undefined-only "$lib" | awk '{print $2}' | sed 's/@.*//' | sort -u > "$undef"
# Platform interface: every identifier declared in platform/include.
grep -ohE '\b[A-Za-z_][A-Za-z0-9_]*\s*\(' "$platform"/*.h | sed 's/\s*($//' | sort -u > "$allowed"
echo yfw_ocifmgr_im_conn >> "$allowed"
libc=$(mktemp); trap 'rm -f "$have" "$want" "$undef" "$allowed" "$libc"' EXIT
nm -D --defined-only /lib/x86_64-linux-gnu/libc.so.6 /lib/x86_64-linux-gnu/libm.so.6 | awk '{print $NF}' | sed 's/@.*//' | sort -u > "$libc"
bad=0
while read -r s; do
  [ -z "$s" ] && continue
  grep -qx "$s" "$allowed" && continue
  case "$s" in
    _strncpy_s_chk|_strcpy_s_chk|_strcat_s_chk|_memset_s_chk|_memcpy_s_chk|_*_s_chk) continue;;  # Safe C library
    _ITM_*|__gmon_start__|__cxa_*|__gxx_personality_v0|_Unwind_*|__stack_chk_fail|__assert_fail) continue;;
    __asan_*|__ubsan_*|__sanitizer_*|__lsan_*) continue;;
  esac
  # C library and libm
  grep -qx "$s" "$libc" && continue
  echo "unexpected undefined symbol: $s"; bad=1
done < "$undef"
[ $bad -eq 0 ] || rc=1
[ $rc -eq 0 ] && echo "exports: $(wc -l < "$have") symbols as listed"
exit $rc
