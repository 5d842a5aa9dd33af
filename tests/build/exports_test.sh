#!/usr/bin/env bash
# Compares the dynamic symbols that libvarnkivo.so.1 defines with the committed list, both ways: a name that vanishes
# breaks programs, one that slips out (of a template of cpr or the standard library, say) becomes a promise.
#
#   exports_test.sh LIBRARY LIST [--update]   --update rewrites the list after a change that was meant
set -euo pipefail
library=$1 list=$2

names=$(nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort -u)
if [ "${3:-}" = --update ]; then printf '%s\n' "$names" >"$list"; exit; fi

failed=0
complain() { c++filt | sed "s/^/$1: /" | grep . && failed=1 || :; }
complain 'listed, but not exported' < <(LC_ALL=C comm -13 <(echo "$names") "$list")
complain 'exported, but not listed' < <(LC_ALL=C comm -23 <(echo "$names") "$list")

# Every name carries the library's version, so that a program says which one it was linked for.
complain 'exported without the version VARNKIVO_1' < <(nm -D --with-symbol-versions --defined-only "$library" |
  awk '$2 != "A" && $3 !~ /@@VARNKIVO_1$/ { print $3 }')

[ "$(wc -l <"$list")" -ge 10 ] || { echo "the list of exported names is all but empty"; failed=1; }
exit "$failed"
