#!/usr/bin/env bash
# Checks the plug-in's dynamic symbols: every listed function and variable is
# exported, nothing else is, and the only undefined symbols come from the
# platform interface, the C/C++ runtime, libc and libm, and the Safe C library.
set -euo pipefail
export LC_ALL=C
lib=$1 exports=$2 platform=$3
names() { awk '{print $NF}' | sed 's/@.*//' | sort -u; }
want=$(cat "$exports/functions.txt" "$exports/variables.txt" | sort -u)
have=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[TDBVWRtdbr]$/' | names | grep -v '^_')
rc=0
diff -u <(echo "$want") <(echo "$have") || { echo "exported symbols differ from the list (- missing, + extra)"; rc=1; }
# Allowed from elsewhere: every identifier declared in platform/include, and what libc and libm define.
allowed=$({ grep -ohE '\b[A-Za-z_][A-Za-z0-9_]*\s*\(' "$platform"/*.h | sed 's/\s*($//'; echo yfw_ocifmgr_im_conn
            nm -D --defined-only /lib/x86_64-linux-gnu/libc.so.6 /lib/x86_64-linux-gnu/libm.so.6 | names; } | sort -u)
runtime='^(_.*_s_chk|_ITM_.*|__gmon_start__|__cxa_.*|__gxx_personality_v0|_Unwind_.*|__stack_chk_fail|__assert_fail|__(asan|ubsan|sanitizer|lsan)_.*)$'
bad=$(comm -23 <(nm -D --undefined-only "$lib" | names) <(echo "$allowed") | grep -Ev "$runtime" || true)
[ -z "$bad" ] || { echo "unexpected undefined symbols:"; echo "$bad"; rc=1; }
[ $rc -ne 0 ] || echo "exports: $(echo "$have" | wc -l) symbols as listed"
exit $rc
